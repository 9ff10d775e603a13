#include "table/table_ops.h"

#include <algorithm>
#include <atomic>
#include <cassert>
#include <cmath>
#include <cstring>
#include <numeric>
#include <type_traits>
#include <utility>

#include "network/domain.h"
#include "platform/worker_pool.h"
#include "table/factor_walk.h"
#include "table/fold_walk.h"
#include "table/sweep.h"
#include "table/table.h"

#if defined(__x86_64__) && defined(__GNUC__)
#include <immintrin.h>
#endif

namespace kelva {

Parallelism Parallelism::of(const Domain& domain) noexcept {
  return Parallelism{domain.concurrency_level, domain.grain_size};
}

namespace {

// Most pieces (and threads) one operation is split into.
constexpr std::uint64_t kMaxPieces = 64;

// Number of pieces for `work` entries when the pieces may run on threads:
// 1 unless there are threads and at least two grains of work.
std::uint64_t piece_count(std::uint64_t work, const Parallelism& p) noexcept {
  const std::uint64_t grain = std::max<std::uint64_t>(p.grain, 1);
  if (p.threads < 2 || work / 2 < grain) return 1;
  return std::min({p.threads, work / grain, kMaxPieces});
}

// Start of piece j of `pieces` equal parts of [0, total).
std::uint64_t piece_start(std::uint64_t total, std::uint64_t pieces, std::uint64_t j) noexcept {
  return total / pieces * j + total % pieces * j / pieces;
}

// Runs body(j) for j < pieces, on up to `threads` threads.
template <class Body>
void run_pieces(std::uint64_t pieces, std::uint64_t threads, Body& body) {
  if (pieces <= 1 || threads <= 1) {
    for (std::uint64_t j = 0; j < pieces; ++j) body(j);
    return;
  }
  auto task = [&body](std::size_t j) { body(j); };
  platform::WorkerPool::shared().run(pieces, std::min(threads, pieces), task);
}

// Vectors of 4 and 2 doubles: each lane is multiplied as a double is.
using V4 = double __attribute__((vector_size(32)));
using V2 = double __attribute__((vector_size(16)));

// Entry updates of the large table by the matching small entry; those with
// kVectors apply to vectors of entries lane by lane as well.
struct MultiplyUpdate {
  static constexpr bool kVectors = true;
  template <class T>
  static void apply(T& l, const T& s) noexcept {
    l *= s;
  }
};
// Dividing by 1 instead of skipping keeps the loop free of branches (x / 1
// is exactly x), so it vectorizes.
inline double divisor(double s) noexcept { return s > 0.0 ? s : 1.0; }
struct DivideUpdate {
  static constexpr bool kVectors = false;
  static void apply(double& l, double s) noexcept { l /= divisor(s); }
};
struct CopyUpdate {
  static constexpr bool kVectors = true;
  template <class T>
  static void apply(T& l, const T& s) noexcept {
    l = s;
  }
};

// Calls f(std::integral_constant<std::uint64_t, c>) for the common short run
// lengths (2 to 15), so that their loops are unrolled and vectorised at that length,
// and f(std::integral_constant<std::uint64_t, 0>) (length known at run time
// only) otherwise.
template <class F>
void with_run_length(std::uint64_t c, F&& f) {
  switch (c) {
    case 2:
      return f(std::integral_constant<std::uint64_t, 2>{});
    case 3:
      return f(std::integral_constant<std::uint64_t, 3>{});
    case 4:
      return f(std::integral_constant<std::uint64_t, 4>{});
    case 5:
      return f(std::integral_constant<std::uint64_t, 5>{});
    case 6:
      return f(std::integral_constant<std::uint64_t, 6>{});
    case 7:
      return f(std::integral_constant<std::uint64_t, 7>{});
    case 8:
      return f(std::integral_constant<std::uint64_t, 8>{});
    case 9:
      return f(std::integral_constant<std::uint64_t, 9>{});
    case 10:
      return f(std::integral_constant<std::uint64_t, 10>{});
    case 11:
      return f(std::integral_constant<std::uint64_t, 11>{});
    case 12:
      return f(std::integral_constant<std::uint64_t, 12>{});
    case 13:
      return f(std::integral_constant<std::uint64_t, 13>{});
    case 14:
      return f(std::integral_constant<std::uint64_t, 14>{});
    case 15:
      return f(std::integral_constant<std::uint64_t, 15>{});
    default:
      return f(std::integral_constant<std::uint64_t, 0>{});
  }
}

// Walks large entries [begin, end) of a plan by rows of whole inner runs:
// kernel(l, s, rows, n, row_ss, length) covers `rows` runs of n entries from
// large entry l and small entry s, the small start moving by row_ss per run;
// `length` is n as a constant for the common short runs (0 otherwise).  A
// partial run at either end of the range comes as one row of its own length.
template <class Kernel>
void walk_by_rows(const IndexPlan& plan, std::uint64_t begin, std::uint64_t end, Kernel&& kernel) {
  const std::uint64_t c = plan.inner_count();
  const std::uint64_t row_ss = plan.row_small_stride();
  auto part = [&](std::uint64_t l, std::uint64_t s, std::uint64_t n) {
    kernel(l, s, std::uint64_t{1}, n, std::uint64_t{0}, std::integral_constant<std::uint64_t, 0>{});
  };
  with_run_length(c, [&](auto length) {
    plan.walk_rows(begin, end, part, [&](std::uint64_t l, std::uint64_t s, std::uint64_t rows) {
      kernel(l, s, rows, c, row_ss, length);
    });
  });
}

// Applies Update to the entries of a vector from p, lane by lane.
template <class Update, class V>
[[gnu::always_inline]] inline void update_vector_at(double* p, const V& s) noexcept {
  V x;
  std::memcpy(&x, p, sizeof x);
  Update::apply(x, s);
  std::memcpy(p, &x, sizeof x);
}

// Applies Update to the entries of a vector from p, lane by lane, with the
// small entries of a vector from q.
template <class Update, class V>
[[gnu::always_inline]] inline void update_vector_from(double* p, const double* q) noexcept {
  V s;
  std::memcpy(&s, q, sizeof s);
  update_vector_at<Update>(p, s);
}

// Applies Update to four runs of C entries from p, run r by lane r of s:
// vector step k takes entries 4k to 4k + 3, whose runs are (4k + j) / C.
template <class Update, std::uint64_t C, std::size_t... K>
[[gnu::always_inline]] inline void update_four_runs(double* p, const V4& s,
                                                    std::index_sequence<K...>) noexcept {
  (update_vector_at<Update>(p + 4 * K, __builtin_shufflevector(s, s, (4 * K) / C, (4 * K + 1) / C,
                                                               (4 * K + 2) / C, (4 * K + 3) / C)),
   ...);
}

// Updates `rows` runs of `c` large entries (C when it is not 0): entry k of
// run r is p[r * c + k], its small entry q[r * row_ss + k * ss].  The large
// and small tables never overlap.
template <class Update, std::uint64_t C>
[[gnu::always_inline]] inline void update_rows_body(double* __restrict p,
                                                    const double* __restrict q, std::uint64_t rows,
                                                    std::uint64_t c, std::uint64_t ss,
                                                    std::uint64_t row_ss) noexcept {
  const std::uint64_t n = C != 0 ? C : c;
  if constexpr (C == 0) {
    // Long runs: four vector steps per turn of the loop, a quarter of its
    // counting and branching.
    if (ss == 0) {
      for (std::uint64_t r = 0; r < rows; ++r, p += n, q += row_ss) {
        const double v = *q;
#pragma GCC unroll 4
        for (std::uint64_t k = 0; k < n; ++k) Update::apply(p[k], v);
      }
      return;
    }
    if (ss == 1) {
      for (std::uint64_t r = 0; r < rows; ++r, p += n, q += row_ss)
#pragma GCC unroll 4
        for (std::uint64_t k = 0; k < n; ++k) Update::apply(p[k], q[k]);
      return;
    }
  }
  if constexpr (C != 0 && Update::kVectors) {
    if (ss == 0 && row_ss == 1) {
      // One small entry per run, the runs' entries contiguous (a separator
      // leading the table): four runs from one vector of their small
      // entries, each vector step's lanes picked from it.
      std::uint64_t r = 0;
      for (; r + 4 <= rows; r += 4, p += 4 * C, q += 4) {
        V4 s;
        std::memcpy(&s, q, sizeof s);
        update_four_runs<Update, C>(p, s, std::make_index_sequence<C>{});
      }
      for (; r < rows; ++r, p += C, ++q) {
        const double v = *q;
        for (std::uint64_t k = 0; k < C; ++k) Update::apply(p[k], v);
      }
      return;
    }
  }
  if constexpr (C == 2 && Update::kVectors) {
    // Runs of two: two runs in one vector step of four entries, the small
    // entries loaded once where they repeat from run to run.
    std::uint64_t r = 0;
    if (row_ss == 0) {
      const V4 v = {q[0], q[ss], q[0], q[ss]};
      for (; r + 2 <= rows; r += 2, p += 4) update_vector_at<Update>(p, v);
    } else if (ss == 1) {
      // Both runs' small entries are pairs: two loads instead of four.
      for (; r + 2 <= rows; r += 2, p += 4, q += 2 * row_ss) {
        V2 a, b;
        std::memcpy(&a, q, sizeof a);
        std::memcpy(&b, q + row_ss, sizeof b);
        update_vector_at<Update>(p, __builtin_shufflevector(a, b, 0, 1, 2, 3));
      }
    } else {
      for (; r + 2 <= rows; r += 2, p += 4, q += 2 * row_ss)
        update_vector_at<Update>(p, V4{q[0], q[ss], q[row_ss], q[row_ss + ss]});
    }
    if (r < rows) update_vector_at<Update>(p, V2{q[0], q[ss]});
    return;
  }
  if constexpr (C > 2 && Update::kVectors) {
    if (ss == 1) {
      // Left to itself, GCC vectorises this loop across runs, with alias
      // checks and a scalar fallback per call that cost more than the
      // entries of a tile; one run at a time in vectors of 4, 2 and 1.
      constexpr std::uint64_t kFours = C / 4;
      for (std::uint64_t r = 0; r < rows; ++r, p += C, q += row_ss) {
        for (std::uint64_t i = 0; i < kFours; ++i)
          update_vector_from<Update, V4>(p + 4 * i, q + 4 * i);
        if constexpr (C % 4 >= 2) update_vector_from<Update, V2>(p + 4 * kFours, q + 4 * kFours);
        if constexpr (C % 2 == 1) Update::apply(p[C - 1], q[C - 1]);
      }
      return;
    }
  }
  if (ss == 0) {
    for (std::uint64_t r = 0; r < rows; ++r, p += n, q += row_ss) {
      const double v = *q;
      for (std::uint64_t k = 0; k < n; ++k) Update::apply(p[k], v);
    }
  } else if (ss == 1) {
    for (std::uint64_t r = 0; r < rows; ++r, p += n, q += row_ss)
      for (std::uint64_t k = 0; k < n; ++k) Update::apply(p[k], q[k]);
  } else {
    for (std::uint64_t r = 0; r < rows; ++r, p += n, q += row_ss)
      for (std::uint64_t k = 0; k < n; ++k) Update::apply(p[k], q[k * ss]);
  }
}

// Updates `rows` runs of C entries from p that all meet the same C
// contiguous small entries, vector K of v holding entries 4K to 4K + 3 of
// the four runs' period: built once and kept in registers; the last one to
// three runs take the first of them, then a pair and a single entry.  The
// vectors come as a pack of arguments rather than an array, which GCC would
// take for possibly uninitialized once the loops are unrolled.
template <class Update, std::uint64_t C, std::size_t... K, class... S>
[[gnu::always_inline]] inline void update_periodic_runs_from(double* p, std::uint64_t rows,
                                                             std::index_sequence<K...>,
                                                             const S&... v) noexcept {
  std::uint64_t r = 0;
  for (; r + 4 <= rows; r += 4, p += 4 * C) (update_vector_at<Update>(p + 4 * K, v), ...);
  const std::uint64_t m = (rows - r) * C;
  const auto tail = [&](std::uint64_t k, const V4& s) {
    if (4 * k + 4 <= m) {
      update_vector_at<Update>(p + 4 * k, s);
    } else if (4 * k < m) {
      const std::uint64_t left = m - 4 * k;
      if (left >= 2) update_vector_at<Update>(p + 4 * k, V2{s[0], s[1]});
      if (left % 2 == 1) Update::apply(p[m - 1], left == 1 ? s[0] : s[2]);
    }
  };
  (tail(K, v), ...);
}

// update_periodic_runs_from with the small entries from q: vector K's lane
// j is q[(4K + j) % C].
template <class Update, std::uint64_t C, std::size_t... K>
[[gnu::always_inline]] inline void update_periodic_runs(double* p, const double* q,
                                                        std::uint64_t rows,
                                                        std::index_sequence<K...> seq) noexcept {
  update_periodic_runs_from<Update, C>(
      p, rows, seq,
      V4{q[(4 * K) % C], q[(4 * K + 1) % C], q[(4 * K + 2) % C], q[(4 * K + 3) % C]}...);
}

// Updates `tiles` tiles of two runs of C (even) entries, run j meeting small
// entry q[j] in every tile, vector K of v holding entries 4K to 4K + 3 of a
// tile: built once.
template <class Update, std::uint64_t C, std::size_t... K, class... S>
[[gnu::always_inline]] inline void update_pair_tiles_from(double* p, std::uint64_t tiles,
                                                          std::index_sequence<K...>,
                                                          const S&... v) noexcept {
  for (std::uint64_t t = 0; t < tiles; ++t, p += 2 * C)
    (update_vector_at<Update>(p + 4 * K, v), ...);
}

template <class Update, std::uint64_t C, std::size_t... K>
[[gnu::always_inline]] inline void update_pair_tiles(double* p, const double* q,
                                                     std::uint64_t tiles,
                                                     std::index_sequence<K...> seq) noexcept {
  update_pair_tiles_from<Update, C>(
      p, tiles, seq,
      V4{q[(4 * K) / C], q[(4 * K + 1) / C], q[(4 * K + 2) / C], q[(4 * K + 3) / C]}...);
}

// Updates `tiles` tiles of an odd number `rows` of runs of two (P runs
// pairs when P is not 0), every run of a tile meeting its two small
// entries, the next tile's two following them: two tiles fill `rows` whole
// vectors, their four small entries one load; the vector between the
// tiles' pairs takes all four.
template <class Update, std::uint64_t P>
[[gnu::always_inline]] inline void update_odd_pair_tiles(double* __restrict p,
                                                         const double* __restrict q,
                                                         std::uint64_t tiles,
                                                         std::uint64_t rows) noexcept {
  const std::uint64_t pairs = P != 0 ? P : rows / 2;
  std::uint64_t t = 0;
  for (; t + 2 <= tiles; t += 2, q += 4) {
    V4 s;
    std::memcpy(&s, q, sizeof s);
    const V4 first = __builtin_shufflevector(s, s, 0, 1, 0, 1);
    const V4 second = __builtin_shufflevector(s, s, 2, 3, 2, 3);
    for (std::uint64_t k = 0; k < pairs; ++k, p += 4) update_vector_at<Update>(p, first);
    update_vector_at<Update>(p, s);
    p += 4;
    for (std::uint64_t k = 0; k < pairs; ++k, p += 4) update_vector_at<Update>(p, second);
  }
  if (t < tiles) {
    const V2 v = {q[0], q[1]};
    const V4 two = __builtin_shufflevector(v, v, 0, 1, 0, 1);
    for (std::uint64_t k = 0; k < pairs; ++k, p += 4) update_vector_at<Update>(p, two);
    update_vector_at<Update>(p, v);
  }
}

// update_rows_body over `tiles` tiles of `rows` runs, the small start moving
// by tile_ss per tile.
template <class Update, std::uint64_t C>
[[gnu::always_inline]] inline void update_tiles_body(
    double* __restrict p, const double* __restrict q, std::uint64_t tiles, std::uint64_t rows,
    std::uint64_t c, std::uint64_t ss, std::uint64_t row_ss, std::uint64_t tile_ss) noexcept {
  const std::uint64_t step = rows * (C != 0 ? C : c);
  if constexpr (C == 2 && Update::kVectors) {
    if (row_ss == 0 && ss == 1 && tile_ss == 2 && rows % 2 == 1) {
      // Seven runs, the commonest (munin2), with the loops unrolled.
      if (rows == 7) update_odd_pair_tiles<Update, 3>(p, q, tiles, rows);
      else update_odd_pair_tiles<Update, 0>(p, q, tiles, rows);
      return;
    }
    if (row_ss == 0) {
      // Every run of a tile meets the same two small entries: the loop over
      // tiles without update_rows_body's choice of case per tile.
      const std::uint64_t pairs = rows / 2;
      for (std::uint64_t t = 0; t < tiles; ++t, p += step, q += tile_ss) {
        const V2 v = {q[0], q[ss]};
        const V4 two = __builtin_shufflevector(v, v, 0, 1, 0, 1);
        double* e = p;
        for (std::uint64_t k = 0; k < pairs; ++k, e += 4) update_vector_at<Update>(e, two);
        if (rows % 2 == 1) update_vector_at<Update>(e, v);
      }
      return;
    }
  }
  if constexpr ((C == 3 || C == 5 || C == 6 || C == 7) && Update::kVectors) {
    if (ss == 1 && row_ss == 0) {
      // Every run of a tile meets the same C contiguous small entries.
      for (std::uint64_t t = 0; t < tiles; ++t, p += step, q += tile_ss)
        update_periodic_runs<Update, C>(p, q, rows, std::make_index_sequence<C>{});
      return;
    }
  }
  if constexpr (C != 0 && C % 2 == 0 && C <= 8 && Update::kVectors) {
    if (ss == 0 && row_ss == 1 && tile_ss == 0 && rows == 2) {
      // Two runs of one small entry each, the same two in every tile.
      update_pair_tiles<Update, C>(p, q, tiles, std::make_index_sequence<C / 2>{});
      return;
    }
  }
  for (std::uint64_t t = 0; t < tiles; ++t, p += step, q += tile_ss)
    update_rows_body<Update, C>(p, q, rows, c, ss, row_ss);
}

// Folds `rows` runs of `c` large entries as update_rows walks them: a run
// whose small entry is constant (ss 0) by fold_run, others entry by entry,
// each small entry meeting its large entries in index order.
template <class Fold, std::uint64_t C>
[[gnu::always_inline]] inline void fold_rows_body(const double* __restrict p, double* __restrict q,
                                                  std::uint64_t rows, std::uint64_t c,
                                                  std::uint64_t ss, std::uint64_t row_ss) noexcept {
  const std::uint64_t n = C != 0 ? C : c;
  if constexpr (C == 0) {
    if (ss == 1) {
      for (std::uint64_t r = 0; r < rows; ++r, p += n, q += row_ss)
#pragma GCC unroll 4
        for (std::uint64_t k = 0; k < n; ++k) q[k] = Fold::fold(q[k], p[k]);
      return;
    }
  }
  if (ss == 0) {
    for (std::uint64_t r = 0; r < rows; ++r, p += n, q += row_ss)
      *q = Fold::fold(*q, fold_run<Fold>(p, n));
  } else if (ss == 1) {
    for (std::uint64_t r = 0; r < rows; ++r, p += n, q += row_ss)
      for (std::uint64_t k = 0; k < n; ++k) q[k] = Fold::fold(q[k], p[k]);
  } else {
    for (std::uint64_t r = 0; r < rows; ++r, p += n, q += row_ss)
      for (std::uint64_t k = 0; k < n; ++k) q[k * ss] = Fold::fold(q[k * ss], p[k]);
  }
}

// The row loops are compiled twice: for the baseline instruction set, and
// for 256-bit vectors (AVX2, chosen at run time where the processor has it).
// AVX2 brings no fused multiply-add, so every product and sum is rounded as
// in the baseline and the bits are the same; only more entries go through
// one instruction.
#if defined(__x86_64__) && defined(__GNUC__)
#define KELVA_WIDE_ROWS 1
template <class Update, std::uint64_t C>
[[gnu::target("avx2")]] void update_rows_wide(double* p, const double* q, std::uint64_t rows,
                                              std::uint64_t c, std::uint64_t ss,
                                              std::uint64_t row_ss) noexcept {
  update_rows_body<Update, C>(p, q, rows, c, ss, row_ss);
}
template <class Update, std::uint64_t C>
[[gnu::target("avx2")]] void update_tiles_wide(double* p, const double* q, std::uint64_t tiles,
                                               std::uint64_t rows, std::uint64_t c,
                                               std::uint64_t ss, std::uint64_t row_ss,
                                               std::uint64_t tile_ss) noexcept {
  update_tiles_body<Update, C>(p, q, tiles, rows, c, ss, row_ss, tile_ss);
}
template <class Fold, std::uint64_t C>
[[gnu::target("avx2")]] void fold_rows_wide(const double* p, double* q, std::uint64_t rows,
                                            std::uint64_t c, std::uint64_t ss,
                                            std::uint64_t row_ss) noexcept {
  fold_rows_body<Fold, C>(p, q, rows, c, ss, row_ss);
}
#endif

// out[i] := num[i] / divisor(den[i]), a vector of V's lanes at a time.  GCC
// turns the scalar loop's division by 1 back into a branch, which keeps it
// from vectorising; the vector form divides every lane, and x / 1 is x, so
// the bits are those of the scalar loop.  Each step reads its entries
// before it writes them, so `out` may be `num` or `den`.
template <class V>
[[gnu::always_inline]] inline void quotient_entries_body(double* out, const double* num,
                                                         const double* den,
                                                         std::uint64_t n) noexcept {
  constexpr std::uint64_t kLanes = sizeof(V) / sizeof(double);
  std::uint64_t i = 0;
  for (; i + kLanes <= n; i += kLanes) {
    V a, b;
    std::memcpy(&a, num + i, sizeof a);
    std::memcpy(&b, den + i, sizeof b);
    const V d = b > V{} ? b : V{} + 1.0;
    a /= d;
    std::memcpy(out + i, &a, sizeof a);
  }
  for (; i < n; ++i) out[i] = num[i] / divisor(den[i]);
}

#ifdef KELVA_WIDE_ROWS
using V8 = double __attribute__((vector_size(64)));

[[gnu::target("avx2")]] void quotient_entries_wide(double* out, const double* num,
                                                   const double* den, std::uint64_t n) noexcept {
  quotient_entries_body<V4>(out, num, den, n);
}

// The same for 512-bit vectors (AVX-512F), where the processor's divider
// takes eight lanes in about the time it takes four.
[[gnu::target("avx512f")]] void quotient_entries_widest(double* out, const double* num,
                                                        const double* den,
                                                        std::uint64_t n) noexcept {
  quotient_entries_body<V8>(out, num, den, n);
}

bool widest_quotients_supported() noexcept {
  __builtin_cpu_init();
  return __builtin_cpu_supports("avx512f") != 0;
}

const bool kWidestQuotients = widest_quotients_supported();
#endif

bool wide_rows_supported() noexcept {
#ifdef KELVA_WIDE_ROWS
  // Initializers may run before libgcc's own, hence the explicit init.
  __builtin_cpu_init();
  return __builtin_cpu_supports("avx2") != 0;
#else
  return false;
#endif
}

const bool kWideRowsPossible = wide_rows_supported();

}  // namespace

std::atomic<bool> wide_rows_on{kWideRowsPossible};

namespace {

template <class Update, std::uint64_t C>
void update_rows(double* p, const double* q, std::uint64_t rows, std::uint64_t c, std::uint64_t ss,
                 std::uint64_t row_ss) noexcept {
#ifdef KELVA_WIDE_ROWS
  if (wide_rows()) return update_rows_wide<Update, C>(p, q, rows, c, ss, row_ss);
#endif
  update_rows_body<Update, C>(p, q, rows, c, ss, row_ss);
}

template <class Update, std::uint64_t C>
void update_tiles(double* p, const double* q, std::uint64_t tiles, std::uint64_t rows,
                  std::uint64_t c, std::uint64_t ss, std::uint64_t row_ss,
                  std::uint64_t tile_ss) noexcept {
#ifdef KELVA_WIDE_ROWS
  if (wide_rows()) return update_tiles_wide<Update, C>(p, q, tiles, rows, c, ss, row_ss, tile_ss);
#endif
  update_tiles_body<Update, C>(p, q, tiles, rows, c, ss, row_ss, tile_ss);
}

template <class Fold, std::uint64_t C>
void fold_rows(const double* p, double* q, std::uint64_t rows, std::uint64_t c, std::uint64_t ss,
               std::uint64_t row_ss) noexcept {
#ifdef KELVA_WIDE_ROWS
  if (wide_rows()) return fold_rows_wide<Fold, C>(p, q, rows, c, ss, row_ss);
#endif
  fold_rows_body<Fold, C>(p, q, rows, c, ss, row_ss);
}

// Folds large entries [begin, end) (whole inner runs) through the plan's map,
// giving the same results as the odometer walks below: runs that fold into
// one small entry are folded by fold_run first, other entries one by one in
// index order.
template <class Fold, std::uint64_t C>
[[gnu::noinline]] void fold_mapped_runs(const IndexPlan& plan, const double* large, double* small,
                                        std::uint64_t begin, std::uint64_t end) {
  const std::uint16_t* m = plan.map();
  if constexpr (C < 4) {
    // fold_run's other three lanes would stay at the identity, and folding
    // them in leaves its first lane as it is (a sum that starts at +0 is
    // never -0), so the first lane alone is the same bits.
#pragma GCC unroll 2
    for (std::uint64_t i = begin; i < end; i += C) {
      double a = Fold::identity();
      for (std::uint64_t k = 0; k < C; ++k) a = Fold::fold(a, large[i + k]);
      small[m[i]] = Fold::fold(small[m[i]], a);
    }
    return;
  }
  for (std::uint64_t i = begin; i < end; i += C)
    small[m[i]] = Fold::fold(small[m[i]], fold_run<Fold>(large + i, C));
}

// Folds the C entries of an inner run into the C consecutive small entries
// it falls on, each entry its own fold: sums two lanes at a time with SSE2
// (the same rounded additions, lane by lane).
template <class Fold, std::uint64_t C>
void fold_run_into(double* s, const double* l) noexcept {
  std::uint64_t k = 0;
#if defined(__x86_64__) && defined(__GNUC__)
  if constexpr (std::is_same_v<Fold, SumFold>)
    for (; k + 2 <= C; k += 2)
      _mm_storeu_pd(s + k, _mm_add_pd(_mm_loadu_pd(s + k), _mm_loadu_pd(l + k)));
#endif
  for (; k < C; ++k) s[k] = Fold::fold(s[k], l[k]);
}

// Folds large entries [begin, end) through the map where the inner run of C
// entries is contiguous in the small table too: entry i + k of a run that
// starts at i falls on small entry m[i] + k.  Entries outside whole runs
// (at the ends of the range) go one by one, so every small entry receives
// its folds in index order, as entry by entry.
template <class Fold, std::uint64_t C>
[[gnu::noinline]] void fold_mapped_contiguous(const IndexPlan& plan, const double* large,
                                              double* small, std::uint64_t begin,
                                              std::uint64_t end) {
  const std::uint16_t* m = plan.map();
  std::uint64_t i = begin;
  for (; i < end && i % C != 0; ++i) small[m[i]] = Fold::fold(small[m[i]], large[i]);
  for (; i + C <= end; i += C) fold_run_into<Fold, C>(small + m[i], large + i);
  for (; i < end; ++i) small[m[i]] = Fold::fold(small[m[i]], large[i]);
}

// As fold_mapped_contiguous where the inner run is the whole small table
// (run i falls on small entries 0 .. C-1): the small entries stay in
// registers over the whole runs instead of being read and written per run.
// Each still receives the same folds in index order, so the bits are the
// same.
// With `Fresh` the small entries start from the fold's identity instead of
// their values (the same bits as clearing them first: runs are whole, so
// every entry is folded in the registers).
template <class Fold, std::uint64_t C, bool Fresh = false>
[[gnu::noinline]] void fold_mapped_columns(const IndexPlan& plan, const double* large,
                                           double* small, std::uint64_t begin, std::uint64_t end) {
  const std::uint16_t* m = plan.map();
  std::uint64_t i = begin;
  // A fresh fold starts its registers at the identity, so its range must
  // start on a whole run: no partial run is folded into the table first.
  if constexpr (Fresh) assert(begin % C == 0);
  if constexpr (!Fresh)
    for (; i < end && i % C != 0; ++i) small[m[i]] = Fold::fold(small[m[i]], large[i]);
#if defined(__x86_64__) && defined(__GNUC__)
  if constexpr (std::is_same_v<Fold, SumFold>) {
    __m128d pairs[C / 2];
    for (std::uint64_t k = 0; k < C / 2; ++k)
      pairs[k] = Fresh ? _mm_set1_pd(Fold::identity()) : _mm_loadu_pd(small + 2 * k);
    double last = Fresh ? Fold::identity() : small[C - 1];
#pragma GCC unroll 2
    for (; i + C <= end; i += C) {
      for (std::uint64_t k = 0; k < C / 2; ++k)
        pairs[k] = _mm_add_pd(pairs[k], _mm_loadu_pd(large + i + 2 * k));
      if constexpr (C % 2 != 0) last += large[i + C - 1];
    }
    for (std::uint64_t k = 0; k < C / 2; ++k) _mm_storeu_pd(small + 2 * k, pairs[k]);
    if constexpr (C % 2 != 0) small[C - 1] = last;
  } else
#endif
  {
    double held[C];
    if constexpr (Fresh) std::fill_n(held, C, Fold::identity());
    else std::copy_n(small, C, held);
    for (; i + C <= end; i += C)
      for (std::uint64_t k = 0; k < C; ++k) held[k] = Fold::fold(held[k], large[i + k]);
    std::copy_n(held, C, small);
  }
  for (; i < end; ++i) small[m[i]] = Fold::fold(small[m[i]], large[i]);
}

// Entry by entry, each large entry folded into the small entry the map gives.
template <class Fold>
void fold_mapped_entries(const IndexPlan& plan, const double* large, double* small,
                         std::uint64_t begin, std::uint64_t end) {
  const std::uint16_t* m = plan.map();
#pragma GCC unroll 4
  for (std::uint64_t i = begin; i < end; ++i) small[m[i]] = Fold::fold(small[m[i]], large[i]);
}

// Runs of a length without a kind of its own that each fold into one small
// entry.
template <class Fold>
void fold_mapped_any_runs(const IndexPlan& plan, const double* large, double* small,
                          std::uint64_t begin, std::uint64_t end) {
  const std::uint16_t* m = plan.map();
  const std::uint64_t run = plan.axes().back().count;
  for (std::uint64_t i = begin; i < end; i += run)
    small[m[i]] = Fold::fold(small[m[i]], fold_run<Fold>(large + i, run));
}

// A fold kernel that first sets the small table to the fold's identity,
// so that a caller clears and folds in one call.
template <class Fold, FoldKernel Kernel>
void fold_fresh(const IndexPlan& plan, const double* large, double* small, std::uint64_t begin,
                std::uint64_t end) {
  // Stored here rather than through memset, whose call costs more than a
  // few entries: the empty asm keeps the loop a loop.  Two entries a store
  // where SSE2 is there (every x86-64).
  const std::uint64_t n = plan.small_size();
  std::uint64_t k = 0;
#if defined(__x86_64__) && defined(__GNUC__)
  const __m128d identity = _mm_set1_pd(Fold::identity());
  for (; k + 2 <= n; k += 2) {
    _mm_storeu_pd(small + k, identity);
    asm("" : : "r"(small) : "memory");
  }
#endif
  for (; k < n; ++k) {
    small[k] = Fold::identity();
#if defined(__GNUC__)
    asm("" : : "r"(small) : "memory");
#endif
  }
  Kernel(plan, large, small, begin, end);
}

template <class Fold, bool Fresh, FoldKernel Kernel>
constexpr FoldKernel maybe_fresh() noexcept {
  if constexpr (Fresh) return fold_fresh<Fold, Kernel>;
  else return Kernel;
}

// The kind of fold for an inner run of C entries: folding into one small
// entry (small stride 0), into the whole small table, or into C consecutive
// small entries.
template <class Fold, std::uint64_t C, bool Fresh>
FoldKernel fold_mapped_of_length(std::uint64_t ss, bool whole) noexcept {
  if (ss == 0) {
    if constexpr (C == 12) return maybe_fresh<Fold, Fresh, fold_mapped_any_runs<Fold>>();
    else return maybe_fresh<Fold, Fresh, fold_mapped_runs<Fold, C>>();
  }
  if constexpr (C == 5) return maybe_fresh<Fold, Fresh, fold_mapped_entries<Fold>>();
  else
    return whole ? fold_mapped_columns<Fold, C, Fresh>
                 : maybe_fresh<Fold, Fresh, fold_mapped_contiguous<Fold, C>>();
}

// The fold through the plan's map: by the inner run's small stride and
// length, chosen once.  With `Fresh` the kernel clears the small table
// first.
template <class Fold, bool Fresh = false>
FoldKernel fold_mapped_kind(const IndexPlan& plan) noexcept {
  const std::uint64_t ss = plan.inner_small_stride();
  const std::uint64_t run = plan.axes().back().count;
  if (ss <= 1) {
    const bool whole = ss == 1 && run == plan.small_size();
    switch (run) {
      case 2:
        return fold_mapped_of_length<Fold, 2, Fresh>(ss, whole);
      case 3:
        return fold_mapped_of_length<Fold, 3, Fresh>(ss, whole);
      case 4:
        return fold_mapped_of_length<Fold, 4, Fresh>(ss, whole);
      case 5:
        return fold_mapped_of_length<Fold, 5, Fresh>(ss, whole);
      case 6:
        return fold_mapped_of_length<Fold, 6, Fresh>(ss, whole);
      case 8:
        return fold_mapped_of_length<Fold, 8, Fresh>(ss, whole);
      case 9:
        return fold_mapped_of_length<Fold, 9, Fresh>(ss, whole);
      case 12:
        return fold_mapped_of_length<Fold, 12, Fresh>(ss, whole);
      default:
        break;
    }
  }
  return ss == 0 ? maybe_fresh<Fold, Fresh, fold_mapped_any_runs<Fold>>()
                 : maybe_fresh<Fold, Fresh, fold_mapped_entries<Fold>>();
}

template <class Fold>
void fold_mapped(const IndexPlan& plan, const double* large, double* small, std::uint64_t begin,
                 std::uint64_t end) {
  fold_mapped_kind<Fold>(plan)(plan, large, small, begin, end);
}

// Folds large entries [begin, end) into the small table, run by run (by
// tiles of runs where the plan keeps no map): a range that starts and ends
// on inner-run boundaries folds each run exactly as a whole walk would.
template <class Fold>
void fold_range(const IndexPlan& plan, const double* large, double* small, std::uint64_t begin,
                std::uint64_t end) {
  if (plan.map() != nullptr) return fold_mapped<Fold>(plan, large, small, begin, end);
  if constexpr (std::is_same_v<Fold, SumFold>) fold_tiles_sum(plan, large, small, begin, end);
  else fold_tiles_max(plan, large, small, begin, end);
}

// Folds the whole large table, or (on a thread) the slice of it whose values
// on `slice_axis` lie in [first, last).
template <class Fold>
void fold_walk(const IndexPlan& plan, const double* large, double* small, std::size_t slice_axis,
               std::uint64_t first, std::uint64_t last) {
  if (slice_axis == static_cast<std::size_t>(-1))
    return fold_range<Fold>(plan, large, small, 0, plan.large_size());
  const std::uint64_t ss = plan.inner_small_stride();
  plan.visit_slice(slice_axis, first, last, [&](std::uint64_t l, std::uint64_t s, std::uint64_t n) {
    fold_rows<Fold, 0>(large + l, small + s, 1, n, ss, 0);
  });
}

template <class Fold>
void fold_plan(const IndexPlan& plan, const double* large, double* small, const Parallelism& par) {
  const std::uint64_t n = plan.large_size();
  std::fill(small, small + plan.small_size(), Fold::identity());

  if (plan.small_size() == 1) {
    // One result: the large table is a single run.  Its blocks depend only
    // on the size and the grain, so any number of threads gives the same sum.
    const std::uint64_t grain = std::max<std::uint64_t>(par.grain, 1);
    const std::uint64_t blocks = n / 2 < grain ? 1 : std::min(kMaxPieces, n / grain);
    double partial[kMaxPieces];
    auto body = [&](std::uint64_t j) {
      const std::uint64_t start = piece_start(n, blocks, j);
      partial[j] = fold_run<Fold>(large + start, piece_start(n, blocks, j + 1) - start);
    };
    run_pieces(blocks, par.threads, body);
    double total = Fold::identity();
    for (std::uint64_t j = 0; j < blocks; ++j) total = Fold::fold(total, partial[j]);
    small[0] = total;
    return;
  }

  const std::uint64_t wanted = piece_count(n, par);
  if (wanted > 1) {
    // Slice along an axis present in the small table: slices then write
    // disjoint small entries, each in the same order as one thread would.
    // The outermost axis with enough values, else the one with the most.
    const auto axes = plan.axes();
    std::size_t axis = static_cast<std::size_t>(-1);
    for (std::size_t i = 0; i < axes.size(); ++i) {
      if (axes[i].small_stride == 0) continue;
      if (axis == static_cast<std::size_t>(-1) || axes[i].count > axes[axis].count) axis = i;
      if (axes[i].count >= wanted) {
        axis = i;
        break;
      }
    }
    const std::uint64_t values = axes[axis].count;
    const std::uint64_t pieces = std::min(wanted, values);
    if (pieces > 1) {
      auto body = [&](std::uint64_t j) {
        fold_walk<Fold>(plan, large, small, axis, piece_start(values, pieces, j),
                        piece_start(values, pieces, j + 1));
      };
      run_pieces(pieces, par.threads, body);
      return;
    }
  }
  fold_walk<Fold>(plan, large, small, static_cast<std::size_t>(-1), 0, 0);
}

// Applies Update to large entries [begin, end) with the small entries the
// map `m` gives them.
template <class Update>
void update_mapped_body(double* __restrict large, const double* __restrict small,
                        const std::uint16_t* m, std::uint64_t begin, std::uint64_t end) noexcept {
  for (std::uint64_t i = begin; i < end; ++i) Update::apply(large[i], small[m[i]]);
}

#ifdef KELVA_WIDE_ROWS
// update_mapped_body for products and copies with 256-bit vectors: four
// small entries are loaded one by one by their indexes and put together,
// which took 0.26 ns an entry where the gather instruction took 0.68 (a
// 512-entry clique from a 100-entry table in the first-level cache).  Each
// product is the same rounded multiplication, so the bits are the
// baseline's.
template <class Update>
[[gnu::target("avx2")]] void update_mapped_wide(const IndexPlan& plan, double* __restrict large,
                                                const double* __restrict small, std::uint64_t begin,
                                                std::uint64_t end) {
  const std::uint16_t* m = plan.map();
  std::uint64_t i = begin;
#pragma GCC unroll 2
  for (; i + 4 <= end; i += 4) {
    const __m256d s = _mm256_set_pd(small[m[i + 3]], small[m[i + 2]], small[m[i + 1]], small[m[i]]);
    if constexpr (std::is_same_v<Update, CopyUpdate>) _mm256_storeu_pd(large + i, s);
    else _mm256_storeu_pd(large + i, _mm256_mul_pd(_mm256_loadu_pd(large + i), s));
  }
  update_mapped_body<Update>(large, small, m, i, end);
}
#endif

#ifdef KELVA_WIDE_ROWS
// The most quotients quotient_product_mapped_wide makes on its stack.
constexpr std::uint64_t kStackQuotients = 512;

// large[i] *= q[m[i]] for i < n, where q := fresh / old by quotient_entries'
// rule over the small table: quotient_entries_wide and
// update_mapped_wide<MultiplyUpdate> in one call, the quotients on the
// stack.  The last one to three quotients are made by masked lanes, which
// read nothing and whose results are never used; each quotient and product
// is the same rounded operation, so the bits are those of the two kernels.
[[gnu::target("avx2")]] void quotient_product_mapped_wide(const IndexPlan& plan,
                                                          double* __restrict large,
                                                          const double* fresh, const double* old,
                                                          std::uint64_t n) {
  alignas(32) double q[kStackQuotients];
  const std::uint64_t k = plan.small_size();
  const __m256d zero = _mm256_setzero_pd();
  const __m256d one = _mm256_set1_pd(1.0);
  std::uint64_t j = 0;
  for (; j + 4 <= k; j += 4) {
    const __m256d b = _mm256_loadu_pd(old + j);
    const __m256d d = _mm256_blendv_pd(one, b, _mm256_cmp_pd(b, zero, _CMP_GT_OQ));
    _mm256_store_pd(q + j, _mm256_div_pd(_mm256_loadu_pd(fresh + j), d));
  }
  if (j < k) {
    // Lanes below k - j are taken (their sign bit set).
    const __m256i lane = _mm256_setr_epi64x(0, 1, 2, 3);
    const __m256i mask =
        _mm256_cmpgt_epi64(_mm256_set1_epi64x(static_cast<long long>(k - j)), lane);
    const __m256d b = _mm256_maskload_pd(old + j, mask);
    const __m256d d = _mm256_blendv_pd(one, b, _mm256_cmp_pd(b, zero, _CMP_GT_OQ));
    _mm256_store_pd(q + j, _mm256_div_pd(_mm256_maskload_pd(fresh + j, mask), d));
  }
  update_mapped_wide<MultiplyUpdate>(plan, large, q, 0, n);
}
#endif

template <class Update>
void update_mapped_plain(const IndexPlan& plan, double* large, const double* small,
                         std::uint64_t begin, std::uint64_t end) {
  update_mapped_body<Update>(large, small, plan.map(), begin, end);
}

// The kind of update through the plan's map, chosen once.
template <class Update>
UpdateKernel update_mapped_kind() noexcept {
#ifdef KELVA_WIDE_ROWS
  if constexpr (!std::is_same_v<Update, DivideUpdate>)
    if (wide_rows()) return update_mapped_wide<Update>;
#endif
  return update_mapped_plain<Update>;
}

// Turns of the two innermost axes shorter than this are walked by tiles.
// Against thresholds of 32, 64, 128 and 2048 (about every turn), munin2
// took 1.7, 0.8, 0.0 and 0.2% fewer instructions, barley 1.6, 0.9, 0.3 and
// 0.0% fewer.
constexpr std::uint64_t kTiledTurnsBelow = 256;

// Applies Update to every large entry over [begin, end) with its small entry.
template <class Update>
void update_walk(const IndexPlan& plan, double* large, const double* small, std::uint64_t begin,
                 std::uint64_t end) {
  if (plan.map() != nullptr) return update_mapped_kind<Update>()(plan, large, small, begin, end);
  const auto axes = plan.axes();
  const std::size_t a = axes.size();
  const std::uint64_t ss = axes[a - 1].small_stride;
  if (a < 3 || axes[a - 1].count * axes[a - 2].count >= kTiledTurnsBelow) {
    // Long turns of the two innermost axes gain nothing from tiles: the
    // row loop's own setup per turn outweighs the odometer step it saves.
    walk_by_rows(
        plan, begin, end, [&](auto l, auto s, auto rows, auto n, auto row_ss, auto length) {
          update_rows<Update, decltype(length)::value>(large + l, small + s, rows, n, ss, row_ss);
        });
    return;
  }
  const std::uint64_t row_ss = axes[a - 2].small_stride, tile_ss = axes[a - 3].small_stride;
  with_run_length(axes[a - 1].count, [&](auto length) {
    plan.walk_tiles(begin, end, [&](auto l, auto s, auto tiles, auto rows, auto n, auto whole) {
      constexpr std::uint64_t kLength = decltype(whole)::value ? decltype(length)::value : 0;
      update_tiles<Update, kLength>(large + l, small + s, tiles, rows, n, ss, row_ss, tile_ss);
    });
  });
}

// Large entries are written by exactly one piece each, so pieces are simply
// ranges of the large table.
template <class Update>
void update_plan(const IndexPlan& plan, double* large, const double* small,
                 const Parallelism& par) {
  const std::uint64_t n = plan.large_size();
  const std::uint64_t pieces = piece_count(n, par);
  auto body = [&](std::uint64_t j) {
    update_walk<Update>(plan, large, small, piece_start(n, pieces, j),
                        piece_start(n, pieces, j + 1));
  };
  run_pieces(pieces, par.threads, body);
}

// Multiplies and folds block by block, each block while it is in the
// first-level cache.  Blocks hold whole inner runs of the fold's plan.
template <class Fold>
void fused_multiply_fold(const IndexPlan& mplan, double* large, const double* factor,
                         const IndexPlan& fplan, double* small) {
  constexpr std::uint64_t kBlock = 2048;
  std::fill(small, small + fplan.small_size(), Fold::identity());
  const std::uint64_t n = mplan.large_size();
  const std::uint64_t run = fplan.axes().back().count;
  const std::uint64_t block = run >= kBlock ? run : kBlock / run * run;
  for (std::uint64_t a = 0; a < n; a += block) {
    const std::uint64_t b = std::min(n, a + block);
    update_walk<MultiplyUpdate>(mplan, large, factor, a, b);
    fold_range<Fold>(fplan, large, small, a, b);
  }
}

// Applies the factors of a sweep to large entries [begin, end).
void apply_factors(double* large, bool rebuild, std::span<const SweepFactor> factors,
                   std::uint64_t begin, std::uint64_t end) {
  std::size_t k = 0;
  if (rebuild) {
    // The first factor is copied in: 1 * x is x, bit for bit.
    if (factors.empty()) std::fill(large + begin, large + end, 1.0);
    else update_walk<CopyUpdate>(*factors[0].plan, large, factors[0].data, begin, end);
    k = 1;
  }
  for (; k < factors.size(); ++k)
    update_walk<MultiplyUpdate>(*factors[k].plan, large, factors[k].data, begin, end);
}

// Whether small entry r takes inner run r alone: the small table is the
// large one without its inner axis, in the same order (two merged axes).
bool one_run_per_entry(const IndexPlan& plan) noexcept {
  const auto axes = plan.axes();
  return axes.size() == 2 && axes[0].small_stride == 1 && axes[1].small_stride == 0;
}

// Folds large entries [begin, end), on whole inner runs, into the fold's
// small table; with `stored`, a fold of one run per entry stores its runs'
// folds instead (the bits of clearing the entries and folding into them),
// so that its table need not be cleared first.
template <class Fold>
void fold_block(const SweepFold& f, const double* large, std::uint64_t begin, std::uint64_t end,
                bool stored) {
  const IndexPlan& plan = *f.plan;
  if (plan.small_size() <= 1) return;
  if (stored && one_run_per_entry(plan)) {
    const std::uint64_t c = plan.inner_count();
    if constexpr (std::is_same_v<Fold, SumFold>)
      store_runs_sum(large, f.data, c, begin / c, (end - begin) / c);
    else store_runs_max(large, f.data, c, begin / c, (end - begin) / c);
    return;
  }
  fold_range<Fold>(plan, large, f.data, begin, end);
}

// Entries of the buffer a discarding sweep builds its blocks in (on the
// stack), with room to give each block the table's alignment modulo 64
// bytes.
constexpr std::uint64_t kDiscardBlock = 4096;
constexpr std::uint64_t kDiscardSlack = 8;

// Applies the factors to large entries [begin, end) and folds them into
// every fold with more than one entry, in blocks that each stay in the
// first-level cache.  `begin` and `end` lie on whole inner runs of every
// fold, and so do the blocks (their least common multiple), so each run is
// folded as a whole walk would fold it.  With `stored`, folds of one run
// per entry are stored, not added to (fold_block).  With `Discard` (a
// rebuild whose folded run fits kDiscardBlock), each block is built in a
// buffer instead of the table, which is left as it was: the kernels get
// the buffer moved back by the block's start, so they index it as the
// table, at the table's alignment modulo 64 bytes.  The same operations on
// the same values, so the folds get the same bits.
template <class Fold, bool Discard = false>
void sweep_blocks(double* large, bool rebuild, std::span<const SweepFactor> factors,
                  std::span<const SweepFold> folds, std::uint64_t begin, std::uint64_t end,
                  bool stored = false) {
  constexpr std::uint64_t kBlock = 2048;
  // Small ranges (small cliques) are not worth planning a joint walk for.
  constexpr std::uint64_t kJointLeast = 1024;
  // A block holds more than kBlock / 2 entries whatever the runs, so a
  // smaller range is one block.
  static_assert(kJointLeast <= kBlock / 2 && kBlock <= kDiscardBlock);
  alignas(64) double buffer[Discard ? kDiscardBlock + kDiscardSlack : 1];
  // The block [a, b) in the table, or in the buffer moved back by a.
  auto place = [&](std::uint64_t a) {
    if (!Discard) return large;
    const auto at = reinterpret_cast<std::uintptr_t>(large + a);
    const std::uintptr_t start = reinterpret_cast<std::uintptr_t>(buffer) + (at & 63);
    return reinterpret_cast<double*>(start - a * sizeof(double));
  };
  if (end - begin < kJointLeast) {
    double* to = place(begin);
    apply_factors(to, rebuild, factors, begin, end);
    for (const SweepFold& f : folds) fold_block<Fold>(f, to, begin, end, stored);
    return;
  }
  const std::uint64_t run = folded_run(folds);
  const std::uint64_t block = run >= kBlock ? run : kBlock / run * run;
  JointPlan joint;
  const bool jointly = end - begin >= kJointLeast && make_joint_plan(factors, joint) &&
                       joint_pays(joint, factors, rebuild);
  for (std::uint64_t a = begin; a < end; a += block) {
    const std::uint64_t b = std::min(end, a + block);
    double* to = place(a);
    if (jointly) apply_joint(joint, to, rebuild, factors, a, b);
    else apply_factors(to, rebuild, factors, a, b);
    for (const SweepFold& f : folds) fold_block<Fold>(f, to, a, b, stored);
  }
}

template <class Fold, bool Discard = false>
void sweep_with(double* large, std::uint64_t n, bool rebuild, std::span<const SweepFactor> factors,
                std::span<const SweepFold> folds, const Parallelism& par) {
  // Totals (one entry) are summed in blocks of their own, after the sweep;
  // folds of one run per entry are stored by the sweep, so not cleared.
  for (const SweepFold& f : folds)
    if (f.plan->small_size() > 1 && !one_run_per_entry(*f.plan))
      std::fill(f.data, f.data + f.plan->small_size(), Fold::identity());
  sweep_blocks<Fold, Discard>(large, rebuild, factors, folds, 0, n, true);
  for (const SweepFold& f : folds)
    if (f.plan->small_size() == 1) fold_plan<Fold>(*f.plan, large, f.data, par);
}

}  // namespace

void set_wide_rows(bool allowed) noexcept {
  wide_rows_on.store(allowed && kWideRowsPossible, std::memory_order_relaxed);
}

void marginalize(const IndexPlan& plan, const double* large, double* small, Reduce how,
                 const Parallelism& parallelism) {
  if (how == Reduce::sum) fold_plan<SumFold>(plan, large, small, parallelism);
  else fold_plan<MaxFold>(plan, large, small, parallelism);
}

void multiply(const IndexPlan& plan, double* large, const double* small,
              const Parallelism& parallelism) {
  update_plan<MultiplyUpdate>(plan, large, small, parallelism);
}

void divide(const IndexPlan& plan, double* large, const double* small,
            const Parallelism& parallelism) {
  update_plan<DivideUpdate>(plan, large, small, parallelism);
}

void multiply_marginalize(const IndexPlan& multiply_plan, double* large, const double* factor,
                          const IndexPlan& marginal_plan, double* small, Reduce how,
                          const Parallelism& parallelism) {
  // Work that would be split over threads, and totals (summed in blocks of
  // their own), take the two kernels one after the other.
  if (piece_count(multiply_plan.large_size(), parallelism) > 1 || marginal_plan.small_size() == 1) {
    multiply(multiply_plan, large, factor, parallelism);
    marginalize(marginal_plan, large, small, how, parallelism);
  } else if (how == Reduce::sum) {
    fused_multiply_fold<SumFold>(multiply_plan, large, factor, marginal_plan, small);
  } else {
    fused_multiply_fold<MaxFold>(multiply_plan, large, factor, marginal_plan, small);
  }
}

void multiply_runs(double* large, const double* per_run, std::uint64_t m, std::uint64_t begin,
                   std::uint64_t end) noexcept {
  std::uint64_t i = begin;
  if (const std::uint64_t at = i % m; at != 0 && i < end) {
    const std::uint64_t to = std::min(end, i - at + m);
    update_rows<MultiplyUpdate, 0>(large + i, per_run++, 1, to - i, 0, 0);
    i = to;
  }
  const std::uint64_t whole = (end - i) / m;
  update_rows<MultiplyUpdate, 0>(large + i, per_run, whole, m, 0, 1);
  i += whole * m;
  if (i < end) update_rows<MultiplyUpdate, 0>(large + i, per_run + whole, 1, end - i, 0, 0);
}

std::uint64_t folded_run(std::span<const SweepFold> folds) noexcept {
  std::uint64_t run = 1;
  for (const SweepFold& f : folds)
    if (f.plan->small_size() > 1 && f.plan->inner_small_stride() == 0) {
      const std::uint64_t c = f.plan->axes().back().count;
      if (run % c != 0) run = std::lcm(run, c);
    }
  return run;
}

void clear_folds(std::span<const SweepFold> folds, Reduce how) noexcept {
  const double identity = how == Reduce::sum ? SumFold::identity() : MaxFold::identity();
  for (const SweepFold& f : folds)
    if (f.plan->small_size() > 1) std::fill(f.data, f.data + f.plan->small_size(), identity);
}

void sweep(double* large, std::uint64_t size, bool rebuild, std::span<const SweepFactor> factors,
           std::span<SweepFold> folds, Reduce how, const Parallelism& parallelism) {
  if (split_sweep_fits(size, parallelism)) {
    split_sweep(large, size, rebuild, factors, folds, how, parallelism);
  } else if (how == Reduce::sum) {
    sweep_with<SumFold>(large, size, rebuild, factors, folds, parallelism);
  } else {
    sweep_with<MaxFold>(large, size, rebuild, factors, folds, parallelism);
  }
}

bool sweep_folds_only(double* large, std::uint64_t size, std::span<const SweepFactor> factors,
                      std::span<SweepFold> folds, Reduce how, const Parallelism& parallelism) {
  // A total reads the finished table, and a block holds a folded run whole.
  bool discard = folded_run(folds) <= kDiscardBlock;
  for (const SweepFold& f : folds) discard = discard && f.plan->small_size() > 1;
  if (split_sweep_fits(size, parallelism))
    return split_sweep(large, size, true, factors, folds, how, parallelism, discard);
  if (!discard) {
    sweep(large, size, true, factors, folds, how, parallelism);
  } else if (how == Reduce::sum) {
    sweep_with<SumFold, true>(large, size, true, factors, folds, parallelism);
  } else {
    sweep_with<MaxFold, true>(large, size, true, factors, folds, parallelism);
  }
  return discard;
}

void sweep_range(double* large, bool rebuild, std::span<const SweepFactor> factors,
                 std::span<const SweepFold> folds, std::uint64_t begin, std::uint64_t end,
                 Reduce how, bool discard) {
  if (discard) {
    if (how == Reduce::sum) sweep_blocks<SumFold, true>(large, rebuild, factors, folds, begin, end);
    else sweep_blocks<MaxFold, true>(large, rebuild, factors, folds, begin, end);
  } else if (how == Reduce::sum) {
    sweep_blocks<SumFold>(large, rebuild, factors, folds, begin, end);
  } else {
    sweep_blocks<MaxFold>(large, rebuild, factors, folds, begin, end);
  }
}

namespace {

template <class Update>
void update_walk_kernel(const IndexPlan& plan, double* large, const double* small,
                        std::uint64_t begin, std::uint64_t end) {
  update_walk<Update>(plan, large, small, begin, end);
}

// Plans of one axis (a table of a few entries, such as a node's own table
// in its clique): the small table is the large one's layout or a single
// value, so the row walk's setup is skipped.  Each entry takes the same
// update, so the bits are update_walk's.
template <class Update>
void update_line_kernel(const IndexPlan& plan, double* __restrict large,
                        const double* __restrict small, std::uint64_t begin, std::uint64_t end) {
  if (plan.axes()[0].small_stride == 0) {
    const double s = small[0];
    for (std::uint64_t i = begin; i < end; ++i) Update::apply(large[i], s);
    return;
  }
  for (std::uint64_t i = begin; i < end; ++i) Update::apply(large[i], small[i]);
}

// The walk of a plan without a map.
template <class Update>
UpdateKernel update_walk_kind(const IndexPlan& plan) noexcept {
  const auto axes = plan.axes();
  if (axes.size() == 1 && axes[0].small_stride <= 1) return update_line_kernel<Update>;
  return update_walk_kernel<Update>;
}

}  // namespace

UpdateKernel multiply_kernel(const IndexPlan& plan) noexcept {
  if (plan.map() != nullptr) return update_mapped_kind<MultiplyUpdate>();
  return update_walk_kind<MultiplyUpdate>(plan);
}

QuotientProductKernel quotient_product_kernel(const IndexPlan& plan) noexcept {
#ifdef KELVA_WIDE_ROWS
  if (plan.map() != nullptr && plan.small_size() <= kStackQuotients && wide_rows())
    return quotient_product_mapped_wide;
#endif
  (void)plan;
  return nullptr;
}

UpdateKernel copy_kernel(const IndexPlan& plan) noexcept {
  if (plan.map() != nullptr) return update_mapped_kind<CopyUpdate>();
  return update_walk_kind<CopyUpdate>(plan);
}

FoldKernel fold_kernel(const IndexPlan& plan, Reduce how) noexcept {
  if (plan.map() != nullptr)
    return how == Reduce::sum ? fold_mapped_kind<SumFold>(plan) : fold_mapped_kind<MaxFold>(plan);
  return how == Reduce::sum ? fold_tiles_sum : fold_tiles_max;
}

FoldKernel fresh_fold_kernel(const IndexPlan& plan, Reduce how) noexcept {
  if (plan.map() != nullptr)
    return how == Reduce::sum ? fold_mapped_kind<SumFold, true>(plan)
                              : fold_mapped_kind<MaxFold, true>(plan);
  return how == Reduce::sum ? fold_fresh<SumFold, fold_tiles_sum>
                            : fold_fresh<MaxFold, fold_tiles_max>;
}

void gather(const IndexPlan& plan, double* out, const double* small,
            const Parallelism& parallelism) {
  update_plan<CopyUpdate>(plan, out, small, parallelism);
}

void quotient(double* out, const double* num, const double* den, std::uint64_t count,
              const Parallelism& parallelism) {
  const std::uint64_t pieces = piece_count(count, parallelism);
  auto body = [&](std::uint64_t j) {
    const std::uint64_t start = piece_start(count, pieces, j);
    const std::uint64_t end = piece_start(count, pieces, j + 1);
    quotient_entries(out + start, num + start, den + start, end - start);
  };
  run_pieces(pieces, parallelism.threads, body);
}

namespace {

void quotient_entries_plain(double* out, const double* num, const double* den,
                            std::uint64_t count) noexcept {
  quotient_entries_body<V2>(out, num, den, count);
}

}  // namespace

QuotientKernel quotient_kernel() noexcept {
#ifdef KELVA_WIDE_ROWS
  if (wide_rows()) return kWidestQuotients ? quotient_entries_widest : quotient_entries_wide;
#endif
  return quotient_entries_plain;
}

void quotient_entries(double* out, const double* num, const double* den,
                      std::uint64_t count) noexcept {
  quotient_kernel()(out, num, den, count);
}

void marginalize(const Table& from, Table& to, Reduce how) {
  const IndexPlan plan = IndexPlan::between(from, to);
  const double* large = from.data();
  marginalize(plan, large, to.data(), how, Parallelism::of(from.domain()));
}

void multiply(Table& table, const Table& by) {
  const IndexPlan plan = IndexPlan::between(table, by);
  const double* small = by.data();
  multiply(plan, table.data(), small, Parallelism::of(table.domain()));
}

void divide(Table& table, const Table& by) {
  const IndexPlan plan = IndexPlan::between(table, by);
  const double* small = by.data();
  divide(plan, table.data(), small, Parallelism::of(table.domain()));
}

}  // namespace kelva
