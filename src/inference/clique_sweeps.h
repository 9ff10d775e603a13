#pragma once

#include <cstddef>
#include <cstdint>

#include "compile/junction_forest.h"
#include "inference/clique_ops.h"
#include "table/table_ops.h"

namespace kelva {

// Propagation of discrete, uncompressed trees in one sweep per clique and
// pass.  Collect rebuilds a clique (or keeps it) times the evidence waiting
// in its home nodes and the messages of its children, and folds it onto the
// separator towards the root in the same sweep; distribute multiplies in
// the message from the root's side and folds onto every child separator
// and the marginals of the nodes at home there.  The factors come in the
// order of the separate kernels (node tables, chain-graph potentials,
// evidence, children last in the schedule first), so the bits are theirs.

/// Whether `tree` takes the sweeps: its domain is not compressed and has no
/// continuous nodes.
bool sweeps_fit(const JunctionTree& tree) noexcept;

/// Makes each clique's list of home nodes and the room of its sweeps, and
/// each discrete node's evidence factor; allocates only the first time.
void prepare_sweeps(JunctionTree& tree);

/// The evidence that the next collect multiplies into the home cliques:
/// none, each node's entered evidence, or the ratio of entered to
/// propagated evidence of each node whose evidence changed (states
/// excluded before stay excluded).
enum class Waiting { nothing, entered, change };

/// Sets what the next collect multiplies in: with `rebuild`, the cliques
/// are built again from their node tables before the evidence and messages
/// are multiplied in, and each separator's first message is taken as it
/// comes (first_message).
void stage_sweeps(JunctionTree& tree, bool rebuild, Waiting evidence);

/// The first message over a separator after a rebuild: its old values
/// would be ones, so the new values `fresh` (already the separator table)
/// are the quotients themselves, as exchange_separator would make them.
/// With `scale`, `quotient` receives them divided by the largest, which is
/// left in *scale; without, the receiver reads the separator table.
void first_message(double* fresh, double* quotient, std::uint64_t n, double* scale) noexcept;

/// Hands the message that a link's collect sweep left in `fresh` (n
/// entries: the separator's table after a rebuild, its scratch otherwise)
/// to the separator: after a rebuild as its first message; otherwise the
/// new values become the table and the quotients replace the old ones.
/// With `scale`, the quotients are scaled and the divisor left in *scale.
/// Inline: it runs once per link and case, mostly rebuilt and unscaled,
/// where it does nothing.
inline void take_collected(Separator& sep, double* fresh, std::uint64_t n, bool rebuilt,
                           double* scale) noexcept {
  if (rebuilt) {
    if (scale != nullptr) first_message(fresh, sep.scratch.data(), n, scale);
    return;
  }
  sep.table->swap_data(sep.scratch);
  separator_quotients(sep.table->data(), sep.scratch.data(), n, scale);
}

/// The collect sweep of `clique`: its children's messages are in the
/// separators of schedule links [first, end) (their scratch, or their table
/// after a rebuild unscaled), and its marginal goes to `out` through
/// `out_plan` (none when null, at the root).  Multiplies in the entered
/// evidence of its home nodes when so staged, else their waiting factors
/// (and clears them).  A large rebuilt clique with few factors, swept while
/// two threads share the passes, may only be folded (rebuild_pending): its
/// table is then made by its receive_sweep, from the factors this sweep
/// leaves in its sweep_factors.
void collect_sweep(JunctionTree& tree, Clique& clique, std::size_t first, std::size_t end,
                   const IndexPlan* out_plan, double* out, Reduce how,
                   const Parallelism& parallelism);

/// The distribute sweep of `clique`: multiplies by `factor` through `plan`,
/// then leaves its marginals in the separator scratch of schedule links
/// [first, end) and in the marginals of its home nodes.
void distribute_sweep(JunctionTree& tree, Clique& clique, const IndexPlan& plan,
                      const double* factor, std::size_t first, std::size_t end, Reduce how,
                      const Parallelism& parallelism);

/// The distribute message of schedule link `i` and the sweep of the clique
/// it reaches: the sender's sweep left the separator's new values in its
/// scratch; they become the separator table (the buffers are exchanged, not
/// copied), and the clique is multiplied by new / old (as
/// exchange_separator makes it) and folded as by distribute_sweep.  When
/// the separator leads the clique's table and the sweep is not shared
/// between threads, each quotient is made from the two buffers as the
/// sweep reaches its entries; otherwise the quotients are written to the
/// scratch first.  A clique whose collect sweep only folded it is rebuilt
/// from the collect's factors, the quotients last.  The bits are those of
/// exchange_separator followed by distribute_sweep.
void receive_sweep(JunctionTree& tree, std::size_t i, std::size_t first, std::size_t end,
                   Reduce how, const Parallelism& parallelism);

}  // namespace kelva
