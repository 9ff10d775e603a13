#include "inference/clique_sweeps.h"

#include <algorithm>
#include <cmath>
#include <span>

#include "inference/clique_ops.h"
#include "inference/evidence.h"
#include "network/domain.h"
#include "network/node.h"
#include "table/sweep.h"

namespace kelva {

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
    for (Node* const* m = clique.members.data(); *m != nullptr; ++m) ++members;
    const std::size_t factors =
        members + forest.components.size() + clique.homed.size() + clique.links.size() + 1;
    clique.sweep_factors.reserve(factors);
    clique.sweep_folds.reserve(clique.links.size() + clique.homed.size());
  }
}

void stage_sweeps(JunctionTree& tree, bool rebuild, Waiting evidence) {
  tree.sweep_rebuild = rebuild;
  for (Clique* const* c = tree.cliques.data(); *c != nullptr; ++c) {
    for (NodeSlot* slot : (*c)->homed) {
      const Evidence& ev = slot->node->evidence;
      double* f = slot->evidence_factor.data();
      const std::size_t n = slot->evidence_factor.size();
      if (evidence != Waiting::change) {
        slot->factor_waiting = evidence == Waiting::entered && ev.entered_code != Evidence::kNone;
        if (slot->factor_waiting) evidence_vector(ev.entered_code, ev.entered_vector, n, f);
      } else {
        slot->factor_waiting = evidence_to_propagate(*slot->node);
        for (std::size_t i = 0; slot->factor_waiting && i < n; ++i) {
          const double o = evidence_entry(ev.propagated_code, ev.propagated_vector, i);
          f[i] = o != 0.0 ? evidence_entry(ev.entered_code, ev.entered_vector, i) / o : 0.0;
        }
      }
    }
  }
}

void first_message(double* fresh, double* quotient, std::uint64_t n, double* scale) noexcept {
  if (scale == nullptr) return;
  double largest = 0.0;
  for (std::uint64_t i = 0; i < n; ++i) largest = std::fmax(largest, fresh[i]);
  *scale = largest > 0.0 ? largest : 1.0;
  const double inverse = 1.0 / *scale;
  for (std::uint64_t i = 0; i < n; ++i) quotient[i] = fresh[i] * inverse;
}

void collect_sweep(JunctionTree& tree, Clique& clique, std::size_t first, std::size_t end,
                   const IndexPlan* out_plan, double* out, Reduce how,
                   const Parallelism& parallelism) {
  auto& factors = clique.sweep_factors;
  factors.clear();
  if (tree.sweep_rebuild) {
    // A node's table is assigned to a clique that holds the node, so the
    // members' records name every table assigned here.
    Forest& forest = *tree.domain->forest();
    for (Node* const* m = clique.members.data(); *m != nullptr; ++m) {
      const NodeSlot* slot = forest.slot(**m);
      if (slot == nullptr || slot->assigned != &clique || !is_node_factor(**m)) continue;
      if (const Table* own = (*m)->table()) factors.push_back({&slot->assigned_plan, own->data()});
    }
    for (const ComponentSlot& slot : forest.components)
      if (slot.assigned == &clique)
        factors.push_back({&slot.assigned_plan, slot.component->table->data()});
  }
  for (NodeSlot* slot : clique.homed) {
    if (!slot->factor_waiting) continue;
    factors.push_back({&slot->home_plan, slot->evidence_factor.data()});
    slot->factor_waiting = false;
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
  sweep(clique.table->data(), clique.table->size(), tree.sweep_rebuild, factors,
        std::span<SweepFold>(&fold, out != nullptr ? 1 : 0), how, parallelism);
}

void distribute_sweep(JunctionTree& tree, Clique& clique, const IndexPlan& plan,
                      const double* factor, std::size_t first, std::size_t end, Reduce how,
                      const Parallelism& parallelism) {
  auto& folds = clique.sweep_folds;
  folds.clear();
  for (std::size_t j = first; j < end; ++j) {
    const JunctionTree::Message& link = tree.schedule[j];
    folds.push_back({link.inner_plan, link.separator->scratch.data()});
  }
  for (NodeSlot* slot : clique.homed) folds.push_back({&slot->home_plan, slot->marginal.data()});
  const SweepFactor by{&plan, factor};
  sweep(clique.table->data(), clique.table->size(), false, std::span<const SweepFactor>(&by, 1),
        folds, how, parallelism);
}

}  // namespace kelva
