#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <numeric>
#include <random>
#include <thread>
#include <vector>

#include "table/index_plan.h"
#include "table/sweep.h"

namespace kelva {
namespace {

// A sweep shared between threads gives the bits of one thread's sweep, on
// random shapes with random factors and folds: folds the cut covers, folds
// it misses (one or several), totals, sum and max, rebuilt or multiplied.
TEST(SplitSweep, SameBitsAsOneThread) {
  std::mt19937 rng(25);
  auto subset = [&](std::size_t n, std::size_t most) {
    std::vector<std::size_t> axes(n);
    std::iota(axes.begin(), axes.end(), std::size_t{0});
    std::shuffle(axes.begin(), axes.end(), rng);
    axes.resize(std::min<std::size_t>(rng() % (most + 1), n));
    return axes;
  };
  for (int trial = 0; trial < 400; ++trial) {
    SCOPED_TRACE(trial);
    std::vector<std::size_t> counts(2 + rng() % 5);
    for (std::size_t& c : counts) c = 1 + rng() % 6;
    std::vector<IndexPlan> plans;
    const std::size_t factor_count = rng() % 4, fold_count = 1 + rng() % 5;
    for (std::size_t k = 0; k < factor_count + fold_count; ++k)
      plans.emplace_back(counts, subset(counts.size(), k < factor_count || rng() % 3 ? 3 : 1));
    const std::uint64_t n = plans[0].large_size();
    std::vector<std::vector<double>> small(plans.size());
    std::vector<SweepFactor> factors;
    for (std::size_t k = 0; k < plans.size(); ++k) {
      small[k].resize(plans[k].small_size());
      for (double& x : small[k]) x = 0.1 + static_cast<double>(rng() % 1000) * 0.002;
      if (k < factor_count) factors.push_back({&plans[k], small[k].data()});
    }
    const std::uint64_t grain = 1 + rng() % 8;  // totals are summed in blocks of the grain
    std::vector<double> results[2];
    for (std::uint64_t threads : {1, 2 + trial % 2}) {
      std::vector<double> large(n, 0.5);
      std::vector<SweepFold> folds;
      for (std::size_t k = factor_count; k < plans.size(); ++k)
        folds.push_back({&plans[k], small[k].data()});
      const Parallelism par{threads, grain};
      ASSERT_EQ(split_sweep_fits(n, par), threads > 1 && n >= par.grain);
      sweep(large.data(), n, trial % 2 == 0, factors, folds, trial % 3 ? Reduce::sum : Reduce::max,
            par);
      for (std::size_t k = factor_count; k < plans.size(); ++k)
        large.insert(large.end(), small[k].begin(), small[k].end());
      results[threads > 1] = large;
    }
    ASSERT_EQ(results[0], results[1]);
    // A rebuild whose folds alone are wanted gives the same folds; the
    // table is left as it was when the sweep says so, else written.  The
    // pieces of a cut that misses folds are made in buffers for them, in
    // too few buffers for the pieces, or in none.
    if (trial % 2 != 0) continue;
    const std::uint64_t many = 2 + trial % 2;
    for (auto [threads, buffers] :
         {std::pair{std::uint64_t{1}, 4u}, {many, 4u}, {many, 1u}, {many, 0u}}) {
      set_piece_buffers(buffers);
      std::vector<double> large(n, 0.5);
      std::vector<SweepFold> folds;
      for (std::size_t k = factor_count; k < plans.size(); ++k)
        folds.push_back({&plans[k], small[k].data()});
      const bool untouched =
          sweep_folds_only(large.data(), n, factors, folds, trial % 3 ? Reduce::sum : Reduce::max,
                           Parallelism{threads, grain});
      if (untouched) {
        EXPECT_TRUE(std::all_of(large.begin(), large.end(), [](double x) { return x == 0.5; }));
        std::copy(results[0].begin(), results[0].begin() + n, large.begin());
      }
      for (std::size_t k = factor_count; k < plans.size(); ++k)
        large.insert(large.end(), small[k].begin(), small[k].end());
      ASSERT_EQ(large, results[0])
          << threads << " threads, " << buffers << " buffers, untouched " << untouched;
    }
    set_piece_buffers(4);
  }
}

// Sweeps a table of `counts` (random entries) by a random factor on
// `factor_axes`, folding onto `first` and `second`, `runs` times: run 0 on
// one thread, run r on threads(r).  Every run must give run 0's bits.
template <class Threads>
void expect_runs_agree(const std::vector<std::size_t>& counts,
                       const std::vector<std::size_t>& first,
                       const std::vector<std::size_t>& second,
                       const std::vector<std::size_t>& factor_axes, int runs, Threads threads) {
  const IndexPlan one(counts, first), two(counts, second), factor(counts, factor_axes);
  std::mt19937 rng(7);
  std::vector<double> by(factor.small_size());
  for (double& x : by) x = 0.5 + static_cast<double>(rng() % 1000) * 1e-3;
  const SweepFactor factors[] = {{&factor, by.data()}};
  const std::uint64_t n = one.large_size();
  std::vector<double> start(n);
  for (double& x : start) x = static_cast<double>(rng() % 100000) * 1e-5;
  // One table for every run: fresh pages for each would cost more than
  // the sweeps.
  std::vector<double> large(n), a(one.small_size()), b(two.small_size());
  std::vector<double> expected[3];
  for (int run = 0; run < runs; ++run) {
    std::copy(start.begin(), start.end(), large.begin());
    SweepFold folds[] = {{&one, a.data()}, {&two, b.data()}};
    sweep(large.data(), n, false, factors, folds, Reduce::sum,
          Parallelism{run == 0 ? std::uint64_t{1} : threads(run), 1});
    if (run == 0) {
      expected[0] = large, expected[1] = a, expected[2] = b;
      continue;
    }
    ASSERT_EQ(large, expected[0]) << "run " << run;
    ASSERT_EQ(a, expected[1]) << "run " << run;
    ASSERT_EQ(b, expected[2]) << "run " << run;
  }
}

// Large tables cut on axes that one fold has and another misses: the
// threads sweep pieces concurrently and finish them in any order, and the
// missed fold still receives them in index order.  In the second shape the
// cut lies under an outer axis that no fold has.
TEST(SplitSweep, MissedFoldsFollowThePiecesInIndexOrder) {
  auto two_or_three = [](int run) { return std::uint64_t{2} + run % 2; };
  {
    SCOPED_TRACE("six axes");
    expect_runs_agree({8, 8, 8, 8, 8, 8}, {5, 4}, {0, 1}, {2, 3}, 24, two_or_three);
  }
  {
    SCOPED_TRACE("an outer axis no fold has");
    expect_runs_agree({2, 8, 8, 8, 8, 8, 8}, {6, 5}, {1, 2}, {3, 4, 0}, 24, two_or_three);
  }
}

// Threads that wake every 50 microseconds, spin briefly and sleep again,
// while they live: on a machine with few processors the sweeping threads
// are then preempted at random points, so one falls behind the other far
// more often than on an idle machine.
class Contenders {
 public:
  explicit Contenders(int count) {
    for (int i = 0; i < count; ++i)
      threads_.emplace_back([](std::stop_token stop) {
        volatile std::uint64_t spins = 0;
        while (!stop.stop_requested()) {
          for (int k = 0; k < 20000; ++k) spins = spins + 1;
          std::this_thread::sleep_for(std::chrono::microseconds(50));
        }
      });
  }

 private:
  std::vector<std::jthread> threads_;
};

// A cut's values under few outer values are dealt as pieces of a group of
// outer values each (and of finer ranges than the cut's); the fold that
// lacks the outer axis still gets one group's values before the next
// group's when a thread falls behind, which the contenders make common.
TEST(SplitSweep, GroupedPiecesFollowTheOuterValuesInOrder) {
  const Contenders contenders(2);
  auto two = [](int) { return std::uint64_t{2}; };
  // Six values under six outer values; then 48 under two, dealt finer than
  // the cut's eight ranges so that each piece holds about 131,072 entries.
  {
    SCOPED_TRACE("six values under six");
    expect_runs_agree({6, 6, 16, 16, 16, 16}, {1}, {0, 1}, {2, 3, 4, 5}, 100, two);
  }
  {
    SCOPED_TRACE("48 values under two");
    expect_runs_agree({2, 48, 8, 16, 16, 16}, {1}, {0, 1}, {2, 3, 4, 5}, 25, two);
  }
}

}  // namespace
}  // namespace kelva
