#include "table/fold_walk.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <type_traits>
#include <utility>

#include "table/factor_walk.h"

namespace kelva {

namespace {

// How the small entry moves along a run: constant, contiguous, strided.
enum class RunStep { constant, contiguous, strided };

// Vectors of 4 and 2 doubles: each lane is added (or compared) as a double
// is.
using V4 = double __attribute__((vector_size(32)));
using V2 = double __attribute__((vector_size(16)));

// a := the fold of a and b, lane by lane.  Vectors go by reference, so no
// call passes one by value, whatever the build's optimisation.
template <class Fold, class V>
[[gnu::always_inline]] inline void fold_into(V& a, const V& b) noexcept {
  if constexpr (std::is_same_v<Fold, SumFold>) a = a + b;
  else a = b > a ? b : a;
}

// The four doubles from p.
[[gnu::always_inline]] inline void load_into(V4& v, const double* p) noexcept {
  std::memcpy(&v, p, sizeof v);
}

// The folds of the two runs of C entries (4 to 15) at p and p + C, each
// grouped as fold_run groups it: the run's blocks of four go into four
// lanes in order, the rest into the first lane, then (a0 + a1) + (a2 + a3).
// The two runs share each vector step.  Adding the identity to a lane is
// exact: a sum's lane starts as 0 + x, never -0, and max(a, -inf) is a.
template <class Fold, std::uint64_t C>
[[gnu::always_inline]] inline V2 fold_run_pair(const double* p) noexcept {
  constexpr double kId = Fold::identity();
  V4 a = {kId, kId, kId, kId}, b = a, x;
  for (std::uint64_t k = 0; k + 4 <= C; k += 4) {
    load_into(x, p + k);
    fold_into<Fold>(a, x);
    load_into(x, p + C + k);
    fold_into<Fold>(b, x);
  }
  // Lanes (a0, b0, a2, b2) and (a1, b1, a3, b3); the rest of each run goes
  // into its first lane.
  V4 lo = __builtin_shufflevector(a, b, 0, 4, 2, 6);
  const V4 hi = __builtin_shufflevector(a, b, 1, 5, 3, 7);
  for (std::uint64_t k = C / 4 * 4; k < C; ++k) fold_into<Fold>(lo, V4{p[k], p[C + k], kId, kId});
  fold_into<Fold>(lo, hi);
  V2 pair = __builtin_shufflevector(lo, lo, 0, 1);
  fold_into<Fold>(pair, V2(__builtin_shufflevector(lo, lo, 2, 3)));
  return pair;
}

// s[k] := the fold of s[k] and the k-th entry of each of `runs` runs, run r
// at p + r * stride, for k under 4 * Fours + 2 * Two + One: the small
// entries kept in registers over the runs (blocks of four, then two, then
// one), each meeting its large entries one at a time in index order.
template <class Fold, std::uint64_t Fours, bool Two, bool One>
[[gnu::always_inline]] inline void fold_shared_block(const double* __restrict p,
                                                     double* __restrict s, std::uint64_t runs,
                                                     std::uint64_t stride) noexcept {
  constexpr std::uint64_t kTwoAt = 4 * Fours, kOneAt = kTwoAt + (Two ? 2 : 0);
  V4 a[Fours > 0 ? Fours : 1], x;
  V2 b, y;
  double d = 0;
#pragma GCC unroll 4
  for (std::uint64_t i = 0; i < Fours; ++i) load_into(a[i], s + 4 * i);
  if constexpr (Two) std::memcpy(&b, s + kTwoAt, sizeof b);
  if constexpr (One) d = s[kOneAt];
#pragma GCC unroll 2
  for (std::uint64_t r = 0; r < runs; ++r, p += stride) {
#pragma GCC unroll 4
    for (std::uint64_t i = 0; i < Fours; ++i) {
      load_into(x, p + 4 * i);
      fold_into<Fold>(a[i], x);
    }
    if constexpr (Two) {
      std::memcpy(&y, p + kTwoAt, sizeof y);
      fold_into<Fold>(b, y);
    }
    if constexpr (One) d = Fold::fold(d, p[kOneAt]);
  }
#pragma GCC unroll 4
  for (std::uint64_t i = 0; i < Fours; ++i) std::memcpy(s + 4 * i, &a[i], sizeof a[i]);
  if constexpr (Two) std::memcpy(s + kTwoAt, &b, sizeof b);
  if constexpr (One) s[kOneAt] = d;
}

// fold_shared_block over the first W entries of runs `stride` apart, when
// `width` is W.
template <class Fold, std::uint64_t W>
[[gnu::always_inline]] inline bool fold_shared_width(const double* p, double* s, std::uint64_t runs,
                                                     std::uint64_t stride,
                                                     std::uint64_t width) noexcept {
  if (width != W) return false;
  fold_shared_block<Fold, W / 4, W % 4 / 2 != 0, W % 2 != 0>(p, s, runs, stride);
  return true;
}

// The same for a width of 1 to 15 (nothing for another).
template <class Fold, std::size_t... W>
[[gnu::always_inline]] inline void fold_shared_rest(const double* p, double* s, std::uint64_t runs,
                                                    std::uint64_t stride, std::uint64_t width,
                                                    std::index_sequence<W...>) noexcept {
  (void)(fold_shared_width<Fold, W + 1>(p, s, runs, stride, width) || ...);
}

// s[k] := the fold of s[k] and the k-th entry of each of `runs` runs of n
// entries (C when it is not 0) from p, in order: runs whose small entries are
// contiguous and shared (the row axis is absent from the small table).  The
// small entries stay in registers over the runs; each still meets its large
// entries one at a time in index order.
template <class Fold, std::uint64_t C>
[[gnu::always_inline]] inline void fold_shared_runs(const double* __restrict p,
                                                    double* __restrict s, std::uint64_t runs,
                                                    std::uint64_t c) noexcept {
  if constexpr (C != 0) {
    fold_shared_block<Fold, C / 4, C % 4 / 2 != 0, C % 2 != 0>(p, s, runs, C);
  } else if (runs == 1) {
#pragma GCC unroll 4
    for (std::uint64_t k = 0; k < c; ++k) s[k] = Fold::fold(s[k], p[k]);
  } else {
    // Blocks of 16 entries, then the rest of fewer, in registers over the runs.
    std::uint64_t k = 0;
    for (; k + 16 <= c; k += 16) fold_shared_block<Fold, 4, false, false>(p + k, s + k, runs, c);
    fold_shared_rest<Fold>(p + k, s + k, runs, c, c - k, std::make_index_sequence<15>{});
  }
}

// x[i] := the i-th entries of the four rows r0 .. r3, lane j from row j.
[[gnu::always_inline]] inline void transpose_into(V4 (&x)[4], const V4& r0, const V4& r1,
                                                  const V4& r2, const V4& r3) noexcept {
  const V4 t0 = __builtin_shufflevector(r0, r1, 0, 4, 2, 6);
  const V4 t1 = __builtin_shufflevector(r0, r1, 1, 5, 3, 7);
  const V4 t2 = __builtin_shufflevector(r2, r3, 0, 4, 2, 6);
  const V4 t3 = __builtin_shufflevector(r2, r3, 1, 5, 3, 7);
  x[0] = __builtin_shufflevector(t0, t2, 0, 1, 4, 5);
  x[1] = __builtin_shufflevector(t1, t3, 0, 1, 4, 5);
  x[2] = __builtin_shufflevector(t0, t2, 2, 3, 6, 7);
  x[3] = __builtin_shufflevector(t1, t3, 2, 3, 6, 7);
}

// out := the folds of the four runs of C entries (2 to 15) at p + j * C,
// run j in lane j, each grouped as fold_run groups it (blocks of four into
// four accumulators, the rest into the first, then (a0 + a1) + (a2 + a3)).
template <class Fold, std::uint64_t C>
[[gnu::always_inline]] inline void fold_four_runs(const double* p, V4& out) noexcept {
  constexpr double kId = Fold::identity();
  V4 a[4] = {
      {kId, kId, kId, kId}, {kId, kId, kId, kId}, {kId, kId, kId, kId}, {kId, kId, kId, kId}};
  if constexpr (C == 6) {
    // The 24 entries are six vectors l0 .. l5; runs 0 and 1 lie in l0 .. l2
    // as runs 2 and 3 lie in l3 .. l5.  Joining the matching 128-bit halves
    // of l_i and l_i+3, then splitting their lanes, gives the vector of each
    // entry of the four runs in two shuffles.
    V4 l0, l1, l2, l3, l4, l5;
    load_into(l0, p);
    load_into(l1, p + 4);
    load_into(l2, p + 8);
    load_into(l3, p + 12);
    load_into(l4, p + 16);
    load_into(l5, p + 20);
    const V4 t03lo = __builtin_shufflevector(l0, l3, 0, 1, 4, 5);  // entries 0, 1
    const V4 t03hi = __builtin_shufflevector(l0, l3, 2, 3, 6, 7);  // entries 2, 3
    const V4 t14lo = __builtin_shufflevector(l1, l4, 0, 1, 4, 5);  // entries 4, 5
    const V4 t14hi = __builtin_shufflevector(l1, l4, 2, 3, 6, 7);  // 0, 1 of runs 1, 3
    const V4 t25lo = __builtin_shufflevector(l2, l5, 0, 1, 4, 5);  // 2, 3 of runs 1, 3
    const V4 t25hi = __builtin_shufflevector(l2, l5, 2, 3, 6, 7);  // 4, 5 of runs 1, 3
    fold_into<Fold>(a[0], V4(__builtin_shufflevector(t03lo, t14hi, 0, 4, 2, 6)));
    fold_into<Fold>(a[1], V4(__builtin_shufflevector(t03lo, t14hi, 1, 5, 3, 7)));
    fold_into<Fold>(a[2], V4(__builtin_shufflevector(t03hi, t25lo, 0, 4, 2, 6)));
    fold_into<Fold>(a[3], V4(__builtin_shufflevector(t03hi, t25lo, 1, 5, 3, 7)));
    fold_into<Fold>(a[0], V4(__builtin_shufflevector(t14lo, t25hi, 0, 4, 2, 6)));
    fold_into<Fold>(a[0], V4(__builtin_shufflevector(t14lo, t25hi, 1, 5, 3, 7)));
    fold_into<Fold>(a[0], a[1]);
    fold_into<Fold>(a[2], a[3]);
    fold_into<Fold>(a[0], a[2]);
    out = a[0];
    return;
  }
  for (std::uint64_t b = 0; b + 4 <= C; b += 4) {
    V4 r0, r1, r2, r3, x[4];
    load_into(r0, p + b);
    load_into(r1, p + C + b);
    load_into(r2, p + 2 * C + b);
    load_into(r3, p + 3 * C + b);
    transpose_into(x, r0, r1, r2, r3);
#pragma GCC unroll 4
    for (int i = 0; i < 4; ++i) fold_into<Fold>(a[i], x[i]);
  }
  std::uint64_t k = C / 4 * 4;
  if constexpr (C == 2) {
    // The eight entries in two loads: lanes of runs 0, 2, 1, 3 until the end.
    V4 l0, l1;
    load_into(l0, p);
    load_into(l1, p + 4);
    fold_into<Fold>(a[0], V4(__builtin_shufflevector(l0, l1, 0, 4, 2, 6)));
    fold_into<Fold>(a[0], V4(__builtin_shufflevector(l0, l1, 1, 5, 3, 7)));
    a[0] = __builtin_shufflevector(a[0], a[0], 0, 2, 1, 3);
  } else if constexpr (C % 4 >= 2) {
    // Pairs of the runs' next two entries, then their lanes split.
    V2 h0, h1, h2, h3;
    std::memcpy(&h0, p + k, sizeof h0);
    std::memcpy(&h1, p + C + k, sizeof h1);
    std::memcpy(&h2, p + 2 * C + k, sizeof h2);
    std::memcpy(&h3, p + 3 * C + k, sizeof h3);
    const V4 y02 = __builtin_shufflevector(h0, h2, 0, 1, 2, 3);
    const V4 y13 = __builtin_shufflevector(h1, h3, 0, 1, 2, 3);
    fold_into<Fold>(a[0], V4(__builtin_shufflevector(y02, y13, 0, 4, 2, 6)));
    fold_into<Fold>(a[0], V4(__builtin_shufflevector(y02, y13, 1, 5, 3, 7)));
    k += 2;
  }
  if constexpr (C % 2 != 0) fold_into<Fold>(a[0], V4{p[k], p[C + k], p[2 * C + k], p[3 * C + k]});
  // Under four entries, lanes 1 to 3 hold the identity, and folding it in
  // leaves a0 as it is (a0 is never -0: it starts as 0 + x).
  if constexpr (C >= 4) {
    fold_into<Fold>(a[0], a[1]);
    fold_into<Fold>(a[2], a[3]);
    fold_into<Fold>(a[0], a[2]);
  }
  out = a[0];
}

// s[0 .. 3] := the folds of s[j] and of the run of C entries at p + j * C.
template <class Fold, std::uint64_t C>
[[gnu::always_inline]] inline void fold_four_runs_into(const double* p, double* s) noexcept {
  V4 runs, old;
  fold_four_runs<Fold, C>(p, runs);
  load_into(old, s);
  fold_into<Fold>(old, runs);
  std::memcpy(s, &old, sizeof old);
}

// `tiles` tiles of `rows` runs of n entries (C when it is not 0) from p:
// run r of tile t starts at small entry q + t * tile_ss + r * row_ss and
// steps it by ss per entry (S says how).
template <class Fold, std::uint64_t C, RunStep S, bool Wide>
[[gnu::always_inline]] inline void fold_tiles_body(const double* __restrict p, double* __restrict q,
                                                   std::uint64_t tiles, std::uint64_t rows,
                                                   std::uint64_t c, std::uint64_t ss,
                                                   std::uint64_t row_ss,
                                                   std::uint64_t tile_ss) noexcept {
  const std::uint64_t n = C != 0 ? C : c;
  if constexpr (S == RunStep::contiguous) {
    if (row_ss == 0) {
      if (tile_ss == 0) return fold_shared_runs<Fold, C>(p, q, tiles * rows, c);
      if constexpr (Wide && C == 2) {
        // Runs of two whose tiles' pairs of small entries follow each other:
        // two tiles share a vector (lanes 0 and 1, then 2 and 3), each pair
        // still meeting its runs in order.
        if (tile_ss == 2) {
          for (; tiles >= 2; tiles -= 2, q += 4, p += 4 * rows) {
            V4 pairs;
            load_into(pairs, q);
            const std::uint64_t next = 2 * rows;
#pragma GCC unroll 2
            for (const double* a = p; a != p + next; a += 2) {
              V2 x, y;
              std::memcpy(&x, a, sizeof x);
              std::memcpy(&y, a + next, sizeof y);
              fold_into<Fold>(pairs, V4(__builtin_shufflevector(x, y, 0, 1, 2, 3)));
            }
            std::memcpy(q, &pairs, sizeof pairs);
          }
        }
      }
      for (std::uint64_t t = 0; t < tiles; ++t, q += tile_ss, p += rows * n)
        fold_shared_runs<Fold, C>(p, q, rows, c);
      return;
    }
  }
  if constexpr (Wide && S == RunStep::constant && C >= 2) {
    if (rows == 2 && row_ss == 1 && tile_ss == 0 && tiles >= 2) {
      // Every tile's two runs into the same two small entries: two tiles
      // per four-run step, the pair of small entries kept in registers.
      V2 pair;
      std::memcpy(&pair, q, sizeof pair);
      for (; tiles >= 2; tiles -= 2, p += 4 * C) {
        V4 runs;
        fold_four_runs<Fold, C>(p, runs);
        fold_into<Fold>(pair, V2(__builtin_shufflevector(runs, runs, 0, 1)));
        fold_into<Fold>(pair, V2(__builtin_shufflevector(runs, runs, 2, 3)));
      }
      if constexpr (C >= 4) {
        // An odd last tile as the loop below would fold it.
        if (tiles == 1) {
          fold_into<Fold>(pair, fold_run_pair<Fold, C>(p));
          tiles = 0;
        }
      }
      std::memcpy(q, &pair, sizeof pair);
    }
  }
  for (std::uint64_t t = 0; t < tiles; ++t, q += tile_ss) {
    double* s = q;
    std::uint64_t r = 0;
    if constexpr (Wide && S == RunStep::constant && C >= 2) {
      // Runs into neighbouring small entries, four at a time.
      if (row_ss == 1)
        for (; r + 4 <= rows; r += 4, p += 4 * C, s += 4) fold_four_runs_into<Fold, C>(p, s);
    }
    for (; r < rows; ++r, p += n, s += row_ss) {
      if constexpr (S == RunStep::constant && C >= 4) {
        if (r + 2 <= rows) {
          // Two runs at a time.
          const V2 x = fold_run_pair<Fold, C>(p);
          s[0] = Fold::fold(s[0], x[0]);
          s[row_ss] = Fold::fold(s[row_ss], x[1]);
          p += C, s += row_ss, ++r;
        } else {
          *s = Fold::fold(*s, fold_run<Fold>(p, n));
        }
      } else if constexpr (S == RunStep::constant) {
        *s = Fold::fold(*s, fold_run<Fold>(p, n));
      } else if constexpr (S == RunStep::contiguous && C == 0) {
#pragma GCC unroll 4
        for (std::uint64_t k = 0; k < n; ++k) s[k] = Fold::fold(s[k], p[k]);
      } else if constexpr (S == RunStep::contiguous) {
        for (std::uint64_t k = 0; k < n; ++k) s[k] = Fold::fold(s[k], p[k]);
      } else {
        for (std::uint64_t k = 0; k < n; ++k) s[k * ss] = Fold::fold(s[k * ss], p[k]);
      }
    }
  }
}

using FoldTiles = void (*)(const double*, double*, std::uint64_t, std::uint64_t, std::uint64_t,
                           std::uint64_t, std::uint64_t, std::uint64_t) noexcept;

template <class Fold, std::uint64_t C, RunStep S>
void fold_tiles_narrow(const double* p, double* q, std::uint64_t tiles, std::uint64_t rows,
                       std::uint64_t c, std::uint64_t ss, std::uint64_t row_ss,
                       std::uint64_t tile_ss) noexcept {
  fold_tiles_body<Fold, C, S, false>(p, q, tiles, rows, c, ss, row_ss, tile_ss);
}

#if defined(__x86_64__) && defined(__GNUC__)
#define KELVA_WIDE_FOLDS 1
// As the row loops of table_ops.cpp: AVX2 without fused multiply-add, so
// every sum is rounded as in the baseline loop.
template <class Fold, std::uint64_t C, RunStep S>
[[gnu::target("avx2")]] void fold_tiles_wide(const double* p, double* q, std::uint64_t tiles,
                                             std::uint64_t rows, std::uint64_t c, std::uint64_t ss,
                                             std::uint64_t row_ss, std::uint64_t tile_ss) noexcept {
  fold_tiles_body<Fold, C, S, true>(p, q, tiles, rows, c, ss, row_ss, tile_ss);
}
#endif

// The loops for runs of lengths 0 (any) and 2 to 15, with the small entry
// stepping as S says.
template <class Fold, RunStep S, bool Wide, std::size_t... C>
constexpr std::array<FoldTiles, 16> fold_table(std::index_sequence<C...>) noexcept {
#ifdef KELVA_WIDE_FOLDS
  if constexpr (Wide) return {fold_tiles_wide < Fold, C < 2 ? 0 : C, S > ...};
#endif
  return {fold_tiles_narrow < Fold, C < 2 ? 0 : C, S > ...};
}

template <class Fold>
FoldTiles fold_tiles_for(std::uint64_t c, RunStep step, bool wide) noexcept {
  using Lengths = std::make_index_sequence<16>;
  static constexpr std::array<std::array<FoldTiles, 16>, 6> kTables = {
      fold_table<Fold, RunStep::constant, false>(Lengths{}),
      fold_table<Fold, RunStep::contiguous, false>(Lengths{}),
      fold_table<Fold, RunStep::strided, false>(Lengths{}),
      fold_table<Fold, RunStep::constant, true>(Lengths{}),
      fold_table<Fold, RunStep::contiguous, true>(Lengths{}),
      fold_table<Fold, RunStep::strided, true>(Lengths{})};
  return kTables[(wide ? 3 : 0) + static_cast<std::size_t>(step)][c < 16 ? c : 0];
}

// s[r] := the fold of the identity and of the r-th of `runs` runs of n
// entries (C when it is not 0) from p: the bits of a cleared entry into
// which its run is folded, without the clearing.
template <class Fold, std::uint64_t C, bool Wide>
[[gnu::always_inline]] inline void store_runs_body(const double* __restrict p, double* __restrict s,
                                                   std::uint64_t runs, std::uint64_t c) noexcept {
  const std::uint64_t n = C != 0 ? C : c;
  std::uint64_t r = 0;
  if constexpr (Wide && C >= 2) {
    constexpr double kId = Fold::identity();
    for (; r + 4 <= runs; r += 4, p += 4 * C) {
      V4 folded, out = {kId, kId, kId, kId};
      fold_four_runs<Fold, C>(p, folded);
      fold_into<Fold>(out, folded);
      std::memcpy(s + r, &out, sizeof out);
    }
  }
  for (; r < runs; ++r, p += n) s[r] = Fold::fold(Fold::identity(), fold_run<Fold>(p, n));
}

using StoreRuns = void (*)(const double*, double*, std::uint64_t, std::uint64_t) noexcept;

template <class Fold, std::uint64_t C>
void store_runs_narrow(const double* p, double* s, std::uint64_t runs, std::uint64_t c) noexcept {
  store_runs_body<Fold, C, false>(p, s, runs, c);
}

#ifdef KELVA_WIDE_FOLDS
template <class Fold, std::uint64_t C>
[[gnu::target("avx2")]] void store_runs_wide(const double* p, double* s, std::uint64_t runs,
                                             std::uint64_t c) noexcept {
  store_runs_body<Fold, C, true>(p, s, runs, c);
}
#endif

template <class Fold, bool Wide, std::size_t... C>
constexpr std::array<StoreRuns, 16> store_table(std::index_sequence<C...>) noexcept {
#ifdef KELVA_WIDE_FOLDS
  if constexpr (Wide) return {store_runs_wide < Fold, C < 2 ? 0 : C > ...};
#endif
  return {store_runs_narrow < Fold, C < 2 ? 0 : C > ...};
}

template <class Fold>
void store_runs(const double* large, double* small, std::uint64_t c, std::uint64_t first,
                std::uint64_t count) noexcept {
  using Lengths = std::make_index_sequence<16>;
  static constexpr std::array<std::array<StoreRuns, 16>, 2> kTables = {
      store_table<Fold, false>(Lengths{}), store_table<Fold, true>(Lengths{})};
  kTables[wide_rows() ? 1 : 0][c < 16 ? c : 0](large + first * c, small + first, count, c);
}

template <class Fold>
void fold_tiles(const IndexPlan& plan, const double* large, double* small, std::uint64_t begin,
                std::uint64_t end) noexcept {
  if (begin >= end) return;
  // Three levels in the loops (runs, rows of runs, tiles of rows); the
  // odometer turns the axes outside them.
  const auto axes = plan.axes();
  const std::size_t a = axes.size();
  const std::uint64_t c = axes[a - 1].count, ss = axes[a - 1].small_stride;
  const std::uint64_t row_ss = a >= 2 ? axes[a - 2].small_stride : 0;
  const std::uint64_t tile_ss = a >= 3 ? axes[a - 3].small_stride : 0;
  const RunStep step = ss == 0   ? RunStep::constant
                       : ss == 1 ? RunStep::contiguous
                                 : RunStep::strided;
  const bool wide = wide_rows();
  const FoldTiles whole_runs = fold_tiles_for<Fold>(c, step, wide);
  const FoldTiles pieces = fold_tiles_for<Fold>(0, step, wide);

  plan.walk_tiles(begin, end, [&](auto l, auto s, auto n, auto m, auto entries, auto whole) {
    (decltype(whole)::value ? whole_runs : pieces)(large + l, small + s, n, m, entries, ss, row_ss,
                                                   tile_ss);
  });
}

}  // namespace

void store_runs_sum(const double* large, double* small, std::uint64_t c, std::uint64_t first,
                    std::uint64_t count) noexcept {
  store_runs<SumFold>(large, small, c, first, count);
}

void store_runs_max(const double* large, double* small, std::uint64_t c, std::uint64_t first,
                    std::uint64_t count) noexcept {
  store_runs<MaxFold>(large, small, c, first, count);
}

void fold_tiles_sum(const IndexPlan& plan, const double* large, double* small, std::uint64_t begin,
                    std::uint64_t end) noexcept {
  fold_tiles<SumFold>(plan, large, small, begin, end);
}

void fold_tiles_max(const IndexPlan& plan, const double* large, double* small, std::uint64_t begin,
                    std::uint64_t end) noexcept {
  fold_tiles<MaxFold>(plan, large, small, begin, end);
}

}  // namespace kelva
