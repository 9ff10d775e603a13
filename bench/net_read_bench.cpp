// Throughput of the NET reader on the shared networks: each file is parsed
// once to warm the page cache, then the best of five parses is reported as
// wall and CPU time (on a shared machine the CPU figure is the one to
// trust).  Each network is also written, read back and written again, and
// the two texts must be equal.
//
//   bench_net_read [FILE...]   (default: the big shared networks)
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include "kelva/kelva.h"

namespace {

using Clock = std::chrono::steady_clock;

std::string shared_dir() {
  const char* dir = std::getenv("KELVA_SHARED_DIR");
  return dir != nullptr ? dir : KELVA_DEFAULT_SHARED_DIR;
}

long file_size(const std::string& path) {
  std::FILE* f = std::fopen(path.c_str(), "rb");
  if (f == nullptr) return -1;
  std::fseek(f, 0, SEEK_END);
  const long size = std::ftell(f);
  std::fclose(f);
  return size;
}

// Write, read back, write again: the two texts must be equal.
bool round_trip(k_domain_t domain) {
  char* first = k_domain_to_net_string(domain);
  k_domain_t back = k_net_parse_domain_string(first, nullptr, nullptr);
  char* second = back != nullptr ? k_domain_to_net_string(back) : nullptr;
  const bool same = first != nullptr && second != nullptr && std::string(first) == second;
  std::free(first);
  std::free(second);
  if (back != nullptr) k_domain_delete(back);
  return same;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> paths;
  for (int i = 1; i < argc; ++i) paths.emplace_back(argv[i]);
  if (paths.empty()) {
    for (const char* name : {"munin1", "munin2", "munin3", "munin4", "munin", "link", "pigs",
                             "diabetes", "barley", "mildew"}) {
      const std::string path = shared_dir() + "/nets/" + name + ".net";
      if (file_size(path) > 0) paths.push_back(path);
    }
  }
  double total_mb = 0, total_wall = 0, total_cpu = 0;
  for (const std::string& path : paths) {
    const double mb = static_cast<double>(file_size(path)) / 1e6;
    k_domain_t domain = k_net_parse_domain(path.c_str(), nullptr, nullptr);
    if (domain == nullptr) {
      std::fprintf(stderr, "%s: read failed: %s\n", path.c_str(), k_error_name(k_error_code()));
      return 1;
    }
    k_domain_delete(domain);
    double wall = 1e9, cpu = 1e9;
    for (int i = 0; i < 5; ++i) {
      const Clock::time_point t = Clock::now();
      const std::clock_t c = std::clock();
      domain = k_net_parse_domain(path.c_str(), nullptr, nullptr);
      wall = std::min(wall, std::chrono::duration<double>(Clock::now() - t).count());
      cpu = std::min(cpu, static_cast<double>(std::clock() - c) / CLOCKS_PER_SEC);
      if (i < 4) k_domain_delete(domain);
    }
    const bool same = round_trip(domain);
    k_domain_delete(domain);
    std::printf("%-40s %6.2f MB  wall %7.4f s %7.1f MB/s  CPU %7.4f s %7.1f MB/s  round trip %s\n",
                path.c_str(), mb, wall, mb / wall, cpu, mb / cpu, same ? "equal" : "DIFFERS");
    total_mb += mb;
    total_wall += wall;
    total_cpu += cpu;
    if (!same) return 1;
  }
  std::printf("all: %.2f MB, wall %.1f MB/s, CPU %.1f MB/s\n", total_mb, total_mb / total_wall,
              total_mb / total_cpu);
  return 0;
}
