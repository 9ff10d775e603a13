// The row walk and the row kernels against the plain odometer walk, run by
// run, bit for bit, with the 256-bit loops and without them.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>
#include <vector>

#include "table/index_plan.h"
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

bool same_bits(const std::vector<double>& a, const std::vector<double>& b) {
  return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(double)) == 0;
}

TEST(RowKernels, SameBitsAsThePlainOdometerWalk) {
  std::mt19937 rng(20261126);
  std::uniform_real_distribution<double> value(0.01, 1.0);
  for (int trial = 0; trial < 150; ++trial) {
    // Up to 5 nodes of 1 to 10 states: runs of every unrolled length and
    // longer ones; every third layout is too large for an index map.
    std::vector<std::size_t> counts, axes;
    const std::size_t nodes = 1 + rng() % 5;
    std::size_t inner = 1;
    for (std::size_t i = 0; i < nodes; ++i) counts.push_back(1 + rng() % 10);
    for (std::size_t i = 1; i < nodes; ++i) inner *= counts[i];
    if (trial % 3 == 0) counts[0] = IndexPlan::kMapMaxLarge / inner + 1;
    for (std::size_t i = 0; i < nodes; ++i)
      if (rng() % 2 == 0) axes.push_back(i);
    if (rng() % 3 == 0) std::shuffle(axes.begin(), axes.end(), rng);
    const IndexPlan plan(counts, axes);
    const std::uint64_t n = plan.large_size(), m = plan.small_size();
    const std::uint64_t ss = plan.inner_small_stride();
    SCOPED_TRACE(::testing::Message() << "trial " << trial << ", " << n << " entries");

    // The row walk visits the walk's entries, from anywhere to anywhere.
    const std::uint64_t b = rng() % (n + 1), e = b + rng() % (n - b + 1);
    std::vector<std::uint64_t> walked, rowed;
    plan.walk(b, e, [&](std::uint64_t l, std::uint64_t s, std::uint64_t len) {
      for (std::uint64_t k = 0; k < len; ++k) walked.push_back((l + k) << 20 | (s + k * ss));
    });
    auto row = [&](std::uint64_t l, std::uint64_t s, std::uint64_t len) {
      for (std::uint64_t k = 0; k < len; ++k) rowed.push_back((l + k) << 20 | (s + k * ss));
    };
    plan.walk_rows(b, e, row, [&](std::uint64_t l, std::uint64_t s, std::uint64_t rows) {
      for (std::uint64_t r = 0; r < rows; ++r)
        row(l + r * plan.inner_count(), s + r * plan.row_small_stride(), plan.inner_count());
    });
    ASSERT_EQ(rowed, walked);

    // The kernels, run by run on the plain walk.
    std::vector<double> large(n), small(m);
    for (double& x : large) x = value(rng);
    for (double& x : small) x = value(rng) - 0.1;  // some divisors negative
    std::vector<double> sum(m, 0.0), max(m, -HUGE_VAL), prod = large, quot = large, copy(n);
    plan.walk(0, n, [&](std::uint64_t l, std::uint64_t s, std::uint64_t len) {
      if (ss == 0) {
        sum[s] += lanes(&large[l], len, false);
        max[s] = std::max(max[s], lanes(&large[l], len, true));
      }
      for (std::uint64_t k = 0; k < len; ++k) {
        const std::uint64_t j = s + k * ss;
        if (ss != 0) sum[j] += large[l + k];
        if (ss != 0 && large[l + k] > max[j]) max[j] = large[l + k];
        prod[l + k] *= small[j];
        quot[l + k] /= small[j] > 0.0 ? small[j] : 1.0;
        copy[l + k] = small[j];
      }
    });
    for (bool wide : {true, false}) {
      set_wide_rows(wide);
      // Three threads with a small grain start pieces anywhere in a run.
      for (const Parallelism par : {Parallelism{1, 10000}, Parallelism{3, n / 3 + 1}}) {
        SCOPED_TRACE(::testing::Message() << "wide " << wide << ", threads " << par.threads);
        std::vector<double> out(m);
        // (Totals are summed in blocks of their own.)
        marginalize(plan, large.data(), out.data(), Reduce::sum, par);
        EXPECT_TRUE(m == 1 || same_bits(out, sum));
        marginalize(plan, large.data(), out.data(), Reduce::max, par);
        EXPECT_TRUE(m == 1 || same_bits(out, max));
        std::vector<double> t = large;
        multiply(plan, t.data(), small.data(), par);
        EXPECT_TRUE(same_bits(t, prod));
        t = large;
        divide(plan, t.data(), small.data(), par);
        EXPECT_TRUE(same_bits(t, quot));
        gather(plan, t.data(), small.data(), par);
        EXPECT_TRUE(same_bits(t, copy));
      }
    }
  }
  set_wide_rows(true);
}

}  // namespace
}  // namespace kelva
