// `kelva bench FILE.net`: how fast a network file is read and written,
// measured against reading the file's bytes alone.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "cli_error.h"
#include "commands.h"
#include "domain_handle.h"

namespace kelva::cli {

namespace {

using Clock = std::chrono::steady_clock;

/// Seconds since `start`.
double seconds_since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

/// Reads the whole file into memory; returns its size (throws ApiError io).
std::size_t read_bytes(const std::string& path) {
  std::FILE* f = std::fopen(path.c_str(), "rb");
  if (f == nullptr) throw ApiError(K_ERROR_IO);
  std::vector<char> buffer(1 << 16);
  std::size_t total = 0;
  for (std::size_t n; (n = std::fread(buffer.data(), 1, buffer.size(), f)) > 0;) total += n;
  std::fclose(f);
  return total;
}

/// The best of `repeat` timings of `f`.
template <class F>
double best_of(int repeat, F f) {
  double best = 0.0;
  for (int i = 0; i < repeat; ++i) {
    const Clock::time_point start = Clock::now();
    f();
    const double t = seconds_since(start);
    if (i == 0 || t < best) best = t;
  }
  return best;
}

}  // namespace

void run_bench(std::FILE* out, const Options& options) {
  const std::string& path = options.source.file;
  std::size_t bytes = 0;
  const double read_time = best_of(options.repeat, [&] { bytes = read_bytes(path); });
  const double parse_time = best_of(options.repeat, [&] {
    DomainHandle domain(k_net_parse_domain(path.c_str(), nullptr, nullptr));
    if (!domain) throw ApiError(k_error_code());
  });
  DomainHandle domain(k_net_parse_domain(path.c_str(), nullptr, nullptr));
  if (!domain) throw ApiError(k_error_code());
  const double write_time = best_of(options.repeat, [&] {
    char* text = k_domain_to_net_string(domain.get());
    if (text == nullptr) throw ApiError(k_error_code());
    std::free(text);
  });
  const double mb = static_cast<double>(bytes) / 1e6;
  std::fprintf(out, "file\t%s\t%zu bytes\n", path.c_str(), bytes);
  std::fprintf(out, "read bytes\t%.6f s\t%.1f MB/s\n", read_time, mb / read_time);
  std::fprintf(out, "parse\t%.6f s\t%.1f MB/s\t%.1fx reading the bytes\n", parse_time,
               mb / parse_time, parse_time / read_time);
  std::fprintf(out, "write string\t%.6f s\t%.1f MB/s\n", write_time, mb / write_time);
}

}  // namespace kelva::cli
