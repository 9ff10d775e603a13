#pragma once

#include <cmath>
#include <cstdint>

#include "table/index_plan.h"

namespace kelva {

// Fold operations of marginalization.
struct SumFold {
  static constexpr double identity() noexcept { return 0.0; }
  static double fold(double a, double b) noexcept { return a + b; }
};
struct MaxFold {
  static constexpr double identity() noexcept { return -HUGE_VAL; }
  static double fold(double a, double b) noexcept { return b > a ? b : a; }
};

/// The fold of p[0 .. n-1], in four interleaved lanes combined at the end:
/// the additions of a long run then overlap instead of waiting on each other.
/// The grouping depends on n only, so results do not depend on threads.
template <class Fold>
[[gnu::always_inline]] inline double fold_run(const double* p, std::uint64_t n) noexcept {
  double a0 = Fold::identity(), a1 = a0, a2 = a0, a3 = a0;
  std::uint64_t k = 0;
  // Two steps of every lane per turn: half the loop's own instructions.
  for (; k + 8 <= n; k += 8) {
    a0 = Fold::fold(a0, p[k]);
    a1 = Fold::fold(a1, p[k + 1]);
    a2 = Fold::fold(a2, p[k + 2]);
    a3 = Fold::fold(a3, p[k + 3]);
    a0 = Fold::fold(a0, p[k + 4]);
    a1 = Fold::fold(a1, p[k + 5]);
    a2 = Fold::fold(a2, p[k + 6]);
    a3 = Fold::fold(a3, p[k + 7]);
  }
  for (; k + 4 <= n; k += 4) {
    a0 = Fold::fold(a0, p[k]);
    a1 = Fold::fold(a1, p[k + 1]);
    a2 = Fold::fold(a2, p[k + 2]);
    a3 = Fold::fold(a3, p[k + 3]);
  }
  for (; k < n; ++k) a0 = Fold::fold(a0, p[k]);
  return Fold::fold(Fold::fold(a0, a1), Fold::fold(a2, a3));
}

/// Folds large entries [begin, end) of a plan without an index map into
/// its small table, as the plain odometer walk does: a run whose small
/// entry is constant by fold_run (a piece of a run at either end of the
/// range as a run of its own), other entries one by one, each small entry
/// meeting its large entries in index order.  The walk covers a tile of
/// the three innermost axes per call of its loop (runs, rows of runs,
/// tiles of rows), the run length a constant for runs of 2 to 15, and
/// turns the odometer only over the axes outside.
void fold_tiles_sum(const IndexPlan& plan, const double* large, double* small, std::uint64_t begin,
                    std::uint64_t end) noexcept;
void fold_tiles_max(const IndexPlan& plan, const double* large, double* small, std::uint64_t begin,
                    std::uint64_t end) noexcept;

/// small[r] := the fold of the identity and of run r, for the `count` runs
/// of c entries from run `first` (run r at large + r * c), each by
/// fold_run: the bits of clearing small[r] and folding its run into it, for
/// a plan whose small table is the large one without its inner axis.
void store_runs_sum(const double* large, double* small, std::uint64_t c, std::uint64_t first,
                    std::uint64_t count) noexcept;
void store_runs_max(const double* large, double* small, std::uint64_t c, std::uint64_t first,
                    std::uint64_t count) noexcept;

}  // namespace kelva
