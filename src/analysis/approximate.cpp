#include "analysis/approximate.h"

#include <algorithm>
#include <numeric>
#include <vector>

#include "compile/compress.h"
#include "compile/junction_forest.h"
#include "inference/propagate.h"
#include "network/domain.h"
#include "network/error.h"
#include "network/node.h"

namespace kelva {

namespace {

void verify_approximable(const Domain& domain, double epsilon) {
  if (!(epsilon >= 0.0 && epsilon < 1.0))
    throw Error(K_ERROR_USAGE, "epsilon must be at least 0 and below 1");
  require(domain.is_compiled(), K_ERROR_NOT_COMPILED);
  if (domain.is_compressed()) throw Error(K_ERROR_COMPRESSED, "the domain is compressed already");
  if (!domain.chain_components.empty() || domain.count(K_CATEGORY_UTILITY) != 0)
    throw Error(K_ERROR_USAGE,
                "a domain with chain-graph components or utility nodes is not approximated");
  const Forest& forest = *domain.forest();
  for (const auto& clique : forest.cliques)
    if (clique->continuous_members != 0)
      throw Error(K_ERROR_USAGE, "a domain with continuous nodes is not approximated");
  for (const auto& tree : forest.trees) {
    if (tree->equilibrium == K_EQUILIBRIUM_NONE)
      throw Error(K_ERROR_NO_EQUILIBRIUM, "the domain is not propagated");
    if (tree->equilibrium != K_EQUILIBRIUM_SUM)
      throw Error(K_ERROR_USAGE, "approximation needs sum equilibrium");
    if (tree->tables_changed || tree->table_changes_seen != domain.table_changes())
      throw Error(K_ERROR_USAGE, "the domain has tables still to propagate");
  }
  for (const NodeSlot& slot : forest.nodes) {
    if (slot.node == nullptr) continue;
    const Evidence& e = slot.node->evidence;
    if (e.entered_code != Evidence::kNone || e.propagated_code != Evidence::kNone || e.entered ||
        e.propagated)
      throw Error(K_ERROR_USAGE, "approximation needs a domain without evidence");
  }
}

/// Zeroes the smallest entries of `data` while their total stays at most
/// epsilon times the table's total.
void zero_smallest(double* data, std::uint64_t size, double epsilon) {
  std::vector<std::uint64_t> order(size);
  std::iota(order.begin(), order.end(), std::uint64_t{0});
  std::stable_sort(order.begin(), order.end(),
                   [data](std::uint64_t a, std::uint64_t b) { return data[a] < data[b]; });
  double total = 0.0;
  for (std::uint64_t i = 0; i < size; ++i) total += data[i];
  const double budget = epsilon * total;
  double removed = 0.0;
  for (std::uint64_t i : order) {
    if (removed + data[i] > budget) break;
    removed += data[i];
    data[i] = 0.0;
  }
}

double forest_constant(const Domain& domain) {
  double c = 1.0;
  for (const auto& tree : domain.forest()->trees) c *= tree->normalization_constant;
  return c;
}

}  // namespace

double approximate_domain(Domain& domain, double epsilon) {
  verify_approximable(domain, epsilon);
  Forest& forest = *domain.forest();
  const double before = forest_constant(domain);
  std::vector<std::vector<double>> kept;
  kept.reserve(forest.cliques.size());
  for (const auto& clique : forest.cliques) {
    const double* data = clique->table->data();
    kept.emplace_back(data, data + clique->table->size());
  }
  try {
    for (const auto& clique : forest.cliques)
      zero_smallest(clique->table->data(), clique->table->size(), epsilon);
    ++domain.analysis.calibrations;
    compress_domain(domain);
  } catch (...) {
    for (std::size_t i = 0; i < forest.cliques.size(); ++i)
      std::copy(kept[i].begin(), kept[i].end(), forest.cliques[i]->table->data());
    throw;
  }
  // The compressed tables are filled from the node tables again: only the
  // entries kept are, so the distribution is the approximation.
  reset_inference_engine(domain);
  propagate_domain(domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL);
  const double constant = forest_constant(domain) / before;
  domain.analysis.approximation_constant = constant;
  domain.analysis.approximation_forest = domain.forest_serial();
  return constant;
}

double approximation_constant(const Domain& domain) {
  require(domain.is_compiled(), K_ERROR_NOT_COMPILED);
  if (domain.analysis.approximation_forest != domain.forest_serial()) return 1.0;
  return domain.analysis.approximation_constant;
}

}  // namespace kelva
