#include "table/index_plan.h"

#include "network/error.h"
#include "network/node.h"
#include "table/size.h"
#include "table/table.h"

namespace kelva {

IndexPlan::IndexPlan() : axes_{PlanAxis{1, 1, 0, 0, 0}} {}

IndexPlan::IndexPlan(std::span<const std::size_t> large_counts,
                     std::span<const std::size_t> small_axes) {
  const std::size_t n = large_counts.size();
  for (std::size_t c : large_counts) large_size_ = sat_mul(large_size_, c);
  require(large_size_ != kSizeTooLarge, K_ERROR_NO_MEMORY);

  // Stride of each large node in the small table (0 when absent).
  std::vector<std::uint64_t> small_stride(n, 0);
  for (std::size_t j = small_axes.size(); j-- > 0;) {
    const std::size_t pos = small_axes[j];
    require(pos < n && small_stride[pos] == 0);
    small_stride[pos] = small_size_;
    small_size_ *= large_counts[pos];
  }

  // From the innermost node outwards: drop single-valued nodes and merge a
  // node into the axis inside it when it steps the small table by exactly one
  // turn of that axis (both absent, or adjacent and in the same order there).
  std::vector<PlanAxis> inner_first;
  std::uint64_t large_stride = 1;
  for (std::size_t i = n; i-- > 0;) {
    const std::uint64_t count = large_counts[i];
    if (count == 1) continue;
    if (!inner_first.empty()) {
      PlanAxis& a = inner_first.back();
      if (small_stride[i] == a.small_stride * a.count) {
        a.count *= count;
        large_stride *= count;
        continue;
      }
    }
    inner_first.push_back(PlanAxis{count, large_stride, small_stride[i], 0, 0});
    large_stride *= count;
  }
  if (inner_first.empty()) inner_first.push_back(PlanAxis{1, 1, 0, 0, 0});
  axes_.assign(inner_first.rbegin(), inner_first.rend());
  for (PlanAxis& a : axes_) {
    a.large_back = a.large_stride * (a.count - 1);
    a.small_back = a.small_stride * (a.count - 1);
  }
  build_map();
}

void IndexPlan::build_map() {
  const std::size_t k = axes_.size();
  // Tables this small keep a map whatever their turns: starting a row walk
  // costs more than reading the index of each of their entries.
  constexpr std::uint64_t kMapAlwaysLarge = 128;
  if (large_size_ > kMapMaxLarge || k < 2 ||
      (axes_[k - 1].count * axes_[k - 2].count >= kMapMaxTile && large_size_ > kMapAlwaysLarge))
    return;
  map_.resize(large_size_);
  const std::uint64_t ss = inner_small_stride();
  walk(0, large_size_, [&](std::uint64_t l, std::uint64_t s, std::uint64_t n) {
    for (std::uint64_t k = 0; k < n; ++k) map_[l + k] = static_cast<std::uint16_t>(s + k * ss);
  });
}

IndexPlan IndexPlan::between(const Table& large, const Table& small) {
  const std::vector<std::size_t>& counts = large.state_counts();
  std::vector<std::size_t> positions;
  positions.reserve(small.discrete_count());
  for (std::size_t j = 0; j < small.discrete_count(); ++j) {
    const std::size_t pos = large.nodes().index_of(small.nodes()[j]);
    require(pos < large.discrete_count() && counts[pos] == small.state_counts()[j]);
    positions.push_back(pos);
  }
  return IndexPlan(counts, positions);
}

}  // namespace kelva
