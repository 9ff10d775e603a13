#include "table/factor_walk.h"

#include <algorithm>
#include <cstring>

namespace kelva {

namespace {

// Entries of a run taken in registers at a time when the run is longer than
// the unrolled lengths.
constexpr std::uint64_t kChunk = 16;

// Instructions of a loop's own per run (counting, pointers, branches), and
// vector operations of 4, 2 and 1 doubles covering c entries.
constexpr std::uint64_t kRunSteps = 5;
// Joint walks of up to this many factors unroll the loop over them.
constexpr std::size_t kMaxUnrolledFactors = 4;
constexpr std::uint64_t vector_ops(std::uint64_t c) noexcept {
  return c / 4 + (c % 4 >= 2 ? 1 : 0) + c % 2;
}

// The axis of `plan` whose span holds large stride `stride`, and the small
// stride of a step of `stride` along it.
std::uint64_t small_stride_at(const IndexPlan& plan, std::uint64_t stride) noexcept {
  for (const PlanAxis& a : plan.axes())
    if (a.large_stride <= stride && stride < a.large_stride * a.count)
      return a.small_stride * (stride / a.large_stride);
  return 0;
}

// The factors' small entries along one run: factor j's entry i is
// q[j][i * ss[j]], ss[j] 0 (constant) or 1 (contiguous); after each run
// q[j] moves by row[j], after each tile of runs by tile[j] more; room for
// N factors.
template <std::size_t N>
struct RunFactorsOf {
  std::size_t count;
  const double* q[N];
  std::uint64_t ss[N];
  std::int64_t row[N];
  std::int64_t tile[N];
};
using RunFactors = RunFactorsOf<kMaxJointFactors>;

// Vectors of 4 and 2 doubles: each lane is multiplied as a double is, so
// the products are those of a scalar loop.  The unaligned forms load and
// store them from tables of doubles.  (Clang lowers the alignment only
// in a typedef of a vector type already made.)
using V4 = double __attribute__((vector_size(32)));
using V2 = double __attribute__((vector_size(16)));
typedef V4 V4u __attribute__((aligned(8), may_alias));
typedef V2 V2u __attribute__((aligned(8), may_alias));

// GCC takes the whole-vector stores into a4 below for partial ones and
// warns that the rest may be read uninitialised; every lane is written.
#if !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
// Entries [o, o + W) of one run: loaded once (or made from the first
// factor), multiplied by each of the K factors (f.count when K is 0) in
// order, stored once; in registers.
template <std::uint64_t W, std::size_t K, class F>
[[gnu::always_inline]] inline void joint_chunk(double* __restrict p, const F& f, bool rebuild,
                                               std::uint64_t o) noexcept {
  constexpr std::uint64_t kFours = W / 4, kRoom = kFours > 0 ? kFours : 1;
  constexpr bool kPair = W % 4 >= 2, kSingle = W % 2 == 1;
  V4 a4[kRoom];
  V2 a2;
  double a1;
  const double* from = rebuild ? f.q[0] + o : p + o;
  if (rebuild && f.ss[0] == 0) {
    const double x = f.q[0][0];
    for (std::uint64_t i = 0; i < kRoom; ++i) a4[i] = V4{x, x, x, x};
    a2 = V2{x, x};
    a1 = x;
  } else {
    for (std::uint64_t i = 0; i < kRoom; ++i)
      a4[i] = i < kFours ? *reinterpret_cast<const V4u*>(from + 4 * i) : V4{};
    a2 = kPair ? *reinterpret_cast<const V2u*>(from + 4 * kFours) : V2{};
    a1 = kSingle ? from[W - 1] : 0.0;
  }
  // Every index a constant once the loop is unrolled (K fixed), so the
  // factors' pointers stay in registers; the first factor was taken above
  // when the entries are rebuilt.
#pragma GCC unroll 8
  for (std::size_t j = 0; j < (K != 0 ? K : f.count); ++j) {
    if (j == 0 && rebuild) continue;
    const double* x = f.q[j];
    if (f.ss[j] == 0) {
      const double v = x[0];
      const V4 v4 = {v, v, v, v};
      for (std::uint64_t i = 0; i < kFours; ++i) a4[i] *= v4;
      if constexpr (kPair) a2 *= V2{v, v};
      if constexpr (kSingle) a1 *= v;
    } else {
      x += o;
      for (std::uint64_t i = 0; i < kFours; ++i) a4[i] *= *reinterpret_cast<const V4u*>(x + 4 * i);
      if constexpr (kPair) a2 *= *reinterpret_cast<const V2u*>(x + 4 * kFours);
      if constexpr (kSingle) a1 *= x[W - 1];
    }
  }
  for (std::uint64_t i = 0; i < kFours; ++i) *reinterpret_cast<V4u*>(p + o + 4 * i) = a4[i];
  if constexpr (kPair) *reinterpret_cast<V2u*>(p + o + 4 * kFours) = a2;
  if constexpr (kSingle) p[o + W - 1] = a1;
}
#if !defined(__clang__)
#pragma GCC diagnostic pop
#endif

// Entries [o, n) of one run, entry by entry.
template <std::size_t K, class F>
[[gnu::always_inline]] inline void joint_tail(double* __restrict p, const F& f, bool rebuild,
                                              std::uint64_t o, std::uint64_t n) noexcept {
  for (std::uint64_t i = o; i < n; ++i) {
    double x = rebuild ? f.q[0][i * f.ss[0]] : p[i];
#pragma GCC unroll 8
    for (std::size_t j = 0; j < (K != 0 ? K : f.count); ++j)
      if (j != 0 || !rebuild) x *= f.q[j][i * f.ss[j]];
    p[i] = x;
  }
}

// `tiles` tiles of `rows` runs of n entries (C when it is not 0) from p,
// with K factors (K when it is not 0: the loops over factors unrolled and
// their pointers in registers).
template <std::uint64_t C, std::size_t K>
[[gnu::always_inline]] inline void joint_rows_body(double* p, const RunFactors& from, bool rebuild,
                                                   std::uint64_t tiles, std::uint64_t rows,
                                                   std::uint64_t n) noexcept {
  // The factors the loops use, copied into arrays of their own size: with
  // K fixed every index is a constant, so the pointers stay in registers
  // instead of being reloaded from a copy of the whole record per run.
  const std::size_t k = K != 0 ? K : from.count;
  RunFactorsOf<K != 0 ? K : kMaxJointFactors> f;
  f.count = k;
  for (std::size_t j = 0; j < k; ++j) {
    f.q[j] = from.q[j];
    f.ss[j] = from.ss[j];
    f.row[j] = from.row[j];
    f.tile[j] = from.tile[j];
  }
  for (std::uint64_t t = 0; t < tiles; ++t) {
    for (std::uint64_t r = 0; r < rows; ++r) {
      if constexpr (C != 0) {
        joint_chunk<C, K>(p, f, rebuild, 0);
        p += C;
      } else {
        std::uint64_t o = 0;
        for (; o + kChunk <= n; o += kChunk) joint_chunk<kChunk, K>(p, f, rebuild, o);
        joint_tail<K>(p, f, rebuild, o, n);
        p += n;
      }
      for (std::size_t j = 0; j < k; ++j) f.q[j] += f.row[j];
    }
    for (std::size_t j = 0; j < k; ++j)
      f.q[j] += f.tile[j] - f.row[j] * static_cast<std::int64_t>(rows);
  }
}

using JointRows = void (*)(double*, const RunFactors&, bool, std::uint64_t, std::uint64_t,
                           std::uint64_t) noexcept;

template <std::uint64_t C, std::size_t K>
void joint_rows(double* p, const RunFactors& f, bool rebuild, std::uint64_t tiles,
                std::uint64_t rows, std::uint64_t n) noexcept {
  joint_rows_body<C, K>(p, f, rebuild, tiles, rows, n);
}

#if defined(__x86_64__) && defined(__GNUC__)
#define KELVA_WIDE_JOINT 1
// As the row loops of table_ops.cpp: AVX2 without fused multiply-add, so
// every product is rounded as in the baseline loop.
template <std::uint64_t C, std::size_t K>
[[gnu::target("avx2")]] void joint_rows_wide(double* p, const RunFactors& f, bool rebuild,
                                             std::uint64_t tiles, std::uint64_t rows,
                                             std::uint64_t n) noexcept {
  joint_rows_body<C, K>(p, f, rebuild, tiles, rows, n);
}
#endif

// The loops for runs of lengths 0 (any) and 2 to 15 with K factors.
template <std::size_t K, bool Wide>
constexpr std::array<JointRows, 16> joint_row_table() noexcept {
#ifdef KELVA_WIDE_JOINT
  if constexpr (Wide)
    return {joint_rows_wide<0, K>,  joint_rows_wide<0, K>,  joint_rows_wide<2, K>,
            joint_rows_wide<3, K>,  joint_rows_wide<4, K>,  joint_rows_wide<5, K>,
            joint_rows_wide<6, K>,  joint_rows_wide<7, K>,  joint_rows_wide<8, K>,
            joint_rows_wide<9, K>,  joint_rows_wide<10, K>, joint_rows_wide<11, K>,
            joint_rows_wide<12, K>, joint_rows_wide<13, K>, joint_rows_wide<14, K>,
            joint_rows_wide<15, K>};
#endif
  return {joint_rows<0, K>,  joint_rows<0, K>,  joint_rows<2, K>,  joint_rows<3, K>,
          joint_rows<4, K>,  joint_rows<5, K>,  joint_rows<6, K>,  joint_rows<7, K>,
          joint_rows<8, K>,  joint_rows<9, K>,  joint_rows<10, K>, joint_rows<11, K>,
          joint_rows<12, K>, joint_rows<13, K>, joint_rows<14, K>, joint_rows<15, K>};
}

// The row loop for runs of c entries (unrolled for 2 to 15, else chunked)
// and k factors (unrolled for 2 to 4).
JointRows joint_rows_for(std::uint64_t c, std::size_t k, bool wide) noexcept {
  static constexpr std::array<std::array<JointRows, 16>, 8> kTables = {
      joint_row_table<0, false>(), joint_row_table<2, false>(), joint_row_table<3, false>(),
      joint_row_table<4, false>(), joint_row_table<0, true>(),  joint_row_table<2, true>(),
      joint_row_table<3, true>(),  joint_row_table<4, true>()};
  const std::size_t row = (wide ? 4 : 0) + (k <= kMaxUnrolledFactors ? k - 1 : 0);
  return kTables[row][c < 16 ? c : 0];
}

}  // namespace

bool make_joint_plan(std::span<const SweepFactor> factors, JointPlan& out) noexcept {
  const std::size_t k = factors.size();
  if (k < 2 || k > kMaxJointFactors) return false;
  const std::uint64_t n = factors[0].plan->large_size();
  // Every large stride where some plan starts an axis, ascending.
  std::array<std::uint64_t, kMaxPlanAxes> cuts;
  std::size_t cut_count = 0;
  for (const SweepFactor& f : factors) {
    if (f.plan->map() != nullptr) return false;
    for (const PlanAxis& a : f.plan->axes()) {
      const auto end = cuts.begin() + static_cast<std::ptrdiff_t>(cut_count);
      const auto at = std::lower_bound(cuts.begin(), end, a.large_stride);
      if (at != end && *at == a.large_stride) continue;
      std::copy_backward(at, end, end + 1);
      *at = a.large_stride;
      ++cut_count;
    }
  }
  // From the innermost cut outwards: an axis per cut, merged into the axis
  // inside it when every factor steps by exactly one turn of that axis.
  std::size_t axes = 0;
  for (std::size_t i = 0; i < cut_count; ++i) {
    const std::uint64_t lo = cuts[i];
    const std::uint64_t count = (i + 1 < cut_count ? cuts[i + 1] : n) / lo;
    std::array<std::uint64_t, kMaxJointFactors> ss;
    for (std::size_t j = 0; j < k; ++j) ss[j] = small_stride_at(*factors[j].plan, lo);
    bool merge = axes > 0;
    for (std::size_t j = 0; merge && j < k; ++j)
      merge = ss[j] == out.small_stride[axes - 1][j] * out.count[axes - 1];
    if (merge) {
      out.count[axes - 1] *= count;
      continue;
    }
    out.count[axes] = count;
    out.small_stride[axes] = ss;
    ++axes;
  }
  for (std::size_t j = 0; j < k; ++j)
    if (out.small_stride[0][j] > 1) return false;
  std::reverse(out.count.begin(), out.count.begin() + static_cast<std::ptrdiff_t>(axes));
  std::reverse(out.small_stride.begin(),
               out.small_stride.begin() + static_cast<std::ptrdiff_t>(axes));
  out.axis_count = axes;
  out.factor_count = k;
  return true;
}

bool joint_pays(const JointPlan& plan, std::span<const SweepFactor> factors,
                bool rebuild) noexcept {
  const std::size_t k = plan.factor_count;
  // Estimated instructions per entry, both ways (see vector_ops): a run
  // costs a few steps of its own plus one per vector step and factor.  One
  // pass per factor walks each factor's own, often longer runs; a joint
  // walk's runs are as short as the shortest of them.
  double apart = 0;
  for (std::size_t j = 0; j < k; ++j) {
    const std::uint64_t c = factors[j].plan->inner_count();
    apart += static_cast<double>(kRunSteps + (j == 0 && rebuild ? 2 : 3) * vector_ops(c)) /
             static_cast<double>(c);
  }
  const std::uint64_t c = std::min(plan.count[plan.axis_count - 1], kChunk);
  // Runs shorter than a vector: the passes' row loops do better (measured).
  if (c < 4) return false;
  // A factor costs about as much per run as a run of its own pass (its
  // pointer, its stride's branch, its step): charged less, the joint walk
  // took barley 2% more instructions and munin3 2% fewer.
  const double joint =
      static_cast<double>(kRunSteps * (k + 1) + (k + 1) * vector_ops(c)) / static_cast<double>(c);
  return joint < apart;
}

void apply_joint(const JointPlan& plan, double* large, bool rebuild,
                 std::span<const SweepFactor> factors, std::uint64_t begin,
                 std::uint64_t end) noexcept {
  if (begin >= end) return;
  const std::size_t a = plan.axis_count, k = plan.factor_count;
  // Three levels in the row loops: runs of c entries, rows of them, tiles
  // of rows; the odometer turns the axes outside them.
  const std::uint64_t c = plan.count[a - 1];
  const std::uint64_t rows = a >= 2 ? plan.count[a - 2] : 1;
  const std::uint64_t tiles = a >= 3 ? plan.count[a - 3] : 1;
  const std::uint64_t tile = c * rows, span = tile * tiles;
  const std::size_t outer = a >= 3 ? a - 3 : 0;
  RunFactors f;
  f.count = k;
  for (std::size_t j = 0; j < k; ++j) {
    f.ss[j] = plan.small_stride[a - 1][j];
    f.row[j] = a >= 2 ? static_cast<std::int64_t>(plan.small_stride[a - 2][j]) : 0;
    f.tile[j] = a >= 3 ? static_cast<std::int64_t>(plan.small_stride[a - 3][j]) : 0;
  }
  const bool wide = wide_rows();
  const JointRows whole = joint_rows_for(c, k, wide);
  const JointRows part = joint_rows_for(0, k, wide);

  // Only the start of the range is decoded by division.
  std::uint64_t counter[kMaxPlanAxes];
  std::uint64_t base[kMaxJointFactors] = {};
  std::uint64_t rest = begin / span;
  std::uint64_t off = begin - rest * span;
  for (std::size_t i = outer; i-- > 0;) {
    counter[i] = rest % plan.count[i];
    rest /= plan.count[i];
    for (std::size_t j = 0; j < k; ++j) base[j] += counter[i] * plan.small_stride[i][j];
  }
  std::uint64_t l = begin, remaining = end - begin;
  for (;;) {
    std::uint64_t len = std::min(span - off, remaining);
    remaining -= len;
    std::uint64_t t = 0, r = 0, e = 0;
    if (off != 0) {
      t = off / tile;
      r = (off - t * tile) / c;
      e = off - t * tile - r * c;
    }
    // Calls `loop` on `n` tiles of `m` runs of `len` entries from (t, r, e).
    auto go = [&](JointRows loop, std::uint64_t n, std::uint64_t m, std::uint64_t entries) {
      for (std::size_t j = 0; j < k; ++j)
        f.q[j] = factors[j].data + base[j] + t * static_cast<std::uint64_t>(f.tile[j]) +
                 r * static_cast<std::uint64_t>(f.row[j]) + e * f.ss[j];
      loop(large + l, f, rebuild, n, m, entries);
      l += n * m * entries;
      len -= n * m * entries;
    };
    if (e != 0) {
      // The end of a run.
      go(part, 1, 1, std::min(c - e, len));
      e = 0;
      if (++r == rows) r = 0, ++t;
    }
    if (r != 0 && len >= c) {
      // The last runs of a tile.
      const std::uint64_t m = std::min(rows - r, len / c);
      go(whole, 1, m, c);
      if ((r += m) == rows) r = 0, ++t;
    }
    if (const std::uint64_t n = len / tile; n > 0) {
      go(whole, n, rows, c);
      t += n;
    }
    if (const std::uint64_t m = len / c; m > 0) {
      go(whole, 1, m, c);
      r += m;
    }
    if (len > 0) go(part, 1, 1, len);
    if (remaining == 0) return;
    off = 0;
    for (std::size_t i = outer; i-- > 0;) {
      if (++counter[i] < plan.count[i]) {
        for (std::size_t j = 0; j < k; ++j) base[j] += plan.small_stride[i][j];
        break;
      }
      counter[i] = 0;
      for (std::size_t j = 0; j < k; ++j) base[j] -= plan.small_stride[i][j] * (plan.count[i] - 1);
    }
  }
}

}  // namespace kelva
