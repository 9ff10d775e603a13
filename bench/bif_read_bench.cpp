// Throughput of the BIF reader: writes a BIF file of a random network (three
// or four states a variable, up to four parents, rows labelled by the
// parents' states as common repositories write them), then times
// k_bif_parse_domain on it (the file in the page cache) and, on the same
// network, k_domain_save_as_bif.  Both wall time and the process's CPU time
// are given: on a shared, loaded machine the CPU figure is the one to trust.
//
//   bench_bif_read [MEGABYTES [FILE]]   (default 50, a file in /tmp)
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <random>
#include <string>
#include <vector>

#include "kelva/kelva.h"

namespace {

using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point t) {
  return std::chrono::duration<double>(Clock::now() - t).count();
}

// Writes variables until the file holds about `bytes`; returns the count.
std::size_t write_file(const std::string& path, std::size_t bytes) {
  std::FILE* f = std::fopen(path.c_str(), "w");
  if (f == nullptr) {
    std::perror(path.c_str());
    std::exit(1);
  }
  std::mt19937_64 random(7);
  std::vector<std::size_t> states;
  std::string text = "network bench {\n}\n";
  std::string tables;
  std::size_t written = 0;
  char number[32];
  while (written + text.size() + tables.size() < bytes) {
    const std::size_t v = states.size();
    const std::size_t n = 3 + random() % 2;
    states.push_back(n);
    text +=
        "variable v" + std::to_string(v) + " {\n  type discrete [ " + std::to_string(n) + " ] { ";
    for (std::size_t s = 0; s < n; ++s) text += (s ? ", state" : "state") + std::to_string(s);
    text += " };\n}\n";
    std::vector<std::size_t> parents;
    for (std::size_t k = 0; k < 4 && v > 0; ++k) {
      const std::size_t p = v - 1 - random() % std::min<std::size_t>(v, 50);
      if (std::find(parents.begin(), parents.end(), p) == parents.end()) parents.push_back(p);
    }
    tables += "probability ( v" + std::to_string(v);
    for (std::size_t k = 0; k < parents.size(); ++k)
      tables += (k ? ", v" : " | v") + std::to_string(parents[k]);
    tables += " ) {\n";
    std::vector<std::size_t> digit(parents.size(), 0);
    for (bool more = true; more;) {
      tables += parents.empty() ? "  table " : "  (";
      for (std::size_t k = 0; k < parents.size(); ++k)
        tables += (k ? ", state" : "state") + std::to_string(digit[k]);
      if (!parents.empty()) tables += ") ";
      int left = 10000;
      for (std::size_t s = 0; s < n; ++s) {
        const int share = s + 1 == n ? left : static_cast<int>(random() % (left + 1));
        left -= share;
        std::snprintf(number, sizeof number, "%s%.4f", s ? ", " : "", share / 10000.0);
        tables += number;
      }
      tables += ";\n";
      more = false;
      for (std::size_t k = parents.size(); k-- > 0;) {
        if (++digit[k] < states[parents[k]]) {
          more = true;
          break;
        }
        digit[k] = 0;
      }
    }
    tables += "}\n";
    if (text.size() > (1 << 20)) {
      written += text.size();
      std::fputs(text.c_str(), f);
      text.clear();
    }
  }
  std::fputs(text.c_str(), f);
  std::fputs(tables.c_str(), f);
  std::fclose(f);
  return states.size();
}

double file_megabytes(const std::string& path) {
  std::FILE* f = std::fopen(path.c_str(), "rb");
  std::fseek(f, 0, SEEK_END);
  const long size = std::ftell(f);
  std::fclose(f);
  return static_cast<double>(size) / (1 << 20);
}

}  // namespace

int main(int argc, char** argv) {
  const std::size_t megabytes = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 50;
  const std::string path = argc > 2 ? argv[2] : "/tmp/kelva_bench.bif";
  const std::size_t variables = write_file(path, megabytes << 20);
  const double mb = file_megabytes(path);
  std::printf("file: %s, %.1f MB, %zu variables\n", path.c_str(), mb, variables);

  // A first read warms the page cache; the best of three is reported.
  k_domain_delete(k_bif_parse_domain(path.c_str(), nullptr, nullptr));
  double best = 1e9;
  double best_cpu = 1e9;
  k_domain_t domain = nullptr;
  for (int i = 0; i < 3; ++i) {
    if (domain != nullptr) k_domain_delete(domain);
    const Clock::time_point t = Clock::now();
    const std::clock_t c = std::clock();
    domain = k_bif_parse_domain(path.c_str(), nullptr, nullptr);
    best = std::min(best, seconds_since(t));
    best_cpu = std::min(best_cpu, static_cast<double>(std::clock() - c) / CLOCKS_PER_SEC);
    if (domain == nullptr) {
      std::fprintf(stderr, "read failed: %s\n", k_error_name(k_error_code()));
      return 1;
    }
  }
  const std::string copy = path + ".out";
  const Clock::time_point t = Clock::now();
  const std::clock_t c = std::clock();
  if (k_domain_save_as_bif(domain, copy.c_str()) != 0) std::fprintf(stderr, "save failed\n");
  const double save_seconds = seconds_since(t);
  const double save_cpu = static_cast<double>(std::clock() - c) / CLOCKS_PER_SEC;
  std::remove(copy.c_str());
  k_domain_delete(domain);
  std::printf("k_bif_parse_domain:    wall %7.3f s %8.1f MB/s, CPU %7.3f s %8.1f MB/s\n", best,
              mb / best, best_cpu, mb / best_cpu);
  std::printf("k_domain_save_as_bif:  wall %7.3f s %8.1f MB/s, CPU %7.3f s %8.1f MB/s\n",
              save_seconds, mb / save_seconds, save_cpu, mb / save_cpu);
  if (argc <= 2) std::remove(path.c_str());
  return 0;
}
