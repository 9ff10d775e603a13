// Marginalize, multiply and divide between a clique-sized table (2^20
// entries over 20 binary nodes) and smaller tables of several layouts,
// through index plans and through a naive per-entry index computation.
// Counters report entries per second.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <vector>

#include "table/index_plan.h"
#include "table/table_ops.h"

namespace {

using kelva::IndexPlan;
using kelva::Parallelism;
using kelva::Reduce;

constexpr std::size_t kNodes = 20;

// Small tables' nodes, as positions in the large table.
const std::vector<std::vector<std::size_t>>& layouts() {
  static const std::vector<std::vector<std::size_t>> all{
      {0, 1, 2, 3, 4, 5, 6, 7, 8, 9},            // 0: leading block
      {10, 11, 12, 13, 14, 15, 16, 17, 18, 19},  // 1: trailing block
      {0, 2, 4, 6, 8, 10, 12, 14, 16, 18},       // 2: every other node
      {17, 3, 11, 8, 19, 0, 5, 14},              // 3: scattered, out of order
      {},                                        // 4: a single entry
  };
  return all;
}

const char* layout_name(std::size_t i) {
  static const char* names[] = {"leading", "trailing", "interleaved", "scattered", "scalar"};
  return names[i];
}

struct Setup {
  std::vector<std::size_t> counts = std::vector<std::size_t>(kNodes, 2);
  IndexPlan plan;
  std::vector<double> large;
  std::vector<double> small;
  std::vector<std::uint64_t> small_stride;  // per large node, for the naive walk

  explicit Setup(const std::vector<std::size_t>& axes) : plan(counts, axes) {
    std::mt19937 rng(1);
    std::uniform_real_distribution<double> dist(0.5, 1.5);
    large.resize(plan.large_size());
    for (double& x : large) x = dist(rng);
    small.resize(plan.small_size());
    for (double& x : small) x = dist(rng);
    small_stride.assign(kNodes, 0);
    std::uint64_t stride = 1;
    for (std::size_t j = axes.size(); j-- > 0;) {
      small_stride[axes[j]] = stride;
      stride *= counts[axes[j]];
    }
  }

  // The small index of large entry l by decoding its configuration.
  std::uint64_t naive_index(std::uint64_t l) const {
    std::uint64_t s = 0;
    for (std::size_t k = kNodes; k-- > 0;) {
      s += (l % counts[k]) * small_stride[k];
      l /= counts[k];
    }
    return s;
  }
};

const Setup& setup(std::size_t layout) {
  static std::vector<Setup> all = [] {
    std::vector<Setup> s;
    for (const auto& axes : layouts()) s.emplace_back(axes);
    return s;
  }();
  return all[layout];
}

void finish(benchmark::State& state, const Setup& s) {
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(s.large.size()));
  state.SetLabel(layout_name(static_cast<std::size_t>(state.range(0))));
}

Parallelism threads(benchmark::State& state) {
  return Parallelism{static_cast<std::uint64_t>(state.range(1)), 10000};
}

void BM_MarginalizePlan(benchmark::State& state) {
  const Setup& s = setup(static_cast<std::size_t>(state.range(0)));
  std::vector<double> out(s.small.size());
  for (auto _ : state) {
    kelva::marginalize(s.plan, s.large.data(), out.data(), Reduce::sum, threads(state));
    benchmark::DoNotOptimize(out.data());
  }
  finish(state, s);
}

void BM_MarginalizeNaive(benchmark::State& state) {
  const Setup& s = setup(static_cast<std::size_t>(state.range(0)));
  std::vector<double> out(s.small.size());
  for (auto _ : state) {
    std::fill(out.begin(), out.end(), 0.0);
    for (std::uint64_t l = 0; l < s.large.size(); ++l) out[s.naive_index(l)] += s.large[l];
    benchmark::DoNotOptimize(out.data());
  }
  finish(state, s);
}

void BM_MultiplyPlan(benchmark::State& state) {
  const Setup& s = setup(static_cast<std::size_t>(state.range(0)));
  std::vector<double> large = s.large;
  for (auto _ : state) {
    kelva::multiply(s.plan, large.data(), s.small.data(), threads(state));
    benchmark::DoNotOptimize(large.data());
  }
  finish(state, s);
}

void BM_MultiplyNaive(benchmark::State& state) {
  const Setup& s = setup(static_cast<std::size_t>(state.range(0)));
  std::vector<double> large = s.large;
  for (auto _ : state) {
    for (std::uint64_t l = 0; l < large.size(); ++l) large[l] *= s.small[s.naive_index(l)];
    benchmark::DoNotOptimize(large.data());
  }
  finish(state, s);
}

void BM_DividePlan(benchmark::State& state) {
  const Setup& s = setup(static_cast<std::size_t>(state.range(0)));
  std::vector<double> large = s.large;
  for (auto _ : state) {
    kelva::divide(s.plan, large.data(), s.small.data(), threads(state));
    benchmark::DoNotOptimize(large.data());
  }
  finish(state, s);
}

void BM_DivideNaive(benchmark::State& state) {
  const Setup& s = setup(static_cast<std::size_t>(state.range(0)));
  std::vector<double> large = s.large;
  for (auto _ : state) {
    for (std::uint64_t l = 0; l < large.size(); ++l) {
      const double d = s.small[s.naive_index(l)];
      if (d > 0.0) large[l] /= d;
    }
    benchmark::DoNotOptimize(large.data());
  }
  finish(state, s);
}

// Layouts 0..4, one thread; the plan kernels also with two threads.
void plan_args(benchmark::internal::Benchmark* b) {
  for (int threads : {1, 2})
    for (int layout = 0; layout < 5; ++layout) b->Args({layout, threads});
}
void naive_args(benchmark::internal::Benchmark* b) {
  for (int layout = 0; layout < 5; ++layout) b->Args({layout, 1});
}

BENCHMARK(BM_MarginalizePlan)->Apply(plan_args)->UseRealTime();
BENCHMARK(BM_MarginalizeNaive)->Apply(naive_args);
BENCHMARK(BM_MultiplyPlan)->Apply(plan_args)->UseRealTime();
BENCHMARK(BM_MultiplyNaive)->Apply(naive_args);
BENCHMARK(BM_DividePlan)->Apply(plan_args)->UseRealTime();
BENCHMARK(BM_DivideNaive)->Apply(naive_args);

}  // namespace

BENCHMARK_MAIN();
