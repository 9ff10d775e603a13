#pragma once

#include <cstdint>

#include "compile/junction_forest.h"
#include "table/table_ops.h"

namespace kelva::compressed {

// The clique-level steps of propagation on a compressed forest
// (Forest::compressed): the same results as the full-table steps of
// clique_ops.h, computed over the kept entries through the index maps.
// Entries that were dropped are 0 and stay 0 under every step, so they are
// never visited.  These run on the calling thread.

/// Sets every kept clique entry of `tree` to the product of the node
/// tables assigned to its clique.
void initialise_cliques(JunctionTree& tree);

/// Multiplies `vector` (one entry per state) into the node's home clique.
void multiply_into_home(const NodeSlot& slot, const double* vector);

/// Sends the message of `link` (see clique_ops.h's send_message).
void send_message(const JunctionTree::Message& link, bool outward, Reduce how, double* scale);

/// The sum or maximum of the clique's kept entries.
double clique_total(const Clique& clique, Reduce how);

/// Multiplies every kept entry of the clique by `factor`.
void scale_clique(Clique& clique, double factor);

/// Computes the slot's marginal from its home clique.
void node_marginal(NodeSlot& slot, Reduce how);

/// The expected utility of a utility node from its assigned clique.
double expected_utility(const NodeSlot& slot);

/// `out` := the marginal of the clique's table onto out's nodes through
/// `plan` (clique table -> out).
void marginalize_clique(const Clique& clique, const IndexPlan& plan, double* out, Reduce how);

}  // namespace kelva::compressed
