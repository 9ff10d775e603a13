#include "inference/clique_sweeps.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <span>

#include "inference/clique_ops.h"
#include "inference/collect_memo.h"
#include "inference/evidence.h"
#include "network/domain.h"
#include "network/node.h"
#include "table/sweep.h"

namespace kelva {

namespace {

// A large rebuilt clique costs more in its table's traffic than in its
// factors' products: the collect then only folds it (the rebuilt blocks
// are made in a buffer), and its distribute sweep makes it again from the
// same factors and the parent's quotients, folds it and drops it too.  The
// table is left with the product deferred (Table::defer_product), made
// only if something reads it before the next rebuild.  Cliques of at
// least kRebuiltTwice entries and at most kMostFactorsTwice factors: with
// munin1's 78 M-entry clique of three factors the products cost more than
// the traffic saved (see docs/decisions/fused_sweeps.md).  A sweep shared
// by two threads has half the memory bandwidth per thread, so one more
// factor pays there (barley's 6.35 M-entry clique of three).
constexpr std::uint64_t kRebuiltTwice = std::uint64_t{1} << 15;
constexpr std::size_t kMostFactorsTwice = 2;
constexpr std::size_t kMostFactorsTwiceShared = 3;
// The collect memo copies no clique this large, so none that is only folded.
static_assert(kRebuiltTwice > kMemoCliqueLimit);

// A node table is copied into its clique's member order when the clique has
// at least this many times its entries: the copy, made at every rebuild,
// then costs a small part of the strided reads it saves.
constexpr std::uint64_t kOrderedRatio = 8;

// Makes the room and plans of slot.ordered when the clique's inner run
// reads the node's table by a stride (a node innermost in the clique but
// not last in its table, as a parent before the child), or drops them.
void order_table(NodeSlot& slot, const Clique& clique) {
  const Table* own = slot.node->table();
  const Table& large = *clique.table;
  if (own == nullptr || slot.assigned_plan.inner_small_stride() <= 1 ||
      own->size() > large.size() / kOrderedRatio) {
    slot.ordered = DoubleBuffer();
    return;
  }
  const std::size_t n = own->discrete_count();
  std::vector<std::size_t> position(n), rank(n), order(n);
  for (std::size_t j = 0; j < n; ++j) position[j] = large.nodes().index_of(own->nodes()[j]);
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::sort(order.begin(), order.end(),
            [&](std::size_t a, std::size_t b) { return position[a] < position[b]; });
  std::vector<std::size_t> counts(n), positions(n);
  for (std::size_t k = 0; k < n; ++k) {
    rank[order[k]] = k;
    counts[k] = own->state_counts()[order[k]];
    positions[k] = position[order[k]];
  }
  slot.order_plan = IndexPlan(counts, rank);
  slot.ordered_plan = IndexPlan(large.state_counts(), positions);
  if (slot.ordered.size() != own->size()) slot.ordered = DoubleBuffer::zeros(own->size());
}

}  // namespace

bool sweeps_fit(const JunctionTree& tree) noexcept {
  const Domain& domain = *tree.domain;
  return domain.forest()->compressed == nullptr && domain.continuous_count() == 0 &&
         tree.cg == nullptr;
}

void prepare_sweeps(JunctionTree& tree) {
  Forest& forest = *tree.domain->forest();
  for (Clique* const* c = tree.cliques.data(); *c != nullptr; ++c) (*c)->homed.clear();
  for (Node* const* p = tree.nodes.data(); *p != nullptr; ++p) {
    NodeSlot* slot = forest.slot(**p);
    if (slot == nullptr || !(*p)->is_discrete() || slot->home == nullptr) continue;
    slot->home->homed.push_back(slot);
    if (slot->evidence_factor.size() != slot->marginal.size())
      slot->evidence_factor.assign(slot->marginal.size(), 1.0);
  }
  for (Clique* const* c = tree.cliques.data(); *c != nullptr; ++c) {
    Clique& clique = **c;
    std::size_t members = 0;
    clique.assigned_nodes.clear();
    for (Node* const* m = clique.members.data(); *m != nullptr; ++m) {
      ++members;
      NodeSlot* slot = forest.slot(**m);
      if (slot != nullptr && slot->assigned == &clique) {
        clique.assigned_nodes.push_back(slot);
        order_table(*slot, clique);
      }
    }
    const std::size_t factors =
        members + forest.components.size() + clique.homed.size() + clique.links.size() + 1;
    clique.sweep_factors.reserve(factors);
    clique.sweep_folds.reserve(clique.links.size() + clique.homed.size());
  }
}

void stage_sweeps(JunctionTree& tree, bool rebuild, Waiting evidence) {
  tree.sweep_rebuild = rebuild;
  // The entered evidence is made into each factor by the clique's collect
  // sweep, so cliques restored from the collect memo make none.
  tree.sweep_entered = evidence == Waiting::entered;
  if (tree.sweep_entered) return;
  for (Clique* const* c = tree.cliques.data(); *c != nullptr; ++c) {
    for (NodeSlot* slot : (*c)->homed) {
      const Evidence& ev = slot->node->evidence;
      double* f = slot->evidence_factor.data();
      const std::size_t n = slot->evidence_factor.size();
      slot->factor_waiting = evidence == Waiting::change && evidence_to_propagate(*slot->node);
      for (std::size_t i = 0; slot->factor_waiting && i < n; ++i) {
        const double o = evidence_entry(ev.propagated_code, ev.propagated_vector, i);
        f[i] = o != 0.0 ? evidence_entry(ev.entered_code, ev.entered_vector, i) / o : 0.0;
      }
    }
  }
}

void first_message(double* fresh, double* quotient, std::uint64_t n, double* scale) noexcept {
  if (scale == nullptr) return;
  const double inverse = message_inverse(fresh, n, scale);
  for (std::uint64_t i = 0; i < n; ++i) quotient[i] = fresh[i] * inverse;
}

void collect_sweep(JunctionTree& tree, Clique& clique, std::size_t first, std::size_t end,
                   const IndexPlan* out_plan, double* out, Reduce how,
                   const Parallelism& parallelism) {
  auto& factors = clique.sweep_factors;
  factors.clear();
  // A rebuild writes or folds every entry: a product the last propagation
  // deferred is not wanted.  Otherwise a deferred product's factors come
  // first and the sweep rebuilds from them, so the table is written once:
  // the same products in the same order as making it, then multiplying.
  Table& table = *clique.table;
  bool rebuild = tree.sweep_rebuild;
  if (!rebuild && table.deferred()) {
    const auto product = table.deferred_factors();
    factors.assign(product.begin(), product.end());
    rebuild = true;
  }
  table.drop_deferred();
  if (tree.sweep_rebuild) {
    // A node's table is assigned to a clique that holds the node, so the
    // members' records name every table assigned here.
    Forest& forest = *tree.domain->forest();
    for (NodeSlot* slot : clique.assigned_nodes) {
      if (!is_node_factor(*slot->node)) continue;
      const Table* own = slot->node->table();
      if (own == nullptr) continue;
      if (slot->ordered.empty()) {
        factors.push_back({&slot->assigned_plan, own->data()});
      } else {
        gather(slot->order_plan, slot->ordered.data(), own->data());
        factors.push_back({&slot->ordered_plan, slot->ordered.data()});
      }
    }
    for (const ComponentSlot& slot : forest.components)
      if (slot.assigned == &clique)
        factors.push_back({&slot.assigned_plan, slot.component->table->data()});
  }
  if (tree.sweep_entered) {
    for (NodeSlot* slot : clique.homed) {
      const Evidence& ev = slot->node->evidence;
      if (ev.entered_code == Evidence::kNone) continue;
      double* f = slot->evidence_factor.data();
      evidence_vector(ev.entered_code, ev.entered_vector, slot->evidence_factor.size(), f);
      factors.push_back({&slot->home_plan, f});
    }
  } else {
    for (NodeSlot* slot : clique.homed) {
      if (!slot->factor_waiting) continue;
      factors.push_back({&slot->home_plan, slot->evidence_factor.data()});
      slot->factor_waiting = false;
    }
  }
  // After a rebuild, unscaled, a child's message is its new separator
  // table itself (see first_message).
  const bool direct = tree.sweep_rebuild && !tree.domain->scaled_propagation;
  for (std::size_t j = end; j-- > first;) {
    Separator& sep = *tree.schedule[j].separator;
    factors.push_back(
        {tree.schedule[j].inner_plan, direct ? sep.table->data() : sep.scratch.data()});
  }
  SweepFold fold{out_plan, out};
  const std::span<SweepFold> folds(&fold, out != nullptr ? 1 : 0);
  const std::uint64_t size = clique.table->size();
  // A large rebuilt clique that sends a sum is only folded (see
  // kRebuiltTwice); a max propagation checks each clique's total.
  clique.rebuild_pending = false;
  const std::size_t most =
      split_sweep_fits(size, parallelism) ? kMostFactorsTwiceShared : kMostFactorsTwice;
  if (tree.sweep_rebuild && direct && how == Reduce::sum && out != nullptr &&
      size >= kRebuiltTwice && factors.size() <= most) {
    clique.rebuild_pending = sweep_folds_only(table.data(), size, factors, folds, how, parallelism);
    // The distribute defers the product: its factors are copied now, while
    // in the caches (at the distribute they took 3.5 times as long).
    if (clique.rebuild_pending) table.keep_factors(factors.data(), factors.size());
    return;
  }
  sweep(table.data(), size, rebuild, factors, folds, how, parallelism);
}

namespace {

// The folds of a distribute sweep of `clique`: the separator scratch of
// schedule links [first, end) but twins (Message::twin, see copy_twins)
// and the marginals of its home nodes.  A clique whose children hang on
// the same separator members (in munin3, up to seven of them) folds once;
// the others' messages are copies, the bits the same folds would give.
std::span<SweepFold> distribute_folds(JunctionTree& tree, Clique& clique, std::size_t first,
                                      std::size_t end) {
  auto& folds = clique.sweep_folds;
  folds.clear();
  for (std::size_t j = first; j < end; ++j) {
    const JunctionTree::Message& link = tree.schedule[j];
    if (link.twin == j) folds.push_back({link.inner_plan, link.separator->scratch.data()});
  }
  for (NodeSlot* slot : clique.homed) folds.push_back({&slot->home_plan, slot->marginal.data()});
  return folds;
}

// Gives each link of [first, end) left out of the distribute's folds the
// message its twin received.
void copy_twins(JunctionTree& tree, std::size_t first, std::size_t end) noexcept {
  for (std::size_t j = first; j < end; ++j) {
    const std::size_t k = tree.schedule[j].twin;
    if (k == j) continue;
    const DoubleBuffer& from = tree.schedule[k].separator->scratch;
    std::copy_n(from.data(), from.size(), tree.schedule[j].separator->scratch.data());
  }
}

// Whether `plan` takes large entry i to small entry i / m (m = large size
// over small size): the small table's axes lead the large table's, in the
// same order, as in a clique and the separator towards the tree's root.
bool separator_leads(const IndexPlan& plan) noexcept {
  const auto axes = plan.axes();
  if (plan.small_size() == 1) return true;
  return axes[0].small_stride == 1 && axes[0].count == plan.small_size() &&
         (axes.size() == 1 || (axes.size() == 2 && axes[1].small_stride == 0));
}

// Cliques of at most this many entries are multiplied by their quotients
// from a buffer on the stack.
constexpr std::uint64_t kSmallClique = 512;

// out[i] := separator_quotient(fresh[i], old[i]) for i < n, dividing by 1
// where the old value is not positive (x / 1 is x), in vector steps.
void quotients_into(double* __restrict out, const double* fresh, const double* old,
                    std::uint64_t n) noexcept {
  quotient_entries(out, fresh, old, n);
}

// Multiplies large entries [begin, end) by the quotients of the separator
// entries they fall on (entry i on i / m), each made once per block from
// the new and old values; x * q is the multiply kernel's product.
void multiply_by_quotients(double* large, const double* fresh, const double* old, std::uint64_t m,
                           std::uint64_t begin, std::uint64_t end) noexcept {
  // The quotients of up to kGroup separator entries at a time go to the
  // stack, and the row loops multiply their runs.
  constexpr std::uint64_t kGroup = 64;
  double q[kGroup];
  const std::uint64_t stop = (end + m - 1) / m;
  for (std::uint64_t k = begin / m; k < stop; k += kGroup) {
    const std::uint64_t last = std::min(stop, k + kGroup);
    quotients_into(q, fresh + k, old + k, last - k);
    multiply_runs(large, q, m, std::max(begin, k * m), std::min(end, last * m));
  }
}

// The distribute sweep of `clique` by the quotients of a separator that
// leads its table through `plan`, made on the fly, in blocks of whole
// inner runs of every fold whose run folds into one entry (as sweep_range
// asks): each block is multiplied, then folded by sweep_range while it is
// in the first-level cache.  Where a quotient covers a short run of m
// entries, a block's quotients are made into a buffer on the stack, which
// the multiply kernel reads for the block (its entries [a, b) fall on
// separator entries a / m + [0, (b - a) / m)); longer runs are multiplied
// here.  Each small entry receives its additions in index order, as in one
// sweep(), and totals are folded after, as sweep() does.
void sweep_by_quotients(Clique& clique, const IndexPlan& plan, const double* fresh,
                        const double* old, std::span<SweepFold> folds, Reduce how,
                        const Parallelism& parallelism) {
  constexpr std::uint64_t kBlock = 2048;
  constexpr std::uint64_t kShortRun = 16;
  double* large = clique.table->data();
  const std::uint64_t size = clique.table->size();
  const std::uint64_t m = size / plan.small_size();
  clear_folds(folds, how);
  const std::uint64_t run = folded_run(folds);
  const std::uint64_t unit = std::lcm(run, m);
  if (m >= 2 && m < kShortRun && unit <= kBlock) {
    double quotients[kBlock / 2];
    const SweepFactor by{&plan, quotients};
    const std::uint64_t block = kBlock / unit * unit;
    for (std::uint64_t a = 0; a < size; a += block) {
      const std::uint64_t b = std::min(size, a + block);
      quotients_into(quotients, fresh + a / m, old + a / m, b / m - a / m);
      sweep_range(large + a, false, std::span<const SweepFactor>(&by, 1), {}, 0, b - a, how);
      sweep_range(large, false, {}, folds, a, b, how);
    }
  } else {
    const std::uint64_t block = run >= kBlock ? run : kBlock / run * run;
    for (std::uint64_t a = 0; a < size; a += block) {
      const std::uint64_t b = std::min(size, a + block);
      multiply_by_quotients(large, fresh, old, m, a, b);
      sweep_range(large, false, {}, folds, a, b, how);
    }
  }
  for (const SweepFold& f : folds)
    if (f.plan->small_size() == 1) marginalize(*f.plan, large, f.data, how, parallelism);
}

}  // namespace

void distribute_sweep(JunctionTree& tree, Clique& clique, const IndexPlan& plan,
                      const double* factor, std::size_t first, std::size_t end, Reduce how,
                      const Parallelism& parallelism) {
  const SweepFactor by{&plan, factor};
  sweep(clique.table->data(), clique.table->size(), false, std::span<const SweepFactor>(&by, 1),
        distribute_folds(tree, clique, first, end), how, parallelism);
  copy_twins(tree, first, end);
}

namespace {

void receive_folds(JunctionTree& tree, std::size_t i, std::size_t first, std::size_t end,
                   Reduce how, const Parallelism& parallelism) {
  const JunctionTree::Message& link = tree.schedule[i];
  Separator& sep = *link.separator;
  Clique& clique = *link.outer;
  // The new values become the table's; the old ones are left in the scratch.
  sep.table->swap_data(sep.scratch);
  const double* fresh = sep.table->data();
  double* old = sep.scratch.data();
  const std::uint64_t n = sep.table->size();
  const std::uint64_t size = clique.table->size();
  if (clique.rebuild_pending) {
    // The collect's product of factors, then the quotients, entry by entry:
    // the bits of the table the collect would have written, multiplied.
    // Where the folds allow, the product is folded and deferred, not
    // written; the quotients, which the next collect overwrites unread,
    // go to the deferred product without a copy.
    clique.rebuild_pending = false;
    separator_quotients(fresh, old, n, parallelism);
    auto& factors = clique.sweep_factors;
    factors.push_back({link.outer_plan, old});
    if (sweep_folds_only(clique.table->data(), size, factors,
                         distribute_folds(tree, clique, first, end), how, parallelism))
      clique.table->defer_product(factors.data(), factors.size(), &sep.scratch);
    return;
  }
  const bool split = split_sweep_fits(size, parallelism);
  if (!split && size <= kSmallClique) {
    // A small clique: the quotients of the whole separator (no larger than
    // the clique) go to the stack, and one sweep multiplies and folds.
    double quotients[kSmallClique];
    quotients_into(quotients, fresh, old, n);
    const SweepFactor by{link.outer_plan, quotients};
    sweep(clique.table->data(), size, false, std::span<const SweepFactor>(&by, 1),
          distribute_folds(tree, clique, first, end), how, parallelism);
    return;
  }
  if (!split && separator_leads(*link.outer_plan)) {
    sweep_by_quotients(clique, *link.outer_plan, fresh, old,
                       distribute_folds(tree, clique, first, end), how, parallelism);
    return;
  }
  // A shared sweep, or a separator inside the clique's axes (another root):
  // the quotients go to the scratch first.
  separator_quotients(fresh, old, n, parallelism);
  const SweepFactor by{link.outer_plan, old};
  sweep(clique.table->data(), size, false, std::span<const SweepFactor>(&by, 1),
        distribute_folds(tree, clique, first, end), how, parallelism);
}

}  // namespace

void receive_sweep(JunctionTree& tree, std::size_t i, std::size_t first, std::size_t end,
                   Reduce how, const Parallelism& parallelism) {
  receive_folds(tree, i, first, end, how, parallelism);
  copy_twins(tree, first, end);
}

}  // namespace kelva
