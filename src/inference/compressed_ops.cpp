#include "inference/compressed_ops.h"

#include <algorithm>
#include <cmath>

#include "inference/clique_ops.h"
#include "network/domain.h"
#include "network/node.h"
#include "table/table.h"

namespace kelva::compressed {

namespace {

CompressedForest& tables_of(const JunctionTree& tree) noexcept {
  return *tree.domain->forest()->compressed;
}

const Forest& forest_of(const JunctionTree& tree) noexcept { return *tree.domain->forest(); }

// Whether a node's table is a factor of the joint distribution (as in the
// full-table initialisation).
bool is_factor(const Node& node) noexcept {
  if (!node.is_discrete()) return false;
  const k_category_t c = node.category();
  // A decision taken by hand is an intervention: its policy plays no part
  // (the entered choice alone, multiplied in as evidence, does).
  if (c == K_CATEGORY_DECISION) return node.evidence.entered_code < 0;
  return c == K_CATEGORY_CHANCE || c == K_CATEGORY_FUNCTION;
}

/// Folds `values` into `out` (of `count` entries) through `map`; groups
/// that no value reaches are 0, as their dropped entries were.
template <class Index>
void fold(const std::vector<double>& values, const std::vector<Index>& map, double* out,
          std::size_t count, Reduce how) {
  if (how == Reduce::sum) {
    std::fill(out, out + count, 0.0);
    for (std::size_t e = 0; e < values.size(); ++e) out[map[e]] += values[e];
    return;
  }
  std::fill(out, out + count, -HUGE_VAL);
  for (std::size_t e = 0; e < values.size(); ++e) {
    double& o = out[map[e]];
    if (values[e] > o) o = values[e];
  }
  for (std::size_t i = 0; i < count; ++i)
    if (out[i] == -HUGE_VAL) out[i] = 0.0;
}

}  // namespace

void initialise_cliques(JunctionTree& tree) {
  CompressedForest& z = tables_of(tree);
  const Forest& forest = forest_of(tree);
  for (Clique* const* c = tree.cliques.data(); *c != nullptr; ++c) {
    std::vector<double>& values = z.clique(**c).values;
    std::fill(values.begin(), values.end(), 1.0);
    for (const Clique::Link& link : (*c)->links) {
      if (link.separator->child != *c) continue;
      std::vector<double>& sep = z.separator(*link.separator).values;
      std::fill(sep.begin(), sep.end(), 1.0);
    }
  }
  for (const NodeSlot& slot : forest.nodes) {
    if (slot.tree != &tree || slot.assigned == nullptr || slot.node == nullptr) continue;
    if (!is_factor(*slot.node) || slot.node->table() == nullptr) continue;
    const double* own = slot.node->table()->data();
    const std::vector<std::uint32_t>& map = z.assigned_map(forest, slot);
    std::vector<double>& values = z.clique(*slot.assigned).values;
    for (std::size_t e = 0; e < values.size(); ++e) values[e] *= own[map[e]];
  }
}

void multiply_into_home(const NodeSlot& slot, const double* vector) {
  CompressedForest& z = tables_of(*slot.tree);
  const std::vector<std::uint32_t>& map = z.home_map(forest_of(*slot.tree), slot);
  std::vector<double>& values = z.clique(*slot.home).values;
  for (std::size_t e = 0; e < values.size(); ++e) values[e] *= vector[map[e]];
}

void send_message(const JunctionTree::Message& link, bool outward, Reduce how, double* scale) {
  CompressedForest& z = tables_of(*link.inner->tree);
  const Separator& sep = *link.separator;
  CompressedSeparator& zs = z.separator(sep);
  const Clique& from = outward ? *link.inner : *link.outer;
  const Clique& to = outward ? *link.outer : *link.inner;
  const auto& from_map = &from == sep.parent ? zs.parent_map : zs.child_map;
  const auto& to_map = &to == sep.parent ? zs.parent_map : zs.child_map;

  double* fresh = zs.scratch.data();
  const std::size_t n = zs.values.size();
  fold(z.clique(from).values, from_map, fresh, n, how);
  // Keep the new values; leave the quotient new / old in the scratch.
  exchange_separator(zs.values.data(), fresh, n, scale);
  std::vector<double>& values = z.clique(to).values;
  for (std::size_t e = 0; e < values.size(); ++e) values[e] *= fresh[to_map[e]];
}

double clique_total(const Clique& clique, Reduce how) {
  const std::vector<double>& values = tables_of(*clique.tree).clique(clique).values;
  if (how == Reduce::sum) {
    double total = 0.0;
    for (double v : values) total += v;
    return total;
  }
  // The dropped entries count as the zeros they were.
  double best = values.size() < clique.table->size() ? 0.0 : -HUGE_VAL;
  for (double v : values)
    if (v > best) best = v;
  return best;
}

void scale_clique(Clique& clique, double factor) {
  for (double& v : tables_of(*clique.tree).clique(clique).values) v *= factor;
}

void node_marginal(NodeSlot& slot, Reduce how) {
  CompressedForest& z = tables_of(*slot.tree);
  fold(z.clique(*slot.home).values, z.home_map(forest_of(*slot.tree), slot), slot.marginal.data(),
       slot.marginal.size(), how);
}

double expected_utility(const NodeSlot& slot) {
  CompressedForest& z = tables_of(*slot.tree);
  const std::vector<std::uint32_t>& map = z.assigned_map(forest_of(*slot.tree), slot);
  const std::vector<double>& p = z.clique(*slot.assigned).values;
  const double* u = slot.node->table()->data();
  double total = 0.0;
  for (std::size_t e = 0; e < p.size(); ++e) total += p[e] * u[map[e]];
  return total;
}

void marginalize_clique(const Clique& clique, const IndexPlan& plan, double* out, Reduce how) {
  const CompressedClique& c = tables_of(*clique.tree).clique(clique);
  const std::uint64_t stride = plan.inner_small_stride();
  std::vector<std::uint64_t> map;
  map.reserve(c.index.size());
  std::size_t k = 0;
  plan.walk(0, plan.large_size(), [&](std::uint64_t l, std::uint64_t s, std::uint64_t n) {
    for (; k < c.index.size() && c.index[k] < l + n; ++k)
      map.push_back(s + (c.index[k] - l) * stride);
  });
  fold(c.values, map, out, plan.small_size(), how);
}

}  // namespace kelva::compressed
