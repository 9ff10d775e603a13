#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>
#include <vector>

namespace kelva {

class Table;

/// One dimension of an index plan: one large-table node, or a run of
/// adjacent ones merged because they step the small table uniformly.
struct PlanAxis {
  std::uint64_t count;         ///< values along the axis (at least 1)
  std::uint64_t large_stride;  ///< step of the large table's index per value
  std::uint64_t small_stride;  ///< step in the small table (0: absent there)
  std::uint64_t large_back;    ///< large_stride * (count - 1): undoes a full turn
  std::uint64_t small_back;    ///< small_stride * (count - 1)

  bool operator==(const PlanAxis&) const noexcept = default;
};

/// Most axes a plan can have.  Merged axes have at least 2 values each, and
/// the large size is below 2^64, so 63 suffice.
inline constexpr std::size_t kMaxPlanAxes = 64;

/// How the entries of a large table meet those of a small table whose
/// discrete nodes are a subset of the large one's (in any order): the large
/// table's axes, outermost first, each with its stride in the small table.
/// Walking a plan visits the large table in index order, tracking the
/// matching small index with an odometer over the outer axes; the innermost
/// axis is a run that is contiguous in the large table and either constant
/// (stride 0), contiguous (stride 1) or evenly strided in the small one.
/// A plan is plain data: walking it divides nothing per entry and allocates
/// nothing.
class IndexPlan {
 public:
  /// The plan between two tables without discrete nodes (one entry each).
  IndexPlan();
  /// The plan for a large table with discrete state counts `large_counts`
  /// (first node slowest) and a small table whose j-th discrete node is the
  /// large table's node number `small_axes[j]`.  Error(usage) for a repeated
  /// or out-of-range position; Error(no_memory) when the large size does not
  /// fit in 64 bits (such a table cannot hold data).
  IndexPlan(std::span<const std::size_t> large_counts, std::span<const std::size_t> small_axes);
  /// The plan between two tables: every discrete node of `small` must be a
  /// discrete node of `large` with the same state count (Error(usage)).
  static IndexPlan between(const Table& large, const Table& small);

  /// Whether both plans take every large entry to the same small entry,
  /// so that a walk of either visits the same entries in the same order.
  bool same_walk(const IndexPlan& other) const noexcept {
    return large_size_ == other.large_size_ && small_size_ == other.small_size_ &&
           axes_ == other.axes_;
  }

  /// Entries of the large table.
  std::uint64_t large_size() const noexcept { return large_size_; }
  /// Entries of the small table.
  std::uint64_t small_size() const noexcept { return small_size_; }
  /// The merged axes, outermost first; never empty.  The last one is the
  /// inner run, whose large stride is 1.
  std::span<const PlanAxis> axes() const noexcept { return axes_; }
  /// The small-table stride of the inner run (constant over the walk).
  std::uint64_t inner_small_stride() const noexcept { return axes_.back().small_stride; }

  /// Plans this small whose two innermost axes turn in fewer entries than
  /// kMapMaxTile keep the small index of every large entry: the row walk
  /// then moves the odometer once per few entries, which costs more than the
  /// entries, and a table of indexes is read at the cost of a quarter of an
  /// entry.  Larger turns are cheaper by rows, except in tables of at most
  /// 128 entries, which always keep a map (build_map).  Each pass reads
  /// the maps of a clique's factors and folds afresh; past 64 KiB (2^15
  /// entries) they took longer than the row walk's turns (munin2 and
  /// munin3 were 3 to 7% slower with maps up to 2^16 entries).
  static constexpr std::uint64_t kMapMaxLarge = std::uint64_t{1} << 15;
  static constexpr std::uint64_t kMapMaxTile = 32;
  /// The small index of each large entry, or null when the plan keeps none.
  const std::uint16_t* map() const noexcept { return map_.empty() ? nullptr : map_.data(); }

  /// Calls run(large_index, small_index, length) for each stretch of the
  /// inner run within large entries [begin, end), in index order.  The
  /// stretch covers large entries large_index .. large_index+length-1, and
  /// small entries small_index + k * inner_small_stride().
  template <class Run>
  void walk(std::uint64_t begin, std::uint64_t end, Run&& run) const {
    visit_axes(axes_.data(), axes_.size(), 0, 0, begin, end, run);
  }

  /// As walk(), but whole inner runs that follow each other along the
  /// second innermost axis come in one call: rows(large_index, small_index,
  /// count) stands for `count` runs of inner_count() entries, the r-th at
  /// large index large_index + r * inner_count() and small index
  /// small_index + r * row_small_stride().  Stretches that are not whole
  /// runs (at the ends of the range) come through row(), as in walk().  The
  /// odometer then moves once per turn of the two innermost axes instead of
  /// once per run, which matters when runs are a few entries long.
  template <class Row, class Rows>
  void walk_rows(std::uint64_t begin, std::uint64_t end, Row&& row, Rows&& rows) const {
    const std::size_t n = axes_.size();
    if (n < 2) return walk(begin, end, row);
    const std::uint64_t c = axes_[n - 1].count;
    const std::uint64_t ss = axes_[n - 1].small_stride;
    const std::uint64_t row_ss = axes_[n - 2].small_stride;
    const std::uint64_t tile = c * axes_[n - 2].count;
    // The outer axes with one inner axis over both innermost ones: each of
    // its stretches lies in one turn of them, whose first small index it
    // gives (the merged axis steps the small table by 0).
    std::array<PlanAxis, kMaxPlanAxes> outer;
    std::copy(axes_.begin(), axes_.end() - 1, outer.begin());
    outer[n - 2] = PlanAxis{tile, 1, 0, tile - 1, 0};
    auto stretch = [&](std::uint64_t l, std::uint64_t s, std::uint64_t len) {
      // Only the first stretch can start inside a turn; later ones start
      // at its beginning, so no division is made for them.
      std::uint64_t r = 0, k = 0;
      if (l == begin && l % tile != 0) {
        const std::uint64_t off = l % tile;
        r = off / c;
        k = off - r * c;
      }
      std::uint64_t small = s + r * row_ss;
      if (k != 0) {
        const std::uint64_t m = std::min(c - k, len);
        row(l, small + k * ss, m);
        l += m;
        len -= m;
        small += row_ss;
      }
      const std::uint64_t whole = len == tile ? axes_[n - 2].count : len / c;
      if (whole > 0) rows(l, small, whole);
      l += whole * c;
      len -= whole * c;
      if (len > 0) row(l, small + whole * row_ss, len);
    };
    visit_axes(outer.data(), n - 1, 0, 0, begin, end, stretch);
  }

  /// As walk_rows(), three levels at a time: tiles(large_index, small_index,
  /// count, rows, length, whole) stands for `count` tiles of `rows` runs of
  /// `length` entries, run r of tile t at large index large_index + (t *
  /// rows + r) * length and small index small_index + t * (the third
  /// innermost axis's small stride) + r * row_small_stride().  `whole` is
  /// std::true_type for whole inner runs, std::false_type for a piece of
  /// one at either end of the range.  Only the start of the range is decoded
  /// by division; the odometer turns the axes outside the three once per
  /// turn of them, so each call covers many short runs.
  template <class Tiles>
  void walk_tiles(std::uint64_t begin, std::uint64_t end, Tiles&& tiles) const {
    if (begin >= end) return;
    const std::size_t a = axes_.size();
    const std::uint64_t c = axes_[a - 1].count, ss = axes_[a - 1].small_stride;
    const std::uint64_t rows = a >= 2 ? axes_[a - 2].count : 1;
    const std::uint64_t row_ss = a >= 2 ? axes_[a - 2].small_stride : 0;
    const std::uint64_t count = a >= 3 ? axes_[a - 3].count : 1;
    const std::uint64_t tile_ss = a >= 3 ? axes_[a - 3].small_stride : 0;
    const std::uint64_t tile = c * rows, span = tile * count;
    const std::size_t outer = a >= 3 ? a - 3 : 0;
    std::uint64_t counter[kMaxPlanAxes];
    std::uint64_t base = 0;
    std::uint64_t rest = begin / span;
    std::uint64_t off = begin - rest * span;
    for (std::size_t i = outer; i-- > 0;) {
      counter[i] = rest % axes_[i].count;
      rest /= axes_[i].count;
      base += counter[i] * axes_[i].small_stride;
    }
    std::uint64_t l = begin, remaining = end - begin;
    for (;;) {
      std::uint64_t len = std::min(span - off, remaining);
      remaining -= len;
      if (len == span) {
        // A whole span, the common case: placed without divisions.
        tiles(l, base, count, rows, c, std::true_type{});
        l += span;
      } else {
        std::uint64_t t = 0, r = 0, e = 0;
        if (off != 0) {
          t = off / tile;
          r = (off - t * tile) / c;
          e = off - t * tile - r * c;
        }
        auto go = [&](std::uint64_t n, std::uint64_t m, std::uint64_t entries, auto whole) {
          tiles(l, base + t * tile_ss + r * row_ss + e * ss, n, m, entries, whole);
          l += n * m * entries;
          len -= n * m * entries;
        };
        if (e != 0) {
          // The end of a run.
          go(1, 1, std::min(c - e, len), std::false_type{});
          e = 0;
          if (++r == rows) r = 0, ++t;
        }
        if (r != 0 && len >= c) {
          // The last runs of a tile.
          const std::uint64_t m = std::min(rows - r, len / c);
          go(1, m, c, std::true_type{});
          if ((r += m) == rows) r = 0, ++t;
        }
        if (const std::uint64_t n = len / tile; n > 0) {
          go(n, rows, c, std::true_type{});
          t += n;
        }
        if (const std::uint64_t m = len / c; m > 0) {
          go(1, m, c, std::true_type{});
          r += m;
        }
        if (len > 0) go(1, 1, len, std::false_type{});
      }
      if (remaining == 0) return;
      off = 0;
      for (std::size_t i = outer; i-- > 0;) {
        if (++counter[i] < axes_[i].count) {
          base += axes_[i].small_stride;
          break;
        }
        counter[i] = 0;
        base -= axes_[i].small_back;
      }
    }
  }

  /// Entries of the inner run.
  std::uint64_t inner_count() const noexcept { return axes_.back().count; }
  /// The small-table stride of the axis outside the inner run (0 for a plan
  /// with one axis).
  std::uint64_t row_small_stride() const noexcept {
    return axes_.size() < 2 ? 0 : axes_[axes_.size() - 2].small_stride;
  }

  /// As walk(), over the large entries whose value on axis `axis` lies in
  /// [first, last), in index order.  When the axis is present in the small
  /// table, slices with disjoint ranges touch disjoint small entries, and
  /// each small entry meets its large entries in the same order as in a
  /// whole walk.
  template <class Run>
  void visit_slice(std::size_t axis, std::uint64_t first, std::uint64_t last, Run&& run) const {
    if (first >= last) return;
    std::array<PlanAxis, kMaxPlanAxes> sliced;
    std::copy(axes_.begin(), axes_.end(), sliced.begin());
    PlanAxis& a = sliced[axis];
    const std::uint64_t count = last - first;
    const std::uint64_t entries = large_size_ / a.count * count;
    const std::uint64_t large_base = first * a.large_stride;
    const std::uint64_t small_base = first * a.small_stride;
    a.count = count;
    a.large_back = a.large_stride * (count - 1);
    a.small_back = a.small_stride * (count - 1);
    visit_axes(sliced.data(), axes_.size(), large_base, small_base, 0, entries, run);
  }

 private:
  // The odometer: positions [begin, end) of the space spanned by `axes`,
  // starting from indexes (large, small) at position 0.
  template <class Run>
  static void visit_axes(const PlanAxis* axes, std::size_t n, std::uint64_t large,
                         std::uint64_t small, std::uint64_t begin, std::uint64_t end, Run& run) {
    if (begin >= end) return;
    const PlanAxis& inner = axes[n - 1];
    std::uint64_t counter[kMaxPlanAxes];
    // Only the start of a walk is decoded by division.
    std::uint64_t rest = begin / inner.count;
    std::uint64_t offset = begin - rest * inner.count;
    for (std::size_t i = n - 1; i-- > 0;) {
      counter[i] = rest % axes[i].count;
      rest /= axes[i].count;
      large += counter[i] * axes[i].large_stride;
      small += counter[i] * axes[i].small_stride;
    }
    std::uint64_t remaining = end - begin;
    for (;;) {
      const std::uint64_t length = std::min(inner.count - offset, remaining);
      run(large + offset * inner.large_stride, small + offset * inner.small_stride, length);
      remaining -= length;
      if (remaining == 0) return;
      offset = 0;
      for (std::size_t i = n - 1; i-- > 0;) {
        if (++counter[i] < axes[i].count) {
          large += axes[i].large_stride;
          small += axes[i].small_stride;
          break;
        }
        counter[i] = 0;
        large -= axes[i].large_back;
        small -= axes[i].small_back;
      }
    }
  }

  void build_map();

  std::vector<PlanAxis> axes_;
  std::vector<std::uint16_t> map_;
  std::uint64_t large_size_ = 1;
  std::uint64_t small_size_ = 1;
};

}  // namespace kelva
