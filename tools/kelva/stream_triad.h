#pragma once

#include <cstddef>

namespace kelva::cli {

/// What a STREAM-style triad measured.
struct TriadResult {
  /// Bytes of each of the three arrays.
  std::size_t array_bytes = 0;
  /// Best rate of a[i] = b[i] + s * c[i] in 10^9 bytes per second, counting
  /// 24 bytes per index (two doubles read, one written; the write-allocate
  /// read is not counted, as STREAM does not).
  double gbps = 0.0;
};

/// Runs the triad `repeat` times over arrays four times the size of the
/// last-level cache (at least 64 MiB, the cache size taken as at most
/// 64 MiB), split over `threads` threads, after touching every page.
TriadResult run_stream_triad(int repeat, int threads);

}  // namespace kelva::cli
