// Distributions of sums of numeric discrete nodes: the joint of the nodes of
// a junction tree read from one clique, independent trees convolved.
#include "analysis/convolution.h"

#include <algorithm>
#include <map>

#include "compile/junction_forest.h"
#include "inference/compressed_ops.h"
#include "network/domain.h"
#include "network/error.h"
#include "network/node.h"
#include "table/index_plan.h"
#include "table/table.h"
#include "table/table_ops.h"

namespace kelva {

namespace {

// Sums with more distinct values than this are refused: the map of sums
// would outgrow any use of it.
constexpr std::size_t kMaxSums = std::size_t{1} << 20;

using Sums = std::map<double, double>;

double value_of(const Node& node, std::size_t state) {
  return node.subtype() == K_SUBTYPE_BOOLEAN ? static_cast<double>(state) : node.state_value(state);
}

NodeSlot& slot_in_equilibrium(Node& node) {
  Domain& d = node.domain();
  require(node.is_discrete() &&
          (node.subtype() == K_SUBTYPE_NUMBER || node.subtype() == K_SUBTYPE_BOOLEAN));
  require(d.is_compiled(), K_ERROR_NOT_COMPILED);
  NodeSlot* slot = d.forest()->slot(node);
  require(slot != nullptr && slot->tree != nullptr, K_ERROR_NOT_COMPILED);
  require(slot->tree->equilibrium != K_EQUILIBRIUM_NONE, K_ERROR_NO_EQUILIBRIUM);
  require(slot->tree->equilibrium == K_EQUILIBRIUM_SUM);
  return *slot;
}

Sums convolve(const Sums& a, const Sums& b) {
  Sums out;
  for (const auto& [x, p] : a)
    for (const auto& [y, q] : b) {
      out[x + y] += p * q;
      require(out.size() <= kMaxSums, K_ERROR_SIZE_TOO_LARGE);
    }
  return out;
}

// The distribution of the sum of `nodes`, all of `tree`, from the smallest
// clique holding them (the caller's convolution bounds its size).
Sums tree_sums(Domain& domain, JunctionTree& tree, const std::vector<Node*>& nodes) {
  Clique* best = nullptr;
  for (Clique* const* c = tree.cliques.data(); *c != nullptr; ++c) {
    const NodeList& members = (*c)->members;
    const bool holds = std::all_of(nodes.begin(), nodes.end(), [&](Node* n) {
      return std::find(members.begin(), members.end(), n) != members.end();
    });
    if (holds && (best == nullptr || (*c)->discrete_size < best->discrete_size)) best = *c;
  }
  require(best != nullptr);
  Table joint(domain, nodes, TableRole::free, nullptr);
  const IndexPlan plan = IndexPlan::between(*best->table, joint);
  if (domain.is_compressed())
    compressed::marginalize_clique(*best, plan, joint.data(), Reduce::sum);
  else marginalize(plan, best->table->data(), joint.data(), Reduce::sum, Parallelism::of(domain));
  // Configurations in order, the last node varying fastest.
  Sums sums;
  std::vector<std::size_t> state(nodes.size(), 0);
  double total = 0.0;
  for (std::size_t i = 0; i < joint.size(); ++i) {
    double sum = 0.0;
    for (std::size_t k = 0; k < nodes.size(); ++k) sum += value_of(*nodes[k], state[k]);
    sums[sum] += joint.data()[i];
    total += joint.data()[i];
    for (std::size_t k = nodes.size(); k-- > 0;) {
      if (++state[k] < nodes[k]->state_count()) break;
      state[k] = 0;
    }
  }
  for (auto& entry : sums) entry.second /= total;
  return sums;
}

SumDistribution to_distribution(const Sums& sums) {
  SumDistribution out;
  for (const auto& [value, p] : sums) {
    out.values.push_back(value);
    out.probabilities.push_back(p);
  }
  return out;
}

}  // namespace

SumDistribution domain_convolution(Domain& domain, const std::vector<Node*>& nodes) {
  require(!nodes.empty());
  std::map<JunctionTree*, std::vector<Node*>> by_tree;
  for (std::size_t i = 0; i < nodes.size(); ++i) {
    require(&nodes[i]->domain() == &domain &&
            std::find(nodes.begin(), nodes.begin() + static_cast<std::ptrdiff_t>(i), nodes[i]) ==
                nodes.begin() + static_cast<std::ptrdiff_t>(i));
    by_tree[slot_in_equilibrium(*nodes[i]).tree].push_back(nodes[i]);
  }
  Sums sums{{0.0, 1.0}};
  for (auto& [tree, members] : by_tree) sums = convolve(sums, tree_sums(domain, *tree, members));
  return to_distribution(sums);
}

SumDistribution node_convolution(Node& node, std::size_t copies) {
  require(copies >= 1);
  const NodeSlot& slot = slot_in_equilibrium(node);
  const std::int64_t code = node.evidence.propagated_code;
  Sums one;
  for (std::size_t s = 0; s < node.state_count(); ++s) {
    const double p = slot.tree->mode == K_MODE_NORMAL && code >= 0
                         ? (static_cast<std::size_t>(code) == s ? 1.0 : 0.0)
                         : slot.marginal[s];
    one[value_of(node, s)] += p;
  }
  // Powers by squaring: log2(copies) convolutions of the growing sums.
  Sums result{{0.0, 1.0}}, power = one;
  for (std::size_t n = copies; n > 0; n >>= 1) {
    if (n & 1) result = convolve(result, power);
    if (n > 1) power = convolve(power, power);
  }
  return to_distribution(result);
}

}  // namespace kelva
