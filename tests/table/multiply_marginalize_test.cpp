#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "table/index_plan.h"
#include "table/table_ops.h"

namespace kelva {
namespace {

// The one-sweep kernel gives the results of the two kernels it replaces,
// bit for bit, across block boundaries and for every inner-run shape of
// either plan (constant, contiguous, strided), threaded or not.
TEST(MultiplyMarginalize, EqualsMultiplyThenMarginalize) {
  const std::vector<std::size_t> counts{3, 5, 7, 11, 13};  // 15015 entries
  const std::vector<std::vector<std::size_t>> layouts{
      {4}, {0}, {3, 4}, {0, 2}, {4, 1}, {2, 0, 3}, {1, 2, 3, 4}, {0, 1, 2, 3}};
  std::mt19937 rng(12);
  std::uniform_real_distribution<double> u(0.1, 2.0);
  for (const auto& in : layouts)
    for (const auto& out : layouts)
      for (Reduce how : {Reduce::sum, Reduce::max})
        for (std::uint64_t threads : {1, 3}) {
          const IndexPlan mplan(counts, in);
          const IndexPlan fplan(counts, out);
          std::vector<double> large(mplan.large_size());
          for (double& x : large) x = u(rng);
          std::vector<double> factor(mplan.small_size());
          for (double& x : factor) x = u(rng);
          const Parallelism par{threads, 1000};
          std::vector<double> large2 = large;
          std::vector<double> small(fplan.small_size()), small2(fplan.small_size());
          multiply_marginalize(mplan, large.data(), factor.data(), fplan, small.data(), how, par);
          multiply(mplan, large2.data(), factor.data(), Parallelism{});
          marginalize(fplan, large2.data(), small2.data(), how, Parallelism{});
          ASSERT_EQ(large, large2);
          ASSERT_EQ(small, small2);
        }
}

}  // namespace
}  // namespace kelva
