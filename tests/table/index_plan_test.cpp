// Index plans and their kernels against the decode/re-encode oracle, and the
// threaded forms against the single-threaded ones.
#include "table/index_plan.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <numeric>
#include <random>
#include <thread>
#include <vector>

#include "network/error.h"
#include "oracle.h"
#include "platform/worker_pool.h"
#include "table/table_ops.h"

namespace kelva {
namespace {

using test::decode;
using test::small_index_map;

struct Case {
  std::vector<std::size_t> counts;  // large table
  std::vector<std::size_t> axes;    // small table's nodes as large positions
};

Case random_case(std::mt19937& rng, std::size_t max_nodes, std::size_t max_count) {
  Case c;
  const std::size_t n = std::uniform_int_distribution<std::size_t>(0, max_nodes)(rng);
  for (std::size_t i = 0; i < n; ++i)
    c.counts.push_back(std::uniform_int_distribution<std::size_t>(1, max_count)(rng));
  for (std::size_t i = 0; i < n; ++i)
    if (rng() % 2 == 0) c.axes.push_back(i);
  // Mostly keep the large order (the common case, where merging happens).
  if (rng() % 3 == 0) std::shuffle(c.axes.begin(), c.axes.end(), rng);
  return c;
}

std::vector<double> random_ints(std::mt19937& rng, std::uint64_t n, int lo, int hi) {
  std::uniform_int_distribution<int> dist(lo, hi);
  std::vector<double> v(n);
  for (double& x : v) x = dist(rng);
  return v;
}

// The large-to-small index map as the plan walks [begin, end), checking
// that the walk visits those large entries in order.
std::vector<std::uint64_t> walked_map(const IndexPlan& plan, std::uint64_t begin,
                                      std::uint64_t end) {
  std::vector<std::uint64_t> map;
  const std::uint64_t ss = plan.inner_small_stride();
  plan.walk(begin, end, [&](std::uint64_t l, std::uint64_t s, std::uint64_t n) {
    EXPECT_EQ(l, begin + map.size());
    for (std::uint64_t k = 0; k < n; ++k) map.push_back(s + k * ss);
  });
  return map;
}

TEST(IndexPlan, WalksAndKernelsMatchOracleOnRandomLayouts) {
  std::mt19937 rng(20261122);
  for (int trial = 0; trial < 400; ++trial) {
    // Every eighth layout is too large for an index map, so both the mapped
    // kernels and the odometer ones meet the oracle.
    Case c = random_case(rng, 6, 4);
    if (trial % 8 == 0) {
      c.counts.assign(10, 3);
      c.counts[rng() % 10] = 4;
      c.axes.clear();
      for (std::size_t i = 0; i < 10; ++i)
        if (rng() % 2 == 0) c.axes.push_back(i);
      if (rng() % 3 == 0) std::shuffle(c.axes.begin(), c.axes.end(), rng);
    }
    SCOPED_TRACE(::testing::Message() << "trial " << trial);
    const IndexPlan plan(c.counts, c.axes);
    const std::vector<std::uint64_t> oracle = small_index_map(c.counts, c.axes);
    const std::uint64_t n = oracle.size();
    const std::uint64_t m = test::volume(c.counts, c.axes);
    ASSERT_EQ(plan.large_size(), n);
    ASSERT_EQ(plan.small_size(), m);
    ASSERT_EQ(walked_map(plan, 0, n), oracle);
    if (const std::uint16_t* map = plan.map()) {
      ASSERT_TRUE(std::equal(oracle.begin(), oracle.end(), map));
    } else if (trial % 8 == 0) {
      ASSERT_GT(n, IndexPlan::kMapMaxLarge);
    }

    // A walk may start and stop anywhere.
    const std::uint64_t b = rng() % (n + 1), e = b + rng() % (n - b + 1);
    ASSERT_EQ(walked_map(plan, b, e),
              std::vector<std::uint64_t>(oracle.begin() + static_cast<long>(b),
                                         oracle.begin() + static_cast<long>(e)));

    // A slice of an axis visits exactly the entries with that axis in range.
    const auto axes = plan.axes();
    const std::size_t a = rng() % axes.size();
    const std::uint64_t first = rng() % axes[a].count;
    const std::uint64_t last = first + 1 + rng() % (axes[a].count - first);
    std::vector<std::uint64_t> expect_l, got_l;
    for (std::uint64_t l = 0; l < n; ++l) {
      const std::uint64_t v = l / axes[a].large_stride % axes[a].count;
      if (v >= first && v < last) expect_l.push_back(l);
    }
    plan.visit_slice(a, first, last, [&](std::uint64_t l, std::uint64_t s, std::uint64_t len) {
      for (std::uint64_t k = 0; k < len; ++k) {
        got_l.push_back(l + k);
        EXPECT_EQ(s + k * plan.inner_small_stride(), oracle[l + k]);
      }
    });
    ASSERT_EQ(got_l, expect_l);

    // Kernels, on small integers so that every sum is exact.
    const std::vector<double> large = random_ints(rng, n, -3, 5);
    const std::vector<double> small = random_ints(rng, m, -2, 3);
    std::vector<double> sum(m, 0.0), max(m, -HUGE_VAL), prod = large, quot = large;
    for (std::uint64_t l = 0; l < n; ++l) {
      sum[oracle[l]] += large[l];
      max[oracle[l]] = std::max(max[oracle[l]], large[l]);
      prod[l] *= small[oracle[l]];
      if (small[oracle[l]] > 0) quot[l] /= small[oracle[l]];
    }
    std::vector<double> out(m, 99.0);
    marginalize(plan, large.data(), out.data(), Reduce::sum);
    EXPECT_EQ(out, sum);
    marginalize(plan, large.data(), out.data(), Reduce::max);
    EXPECT_EQ(out, max);
    std::vector<double> t = large;
    multiply(plan, t.data(), small.data());
    EXPECT_EQ(t, prod);
    t = large;
    divide(plan, t.data(), small.data());
    EXPECT_EQ(t, quot);
    if (c.axes.size() == c.counts.size()) {
      // Same nodes in another order: gather permutes into the large order.
      std::vector<double> permuted(n);
      gather(plan, permuted.data(), small.data());
      for (std::uint64_t l = 0; l < n; ++l) ASSERT_EQ(permuted[l], small[oracle[l]]);
    }
  }
}

TEST(IndexPlan, MergesAxesIntoLongRunsAndRefusesBadLayouts) {
  const std::vector<std::size_t> counts{3, 1, 4, 5, 2};
  // Leading block of the same order: one outer axis, one constant run.
  IndexPlan lead(counts, std::vector<std::size_t>{0, 1, 2});
  ASSERT_EQ(lead.axes().size(), 2u);
  EXPECT_EQ(lead.axes()[0].count, 12u);
  EXPECT_EQ(lead.axes()[1].count, 10u);
  EXPECT_EQ(lead.inner_small_stride(), 0u);
  // Trailing block: a contiguous run of the whole small table.
  IndexPlan trail(counts, std::vector<std::size_t>{3, 4});
  ASSERT_EQ(trail.axes().size(), 2u);
  EXPECT_EQ(trail.axes()[1].count, 10u);
  EXPECT_EQ(trail.inner_small_stride(), 1u);
  // Everything in order, or nothing: a single run.
  EXPECT_EQ(IndexPlan(counts, std::vector<std::size_t>{0, 1, 2, 3, 4}).axes().size(), 1u);
  EXPECT_EQ(IndexPlan(counts, std::vector<std::size_t>{}).axes().size(), 1u);
  EXPECT_EQ(IndexPlan().large_size(), 1u);

  auto code_of = [&](std::vector<std::size_t> c, std::vector<std::size_t> axes) {
    try {
      IndexPlan p(c, axes);
    } catch (const Error& e) {
      return e.code();
    }
    return K_ERROR_NONE;
  };
  EXPECT_EQ(code_of(counts, {0, 0}), K_ERROR_USAGE);
  EXPECT_EQ(code_of(counts, {5}), K_ERROR_USAGE);
  EXPECT_EQ(code_of(std::vector<std::size_t>(5, std::size_t{1} << 16), {}), K_ERROR_NO_MEMORY);
}

TEST(IndexPlan, ThreadedResultsEqualSingleThreadedBitForBit) {
  const std::vector<std::size_t> counts{4, 8, 2, 16, 8, 4};  // 32768 entries
  std::mt19937 rng(7);
  std::uniform_real_distribution<double> dist(0.0, 1.0);
  std::vector<double> large(32768);
  for (double& x : large) x = dist(rng);
  const std::vector<std::vector<std::size_t>> layouts{{},     {0},       {5}, {1, 3},
                                                      {3, 1}, {0, 2, 4}, {2}, {5, 4, 3, 2, 1, 0}};
  const std::uint64_t grain = 1000;
  for (const auto& axes : layouts) {
    SCOPED_TRACE(::testing::Message() << "layout of " << axes.size() << " nodes");
    const IndexPlan plan(counts, axes);
    std::vector<double> small(plan.small_size());
    for (double& x : small) x = dist(rng) - 0.2;  // some divisors negative
    const std::vector<std::uint64_t> oracle = small_index_map(counts, axes);

    auto run_all = [&](std::uint64_t threads) {
      const Parallelism par{threads, grain};
      std::vector<std::vector<double>> r(6);
      r[0].resize(plan.small_size());
      marginalize(plan, large.data(), r[0].data(), Reduce::sum, par);
      r[1].resize(plan.small_size());
      marginalize(plan, large.data(), r[1].data(), Reduce::max, par);
      r[2] = large;
      multiply(plan, r[2].data(), small.data(), par);
      r[3] = large;
      divide(plan, r[3].data(), small.data(), par);
      r[4].resize(large.size());
      gather(plan, r[4].data(), small.data(), par);
      r[5].resize(large.size());
      quotient(r[5].data(), large.data(), r[2].data(), large.size(), par);
      return r;
    };
    const auto one = run_all(1);
    // The baseline row loops and quotients give the 256-bit ones' bits.
    set_wide_rows(false);
    const auto narrow = run_all(1);
    set_wide_rows(true);
    for (std::size_t k = 2; k < one.size(); ++k)
      EXPECT_EQ(std::memcmp(one[k].data(), narrow[k].data(), one[k].size() * sizeof(double)), 0)
          << "operation " << k << " on the baseline loops";
    for (std::uint64_t threads : {2u, 3u, 4u, 8u}) {
      const auto many = run_all(threads);
      for (std::size_t k = 0; k < one.size(); ++k)
        EXPECT_EQ(std::memcmp(one[k].data(), many[k].data(), one[k].size() * sizeof(double)), 0)
            << "operation " << k << " with " << threads << " threads";
    }
    // And the shared results are right.
    std::vector<double> sum(plan.small_size(), 0.0);
    for (std::size_t l = 0; l < large.size(); ++l) {
      sum[oracle[l]] += large[l];
      const double den = one[2][l];
      ASSERT_EQ(one[5][l], den > 0 ? large[l] / den : large[l]);
    }
    for (std::size_t j = 0; j < sum.size(); ++j) EXPECT_NEAR(one[0][j], sum[j], 1e-9);
  }
  EXPECT_GT(platform::WorkerPool::shared().worker_count(), 0u);
}

TEST(WorkerPool, RunsEveryPieceOnceUnderConcurrentCallers) {
  platform::WorkerPool pool;
  constexpr std::size_t kPieces = 200;
  std::vector<std::thread> callers;
  std::vector<std::vector<std::atomic<int>>> hits(4);
  for (auto& h : hits) h = std::vector<std::atomic<int>>(kPieces);
  for (std::size_t c = 0; c < hits.size(); ++c) {
    callers.emplace_back([&, c] {
      for (int round = 0; round < 20; ++round) {
        auto task = [&](std::size_t i) { hits[c][i].fetch_add(1); };
        pool.run(kPieces, 3, task);
      }
    });
  }
  for (auto& t : callers) t.join();
  for (const auto& h : hits)
    for (const auto& x : h) ASSERT_EQ(x.load(), 20);
  EXPECT_EQ(pool.worker_count(), 2u);
}

// help() takes another thread's pieces (the shared propagation passes rely
// on it), but never those of a batch the helping thread is inside.
TEST(WorkerPool, HelpNeverJoinsABatchTheHelperIsIn) {
  platform::WorkerPool pool;
  std::uint64_t seen = 0;
  EXPECT_FALSE(pool.help(seen));  // nothing posted
  // A thread inside a batch that helps must leave its unclaimed piece to
  // the worker.
  thread_local bool in_first = false;
  std::atomic<bool> second_done{false};
  std::atomic<bool> nested{false};
  auto pair = [&](std::size_t piece) {
    if (piece == 1) {
      nested = in_first;
      second_done = true;
      return;
    }
    in_first = true;
    for (std::uint64_t s = 0; !second_done;) pool.help(s);
    in_first = false;
  };
  pool.run(2, 2, pair);
  EXPECT_FALSE(nested.load());
}

}  // namespace
}  // namespace kelva
