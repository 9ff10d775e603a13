// The kernels' row walks against the plain walk, run by run, bit for bit.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>

#include "table/factor_walk.h"
#include "table/index_plan.h"
#include "table/sweep.h"
#include "table/table_ops.h"

namespace kelva {
namespace {

// fold_run's grouping: four interleaved lanes, the rest into the first.
double lanes(const double* p, std::uint64_t n, bool max) {
  auto f = [max](double a, double b) { return max ? (b > a ? b : a) : a + b; };
  const double id = max ? -HUGE_VAL : 0.0;
  double a[4] = {id, id, id, id};
  std::uint64_t k = 0;
  for (; k + 4 <= n; k += 4)
    for (int j = 0; j < 4; ++j) a[j] = f(a[j], p[k + j]);
  for (; k < n; ++k) a[0] = f(a[0], p[k]);
  return f(f(a[0], a[1]), f(a[2], a[3]));
}

TEST(RowKernels, SameBitsAsThePlainOdometerWalk) {
  std::mt19937 rng(20261126);
  std::uniform_real_distribution<double> value(0.01, 1.0);
  for (int trial = 0; trial < 150; ++trial) {
    // Runs of every unrolled length and longer; every third layout too large for a map.
    std::vector<std::size_t> counts(1 + rng() % 5), axes;
    for (std::size_t i = 0; i < counts.size(); ++i) {
      counts[i] = 1 + rng() % 10;
      if (rng() % 2 == 0) axes.push_back(i);
    }
    // Some layouts keep the second axis alone, of two states: short runs of
    // one small entry each, the same two in every tile.
    if (trial % 5 == 4) counts = {1 + rng() % 10, 2, 2 * (1 + rng() % 4)}, axes = {1};
    // Others an odd number of runs of two, the row axis absent from the small
    // table: two tiles fill whole vectors.
    if (trial % 5 == 3) counts = {1 + rng() % 10, 3 + 2 * (rng() % 4), 2}, axes = {0, 2};
    if (trial % 3 == 0)
      counts[0] *= IndexPlan::kMapMaxLarge / IndexPlan(counts, {}).large_size() + 1;
    if (rng() % 3 == 0) std::shuffle(axes.begin(), axes.end(), rng);
    const IndexPlan plan(counts, axes);
    const std::uint64_t n = plan.large_size(), m = plan.small_size(),
                        ss = plan.inner_small_stride();
    SCOPED_TRACE(::testing::Message() << "trial " << trial << ", " << n << " entries");

    std::vector<double> large(n), small(m);
    for (double& x : large) x = value(rng);
    for (double& x : small) x = value(rng) - 0.1;
    std::vector<double> sum(m, 0.0), max(m, -HUGE_VAL), prod = large, copy(n);
    plan.walk(0, n, [&](std::uint64_t l, std::uint64_t s, std::uint64_t len) {
      if (ss == 0) sum[s] += lanes(&large[l], len, false);
      if (ss == 0) max[s] = std::max(max[s], lanes(&large[l], len, true));
      for (std::uint64_t k = 0, j = s; k < len; ++k, j += ss) {
        if (ss != 0) sum[j] += large[l + k];
        if (ss != 0 && large[l + k] > max[j]) max[j] = large[l + k];
        prod[l + k] *= small[j];
        copy[l + k] = small[j];
      }
    });
    for (bool wide : {true, false}) {
      set_wide_rows(wide);
      // Pieces of three threads start and end anywhere in a row or a run.
      for (const Parallelism par : {Parallelism{1, n}, Parallelism{3, 1 + rng() % (n / 2 + 1)}}) {
        std::vector<double> s1(m), s2(m), t1 = large, g(n);
        marginalize(plan, large.data(), s1.data(), Reduce::sum, par);
        marginalize(plan, large.data(), s2.data(), Reduce::max, par);
        multiply(plan, t1.data(), small.data(), par);
        gather(plan, g.data(), small.data(), par);
        // No zeros or NaNs: equal values are equal bits.  (Totals: own blocks.)
        EXPECT_TRUE(m == 1 || (s1 == sum && s2 == max)) << wide << par.threads;
        EXPECT_TRUE(t1 == prod && g == copy) << wide << par.threads;
      }
      // The kernels a plan chooses once: products, copies, and the
      // quotients of a message with its product in one call (old entries
      // of 0 divide by 1; every small size leaves a different tail).
      std::vector<double> t2 = large, g2(n), t3 = large, t4 = large, q(m), old = small;
      multiply_kernel(plan)(plan, t2.data(), small.data(), 0, n);
      copy_kernel(plan)(plan, g2.data(), small.data(), 0, n);
      EXPECT_TRUE(t2 == prod && g2 == copy) << wide;
      for (std::size_t j = 0; j < m; j += 3) old[j] = 0.0;
      if (const QuotientProductKernel both = quotient_product_kernel(plan)) {
        quotient_entries(q.data(), large.data(), old.data(), m);
        multiply_kernel(plan)(plan, t3.data(), q.data(), 0, n);
        both(plan, t4.data(), large.data(), old.data(), n);
        EXPECT_TRUE(t3 == t4) << wide;
      }
      // A fold whose runs spread over the small table, in two ranges cut
      // anywhere (inside a run too), as the blocks of a large sweep are.
      if (ss != 0 && m > 1) {
        std::vector<double> s3(m, 0.0);
        SweepFold fold{&plan, s3.data()};
        const std::uint64_t cut = rng() % (n + 1);
        sweep_range(large.data(), false, {}, {&fold, 1}, 0, cut, Reduce::sum);
        sweep_range(large.data(), false, {}, {&fold, 1}, cut, n, Reduce::sum);
        EXPECT_TRUE(s3 == sum) << wide << " cut at " << cut;
      }
    }
  }
  set_wide_rows(true);
}

// Separator quotients divide by every entry above 0 and by 1 elsewhere (0,
// -0, negatives, NaN), the same bits at every vector width and tail length,
// into a new table or in place.
TEST(RowKernels, QuotientsDivideByOneWhereTheOldEntryIsNotPositive) {
  const double nan = std::nan("");
  const double dens[] = {0.25, 0.0, -0.0, -2.0, nan, 3.0, 1e-300, HUGE_VAL};
  const double nums[] = {0.5, -0.0, 7.0, nan, 1e-310, 2.0, 0.0, 1.0, 9.0};
  const auto same = [](double a, double b) {
    return (std::isnan(a) && std::isnan(b)) || std::memcmp(&a, &b, sizeof a) == 0;
  };
  for (bool wide : {true, false}) {
    set_wide_rows(wide);
    for (std::size_t n = 0; n < 40; ++n) {
      std::vector<double> num(n), den(n), want(n), out(n, 5.0);
      for (std::size_t i = 0; i < n; ++i) {
        num[i] = nums[(i * 7 + n) % 9];
        den[i] = dens[(i * 5 + n) % 8];
        want[i] = den[i] > 0.0 ? num[i] / den[i] : num[i];
      }
      quotient_entries(out.data(), num.data(), den.data(), n);
      std::vector<double> in_place = den;
      quotient_entries(in_place.data(), num.data(), in_place.data(), n);
      for (std::size_t i = 0; i < n; ++i)
        EXPECT_TRUE(same(out[i], want[i]) && same(in_place[i], want[i]))
            << wide << " n " << n << " at " << i << ": " << num[i] << " / " << den[i];
    }
  }
  set_wide_rows(true);
}

// Several factors in one joint walk give the products of one pass per
// factor (the first copied in when rebuilt), bit for bit: random layouts,
// long runs (chunks and tails), ranges that start and end anywhere.
TEST(RowKernels, JointWalkGivesTheBitsOfOnePassPerFactor) {
  std::mt19937 rng(2511);
  std::uniform_real_distribution<double> value(0.5, 1.5);
  int walked = 0;
  for (int trial = 0; trial < 400; ++trial) {
    std::vector<std::size_t> counts(1 + rng() % 6);
    for (std::size_t& c : counts) c = 1 + rng() % 7;
    if (trial % 3 == 0) counts.back() = 16 + rng() % 40;
    if (trial % 2 == 0)
      counts[0] *= IndexPlan::kMapMaxLarge / IndexPlan(counts, {}).large_size() + 1;
    const std::size_t k = 2 + rng() % 4;
    std::vector<IndexPlan> plans;
    for (std::size_t j = 0; j < k; ++j) {
      std::vector<std::size_t> axes;
      for (std::size_t i = 0; i < counts.size(); ++i)
        if (rng() % 2 == 0) axes.push_back(i);
      if (rng() % 3 == 0) std::shuffle(axes.begin(), axes.end(), rng);
      plans.emplace_back(counts, axes);
    }
    std::vector<std::vector<double>> small(k);
    std::vector<SweepFactor> factors;
    for (std::size_t j = 0; j < k; ++j) {
      small[j].resize(plans[j].small_size());
      for (double& x : small[j]) x = value(rng);
      factors.push_back({&plans[j], small[j].data()});
    }
    const std::uint64_t n = plans[0].large_size(), begin = rng() % n,
                        end = begin + 1 + rng() % (n - begin);
    const bool rebuild = trial % 4 < 2;
    std::vector<double> large(n), expected;
    for (double& x : large) x = value(rng);
    expected = large;
    for (std::size_t j = 0; j < k; ++j) {
      const std::uint64_t ss = plans[j].inner_small_stride();
      plans[j].walk(begin, end, [&](std::uint64_t l, std::uint64_t s, std::uint64_t len) {
        for (std::uint64_t t = 0; t < len; ++t)
          expected[l + t] =
              rebuild && j == 0 ? small[j][s + t * ss] : expected[l + t] * small[j][s + t * ss];
      });
    }
    // The passes of a sweep, one factor at a time (tiles of rows of runs).
    for (bool wide : {true, false}) {
      set_wide_rows(wide);
      std::vector<double> got = large;
      for (std::size_t j = 0; j < k; ++j)
        sweep_range(got.data(), rebuild && j == 0, {&factors[j], 1}, {}, begin, end, Reduce::sum);
      EXPECT_TRUE(got == expected) << "trial " << trial << " passes, wide " << wide;
    }
    JointPlan joint;
    if (!make_joint_plan(factors, joint)) continue;
    ++walked;
    for (bool wide : {true, false}) {
      set_wide_rows(wide);
      std::vector<double> got = large;
      apply_joint(joint, got.data(), rebuild, factors, begin, end);
      EXPECT_TRUE(got == expected) << "trial " << trial << " wide " << wide;
    }
  }
  set_wide_rows(true);
  EXPECT_GT(walked, 100);
}

// A sweep's folds over ranges of whole runs, on tables of short axes (the
// tile loops of runs, rows and tiles, entered anywhere in a tile), add to
// each small entry in the plain walk's order, bit for bit.
TEST(RowKernels, FoldsOverRangesKeepThePlainOrder) {
  std::mt19937 rng(1126);
  std::uniform_real_distribution<double> value(0.01, 1.0);
  for (int trial = 0; trial < 200; ++trial) {
    std::vector<std::size_t> counts(3 + rng() % 4);
    for (std::size_t& c : counts) c = 2 + rng() % 6;
    if (trial % 4 == 0) counts.back() = 16 + rng() % 20;
    // Some folds onto the second innermost axis alone (of two states in half
    // of them): every tile's runs into the same few small entries.
    const std::size_t row_axis = counts.size() - 2;
    if (trial % 10 == 1) counts[row_axis] = 2;
    counts[0] *= IndexPlan::kMapMaxLarge / IndexPlan(counts, {}).large_size() + 1;
    std::vector<IndexPlan> plans;
    for (int j = 0; j < 3; ++j) {
      std::vector<std::size_t> axes;
      for (std::size_t i = 0; i < counts.size(); ++i)
        if (rng() % 2 == 0) axes.push_back(i);
      if (rng() % 3 == 0) std::shuffle(axes.begin(), axes.end(), rng);
      if (j == 0 && trial % 5 == 1) axes = {row_axis};
      plans.emplace_back(counts, axes);
    }
    const std::uint64_t n = plans[0].large_size();
    std::vector<double> large(n);
    for (double& x : large) x = value(rng);
    const bool max = trial % 2 == 1;
    std::vector<std::vector<double>> got(3), expected(3);
    std::vector<SweepFold> folds;
    for (int j = 0; j < 3; ++j) {
      got[j].resize(plans[j].small_size());
      for (double& x : got[j]) x = value(rng);
      expected[j] = got[j];
      folds.push_back({&plans[j], got[j].data()});
    }
    const std::uint64_t run = folded_run(folds), runs = n / run;
    const std::uint64_t begin = rng() % runs * run,
                        end = begin + (1 + rng() % (runs - begin / run)) * run;
    for (int j = 0; j < 3; ++j) {
      const std::uint64_t ss = plans[j].inner_small_stride();
      if (plans[j].small_size() == 1) continue;
      plans[j].walk(begin, end, [&](std::uint64_t l, std::uint64_t s, std::uint64_t len) {
        double* q = expected[j].data();
        if (ss == 0)
          q[s] = max ? std::max(q[s], lanes(&large[l], len, true))
                     : q[s] + lanes(&large[l], len, false);
        for (std::uint64_t k = 0; ss != 0 && k < len; ++k)
          q[s + k * ss] =
              max ? std::max(q[s + k * ss], large[l + k]) : q[s + k * ss] + large[l + k];
      });
    }
    for (bool wide : {true, false}) {
      set_wide_rows(wide);
      std::vector<std::vector<double>> start = got;
      sweep_range(large.data(), false, {}, folds, begin, end, max ? Reduce::max : Reduce::sum);
      EXPECT_TRUE(got == expected) << "trial " << trial << " wide " << wide;
      for (int j = 0; j < 3; ++j) std::copy(start[j].begin(), start[j].end(), got[j].begin());
    }
  }
  set_wide_rows(true);
}

}  // namespace
}  // namespace kelva
