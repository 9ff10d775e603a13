#include "compile/compress.h"

#include <algorithm>
#include <limits>
#include <memory>

#include "compile/junction_forest.h"
#include "network/domain.h"
#include "network/error.h"
#include "table/size.h"
#include "table/table.h"

namespace kelva {

namespace {

constexpr std::uint64_t kMaxMapped = std::numeric_limits<std::uint32_t>::max();

/// The small-table index, through `plan`, of each large-table index in
/// `kept` (sorted).
std::vector<std::uint64_t> small_indices(const IndexPlan& plan,
                                         const std::vector<std::uint64_t>& kept) {
  std::vector<std::uint64_t> out;
  out.reserve(kept.size());
  const std::uint64_t stride = plan.inner_small_stride();
  std::size_t k = 0;
  plan.walk(0, plan.large_size(), [&](std::uint64_t l, std::uint64_t s, std::uint64_t n) {
    for (; k < kept.size() && kept[k] < l + n; ++k) out.push_back(s + (kept[k] - l) * stride);
  });
  return out;
}

/// `indices` as 32-bit map entries; Error(table_too_large) when the table
/// they index is too large for them.
std::vector<std::uint32_t> narrow(const std::vector<std::uint64_t>& indices,
                                  std::uint64_t table_size) {
  require(table_size <= kMaxMapped + 1, K_ERROR_TABLE_TOO_LARGE);
  return {indices.begin(), indices.end()};
}

/// The kept entries of a clique table.
CompressedClique kept_entries(const Table& table) {
  const double* data = table.data();
  std::uint64_t count = 0;
  for (std::uint64_t i = 0; i < table.size(); ++i) count += data[i] != 0.0;
  CompressedClique kept;
  kept.index.reserve(count);
  kept.values.reserve(count);
  for (std::uint64_t i = 0; i < table.size(); ++i)
    if (data[i] != 0.0) {
      kept.index.push_back(i);
      kept.values.push_back(data[i]);
    }
  return kept;
}

/// The compressed form of `sep`, given the separator index of each kept
/// entry of its parent and of its child clique: it keeps the entries these
/// reach and every other non-zero entry.
CompressedSeparator compress_separator(const Separator& sep,
                                       const std::vector<std::uint64_t>& parent_small,
                                       const std::vector<std::uint64_t>& child_small) {
  const double* data = sep.table->data();
  const std::uint64_t size = sep.table->size();
  constexpr std::uint64_t kUnused = std::numeric_limits<std::uint64_t>::max();
  std::vector<std::uint64_t> position(size, kUnused);
  for (std::uint64_t i : parent_small) position[i] = 0;
  for (std::uint64_t i : child_small) position[i] = 0;
  CompressedSeparator out;
  out.separator = &sep;
  for (std::uint64_t i = 0; i < size; ++i) {
    if (position[i] == kUnused && data[i] == 0.0) continue;
    require(out.values.size() < kMaxMapped, K_ERROR_TABLE_TOO_LARGE);
    position[i] = out.values.size();
    out.values.push_back(data[i]);
  }
  out.scratch.assign(out.values.size(), 0.0);
  out.parent_map.reserve(parent_small.size());
  for (std::uint64_t i : parent_small)
    out.parent_map.push_back(static_cast<std::uint32_t>(position[i]));
  out.child_map.reserve(child_small.size());
  for (std::uint64_t i : child_small)
    out.child_map.push_back(static_cast<std::uint32_t>(position[i]));
  return out;
}

/// Checks the domain may be compressed (see compress_domain).
void verify_compressible(const Domain& domain) {
  require(domain.chain_components.empty());
  // Expected utilities per state are computed over full clique tables.
  require(domain.count(K_CATEGORY_UTILITY) == 0);
  if (const Forest* forest = domain.forest())
    for (const auto& clique : forest->cliques) require(clique->continuous_members == 0);
  require(domain.is_compiled(), K_ERROR_NOT_COMPILED);
  for (const auto& tree : domain.forest()->trees)
    require(tree->equilibrium != K_EQUILIBRIUM_NONE, K_ERROR_NO_EQUILIBRIUM);
}

/// A table over the nodes of `table` whose data are not allocated: swapped
/// with a full table, it takes the full table's data away.
std::unique_ptr<Table> empty_like(Domain& domain, const Table& table) {
  const NodeList& nodes = table.nodes();
  return std::make_unique<Table>(domain, std::vector<Node*>(nodes.begin(), nodes.end()),
                                 TableRole::free, nullptr);
}

}  // namespace

CompressedClique& CompressedForest::clique(const Clique& c) noexcept { return cliques[c.number]; }

CompressedSeparator& CompressedForest::separator(const Separator& s) noexcept {
  auto it = std::lower_bound(
      separators.begin(), separators.end(), &s,
      [](const CompressedSeparator& a, const Separator* b) { return a.separator < b; });
  return *it;
}

const std::vector<std::uint32_t>& CompressedForest::assigned_map(
    const Forest& forest, const NodeSlot& slot) const noexcept {
  return assigned_maps[static_cast<std::size_t>(&slot - forest.nodes.data())];
}

const std::vector<std::uint32_t>& CompressedForest::home_map(const Forest& forest,
                                                             const NodeSlot& slot) const noexcept {
  return home_maps[static_cast<std::size_t>(&slot - forest.nodes.data())];
}

double compress_domain(Domain& domain) {
  verify_compressible(domain);
  Forest& forest = *domain.forest();
  if (forest.compressed) return 1.0;

  auto next = std::make_unique<CompressedForest>();
  std::uint64_t before = 0;
  next->cliques.reserve(forest.cliques.size());
  for (std::size_t i = 0; i < forest.cliques.size(); ++i) {
    require(forest.cliques[i]->number == i, K_ERROR_ERROR);
    next->cliques.push_back(kept_entries(*forest.cliques[i]->table));
    before = sat_add(before, forest.cliques[i]->table->size());
  }
  next->separators.reserve(forest.separators.size());
  for (const auto& s : forest.separators) {
    const Separator& sep = *s;
    next->separators.push_back(
        compress_separator(sep, small_indices(sep.parent_plan, next->clique(*sep.parent).index),
                           small_indices(sep.child_plan, next->clique(*sep.child).index)));
    before = sat_add(before, sep.table->size());
  }
  std::sort(next->separators.begin(), next->separators.end(),
            [](const CompressedSeparator& a, const CompressedSeparator& b) {
              return a.separator < b.separator;
            });

  next->assigned_maps.resize(forest.nodes.size());
  next->home_maps.resize(forest.nodes.size());
  for (std::size_t i = 0; i < forest.nodes.size(); ++i) {
    const NodeSlot& slot = forest.nodes[i];
    if (slot.node == nullptr) continue;
    if (slot.assigned != nullptr && slot.node->table() != nullptr)
      next->assigned_maps[i] =
          narrow(small_indices(slot.assigned_plan, next->clique(*slot.assigned).index),
                 slot.node->table()->size());
    if (slot.home != nullptr)
      next->home_maps[i] = narrow(small_indices(slot.home_plan, next->clique(*slot.home).index),
                                  slot.node->state_count());
  }

  std::uint64_t after = 0;
  for (const CompressedClique& c : next->cliques) after = sat_add(after, c.values.size());
  for (const CompressedSeparator& s : next->separators) after = sat_add(after, s.values.size());

  // Take the full data out of the clique and separator tables; the empty
  // tables are made before anything changes.
  std::vector<std::unique_ptr<Table>> emptied;
  emptied.reserve(forest.cliques.size() + forest.separators.size());
  for (const auto& c : forest.cliques) emptied.push_back(empty_like(domain, *c->table));
  for (const auto& s : forest.separators) emptied.push_back(empty_like(domain, *s->table));
  std::size_t k = 0;
  for (const auto& c : forest.cliques) c->table->swap_contents(*emptied[k++]);
  for (const auto& s : forest.separators) {
    s->table->swap_contents(*emptied[k++]);
    s->scratch = DoubleBuffer();
  }
  forest.compressed = std::move(next);
  domain.set_compressed(true);
  return before == 0 ? 1.0 : static_cast<double>(after) / static_cast<double>(before);
}

}  // namespace kelva
