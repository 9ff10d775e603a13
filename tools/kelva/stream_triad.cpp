#include "stream_triad.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

namespace kelva::cli {

namespace {

/// The last-level cache size in bytes, capped at 64 MiB: some machines
/// report the whole host's cache.
std::size_t last_level_cache() {
  constexpr long kCap = 64L << 20;
  long size = -1;
#ifdef _SC_LEVEL3_CACHE_SIZE
  size = sysconf(_SC_LEVEL3_CACHE_SIZE);
  if (size <= 0) size = sysconf(_SC_LEVEL2_CACHE_SIZE);
#endif
  if (size <= 0) size = 32L << 20;
  return static_cast<std::size_t>(std::min(size, kCap));
}

/// Runs `body(begin, end)` over [0, n) split into `threads` contiguous parts.
template <class F>
void split(std::size_t n, int threads, F body) {
  std::vector<std::jthread> workers;
  const std::size_t part = n / static_cast<std::size_t>(threads);
  for (int t = 1; t < threads; ++t)
    workers.emplace_back(body, part * t, t + 1 == threads ? n : part * (t + 1));
  body(std::size_t{0}, threads > 1 ? part : n);
}

}  // namespace

TriadResult run_stream_triad(int repeat, int threads) {
  TriadResult result;
  result.array_bytes = std::max<std::size_t>(4 * last_level_cache(), 64 << 20);
  const std::size_t n = result.array_bytes / sizeof(double);
  std::unique_ptr<double[]> a(new double[n]), b(new double[n]), c(new double[n]);
  // Each thread first touches the pages it will use.
  split(n, threads, [&](std::size_t begin, std::size_t end) {
    std::fill(a.get() + begin, a.get() + end, 0.0);
    std::fill(b.get() + begin, b.get() + end, 1.0);
    std::fill(c.get() + begin, c.get() + end, 2.0);
  });
  const double s = 3.0;
  double best = 0.0;
  for (int r = 0; r < repeat; ++r) {
    const auto start = std::chrono::steady_clock::now();
    split(n, threads, [&](std::size_t begin, std::size_t end) {
      double* __restrict pa = a.get();
      const double* __restrict pb = b.get();
      const double* __restrict pc = c.get();
      for (std::size_t i = begin; i < end; ++i) pa[i] = pb[i] + s * pc[i];
    });
    const double t =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (r == 0 || t < best) best = t;
  }
  // Keeps the stores from being optimised away.
  volatile double sink = a[n / 2];
  (void)sink;
  result.gbps = 3.0 * static_cast<double>(result.array_bytes) / best / 1e9;
  return result;
}

}  // namespace kelva::cli
