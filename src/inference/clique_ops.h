#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "compile/junction_forest.h"
#include "network/node.h"
#include "table/table_ops.h"

namespace kelva {

// The clique-level steps of propagation.  Every operation on clique and
// separator data goes through these functions; a compressed representation
// of the forest's tables is dispatched here and nowhere else.

/// Writes the node's evidence as a vector over its `states` states into
/// `out`: all ones for code -1, the indicator of state k for code k >= 0,
/// and the finding vector for code -2 (ones where it is short).
void evidence_vector(std::int64_t code, const std::vector<double>& vector, std::size_t states,
                     double* out) noexcept;

/// Entry i of the evidence vector that `code` and `vector` stand for (see
/// evidence_vector).
double evidence_entry(std::int64_t code, const std::vector<double>& vector, std::size_t i) noexcept;

/// Throws unless `x`, a clique's total, is a normal, finite double (or
/// negative, which only tables holding negative numbers give):
/// Error(inconsistency_or_underflow) below, Error(overflow) above or NaN.
void verify_total(double x);

/// Whether a node's table is a factor of the joint distribution: discrete
/// chance and function nodes, and decision nodes without an entered choice
/// (a decision taken by hand is an intervention; its policy plays no part).
inline bool is_node_factor(const Node& node) noexcept {
  if (!node.is_discrete()) return false;
  const k_category_t c = node.category();
  if (c == K_CATEGORY_DECISION) return node.evidence.entered_code < 0;
  return c == K_CATEGORY_CHANCE || c == K_CATEGORY_FUNCTION;
}

/// Sets every separator table of `tree` to ones and every clique table to
/// the product of the tables assigned
/// to it: the conditional (or policy) tables of discrete chance, decision and
/// function nodes, and chain-graph component potentials.  Utility tables and
/// the tables of continuous nodes are not multiplied in (a continuous node's
/// density integrates to one over its own values).
void initialise_cliques(JunctionTree& tree, const Parallelism& parallelism);

/// Multiplies `vector` (one entry per state of the slot's node) into the
/// node's home clique.
void multiply_into_home(const NodeSlot& slot, const double* vector, const Parallelism& parallelism);

/// Sends the message of `link`, outwards (inner to outer clique) or
/// inwards: the sender's table is marginalized onto the separator, the new
/// separator table replaces the old one, and the receiver is multiplied by
/// new / old (an entry whose old value is 0 multiplies by the new value).
/// With `marginal_ready` the sender's marginal is already in the
/// separator's scratch.  With a `next` separator, the receiver's marginal
/// onto it (through `next_plan`) is left in that separator's scratch, made
/// in the same sweep as the multiplication.  With `scale` (scaled
/// propagation), the receiver is multiplied by new / old divided by the
/// largest new value, which is left in `*scale` (1 when every new value is
/// 0): the receiver's table then stays near 1 however small P(e) becomes.
void send_message(const JunctionTree::Message& link, bool outward, Reduce how,
                  const Parallelism& parallelism, bool marginal_ready = false,
                  Separator* next = nullptr, const IndexPlan* next_plan = nullptr,
                  double* scale = nullptr);

/// Keeps the `n` new separator values `fresh` in `old` and leaves in
/// `fresh` the quotients new / old (new where old is 0), divided by the
/// largest new value when `scale` is given (see send_message).
void exchange_separator(double* old, double* fresh, std::uint64_t n, double* scale) noexcept;

/// The factor that divides a message of `n` new values by its largest, which
/// is left in *scale (1 when every value is 0); 1 without `scale`.
double message_inverse(const double* fresh, std::uint64_t n, double* scale) noexcept;

/// The factor of a message for one separator entry: new / old, or new
/// where old is 0.
inline double separator_quotient(double fresh, double old) noexcept {
  return old > 0.0 ? fresh / old : fresh;
}

/// exchange_separator for a separator whose new values have already become
/// its table (`fresh`): `old` receives the quotients in place.
void separator_quotients(const double* fresh, double* old, std::uint64_t n, double* scale) noexcept;

/// separator_quotients without a scale, shared between the threads of
/// `parallelism` in contiguous ranges when `n` is large (the same bits).
void separator_quotients(const double* fresh, double* old, std::uint64_t n,
                         const Parallelism& parallelism) noexcept;

/// The total of the clique's table: sum or maximum of its entries.
double clique_total(const Clique& clique, Reduce how, const Parallelism& parallelism);

/// Multiplies every entry of the clique's table by `factor`.
void scale_clique(Clique& clique, double factor, const Parallelism& parallelism);

/// Computes the slot's marginal from its home clique.
void node_marginal(NodeSlot& slot, Reduce how, const Parallelism& parallelism);

/// The expected utility of a utility node: the sum over the entries of its
/// (normalized) assigned clique of probability times utility.
double expected_utility(const NodeSlot& slot);

/// Adds, for every discrete node X of `tree`, the expected utility of the
/// utility node of `utility` given each state s of X, E[U | X = s], to the
/// node's expected_utility.  The tree must be in sum equilibrium with its
/// marginals computed, and its schedule rooted at the utility's assigned
/// clique.  Expected utilities flow outwards from that clique through the
/// separators (E[U | separator]), using the separators' scratch and the
/// tree's utility scratch.
void add_conditional_utilities(JunctionTree& tree, const NodeSlot& utility,
                               const Parallelism& parallelism);

}  // namespace kelva
