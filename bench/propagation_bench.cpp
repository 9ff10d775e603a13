// Full propagations of shared networks, with one sweep per clique and pass
// and with one kernel per table operation: time per propagation (wall and
// processor), the bytes moved per clique entry, and the time against the
// bound 1.5 x 32 bytes per entry at the rate of a STREAM triad over arrays
// of the same total size.
//
//   bench_propagation [FILE.net ...]   (default: a set of shared networks)
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include "compile/junction_forest.h"
#include "inference/propagate.h"
#include "kelva/kelva.h"
#include "network/domain.h"

namespace {

using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point t) {
  return std::chrono::duration<double>(Clock::now() - t).count();
}

// Best time of `f` over repetitions filling at least `budget` seconds.
template <class F>
double best_time(F f, double budget = 0.3) {
  double best = 1e300, spent = 0.0;
  int reps = 0;
  while (spent < budget || reps < 3) {
    const Clock::time_point t = Clock::now();
    f();
    const double s = seconds_since(t);
    best = std::min(best, s);
    spent += s;
    ++reps;
  }
  return best;
}

// Bytes a full propagation moves, counted as `kelva bench` counts them (see
// tools/kelva/propagation_traffic.h): per clique a write in the collect
// sweep and a read and a write in the distribute sweep, a read of each root
// for its total, 5 entries per separator entry, each node table read once
// and each marginal written once.
double bytes_per_propagation(const kelva::Forest& forest) {
  double entries = 0.0;
  for (const auto& c : forest.cliques) entries += 3.0 * c->table->size();
  for (const auto& sep : forest.separators) entries += 5.0 * sep->table->size();
  for (const auto& t : forest.trees) entries += 1.0 * t->root->table->size();
  for (const kelva::NodeSlot& s : forest.nodes) {
    if (s.node == nullptr || !s.node->is_discrete()) continue;
    entries += 1.0 * s.node->state_count();
    if (s.assigned != nullptr) entries += 1.0 * s.node->table()->size();
  }
  return 8.0 * entries;
}

// Processor seconds of the process so far.
double processor_seconds() { return static_cast<double>(std::clock()) / CLOCKS_PER_SEC; }

// STREAM triad bandwidth (bytes per second) over arrays of `n` doubles.
double triad_bandwidth(std::size_t n) {
  n = std::max<std::size_t>(n, 1 << 16);
  std::vector<double> a(n, 1.0), b(n, 2.0), c(n, 3.0);
  const double t = best_time([&] {
    for (std::size_t i = 0; i < n; ++i) a[i] = b[i] + 3.0 * c[i];
  });
  if (a[n / 2] != 11.0) std::abort();
  return 24.0 * n / t;
}

void run(const std::string& path) {
  k_domain_t d = k_net_parse_domain(path.c_str(), nullptr, nullptr);
  if (d == nullptr || k_domain_compile(d) != 0) {
    std::printf("%-14s cannot be compiled (%s)\n", path.c_str(), k_error_name(k_error_code()));
    if (d != nullptr) k_domain_delete(d);
    return;
  }
  const kelva::Forest& forest = *reinterpret_cast<kelva::Domain*>(d)->forest();
  double entries = 0.0;
  for (const auto& c : forest.cliques) entries += 1.0 * c->table->size();
  // The sweeps and the kernel-per-operation path, each the best of its
  // runs, with the processor time of the runs beside the wall time.
  double wall[2], cpu[2];
  for (int fused = 1; fused >= 0; --fused) {
    kelva::set_fused_sweeps(fused == 1);
    const double c0 = processor_seconds();
    int runs = 0;
    wall[fused] = best_time([&] {
      ++runs;
      k_domain_initialize(d);
      if (k_domain_propagate(d, K_EQUILIBRIUM_SUM, K_MODE_NORMAL) != 0) std::abort();
    });
    cpu[fused] = (processor_seconds() - c0) / runs;
  }
  kelva::set_fused_sweeps(true);
  const double bytes = bytes_per_propagation(forest);
  const double triad = triad_bandwidth(static_cast<std::size_t>(entries));
  const std::string name = path.substr(path.find_last_of('/') + 1);
  std::printf(
      "%-14s %6zu cliques %11.0f entries %5.1f B/entry  sweeps %9.1f us (cpu %9.1f)  "
      "kernels %9.1f us (cpu %9.1f)  triad %5.2f GB/s  bound %9.1f us  %4.2f of bound\n",
      name.c_str(), forest.cliques.size(), entries, bytes / entries, wall[1] * 1e6, cpu[1] * 1e6,
      wall[0] * 1e6, cpu[0] * 1e6, triad / 1e9, 1.5 * 32.0 * entries / triad * 1e6,
      wall[1] / (1.5 * 32.0 * entries / triad));
  k_domain_delete(d);
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> files(argv + 1, argv + argc);
  if (files.empty()) {
    const char* env = std::getenv("KELVA_SHARED_DIR");
    const std::string dir = std::string(env != nullptr ? env : KELVA_DEFAULT_SHARED_DIR) + "/nets/";
    for (const char* n :
         {"asia.net", "alarm.net", "hailfinder.net", "insurance.net", "water.net", "pigs.net",
          "munin2.net", "link.net", "diabetes.net", "barley.net", "mildew.net", "munin1.net"})
      files.push_back(dir + n);
  }
  for (const std::string& f : files) run(f);
  return 0;
}
