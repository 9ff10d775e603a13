// One and two threads in one full propagation of shared networks: the best
// wall time of each, and the processor time per propagation of the calling
// thread and of the pool's workers.  On a machine shared with other work
// the wall times mislead; the larger of the two threads' processor times
// is the time two idle cores would take.
//
//   bench_two_threads [FILE.net ...]   (default: the large shared networks)
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include "compile/junction_forest.h"
#include "kelva/kelva.h"
#include "network/domain.h"
#include "table/sweep.h"

namespace {

using Clock = std::chrono::steady_clock;

double cpu_seconds(clockid_t clock) {
  timespec t{};
  clock_gettime(clock, &t);
  return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

struct Figures {
  double wall = 1e300;   // best
  double caller = 0.0;   // mean processor seconds of the calling thread
  double workers = 0.0;  // mean processor seconds of the other threads
};

Figures measure(k_domain_t d, int runs) {
  Figures f;
  const double p0 = cpu_seconds(CLOCK_PROCESS_CPUTIME_ID);
  const double t0 = cpu_seconds(CLOCK_THREAD_CPUTIME_ID);
  for (int r = 0; r < runs; ++r) {
    const Clock::time_point t = Clock::now();
    k_domain_initialize(d);
    if (k_domain_propagate(d, K_EQUILIBRIUM_SUM, K_MODE_NORMAL) != 0) std::abort();
    f.wall = std::min(f.wall, std::chrono::duration<double>(Clock::now() - t).count());
  }
  const double caller = cpu_seconds(CLOCK_THREAD_CPUTIME_ID) - t0;
  f.caller = caller / runs;
  f.workers = (cpu_seconds(CLOCK_PROCESS_CPUTIME_ID) - p0 - caller) / runs;
  return f;
}

void run(const std::string& path, int runs) {
  k_domain_t d = k_net_parse_domain(path.c_str(), nullptr, nullptr);
  if (d == nullptr || k_domain_compile(d) != 0) {
    std::printf("%-14s cannot be compiled (%s)\n", path.c_str(), k_error_name(k_error_code()));
    if (d != nullptr) k_domain_delete(d);
    return;
  }
  const kelva::Domain& domain = *reinterpret_cast<kelva::Domain*>(d);
  const kelva::Parallelism two{2, domain.grain_size};
  double entries = 0.0, split = 0.0;
  for (const auto& c : domain.forest()->cliques) {
    entries += 1.0 * c->table->size();
    if (kelva::split_sweep_fits(c->table->size(), two)) split += 1.0 * c->table->size();
  }
  Figures f[2];
  for (int t = 1; t <= 2; ++t) {
    k_domain_set_concurrency_level(d, t);
    measure(d, 1);  // the first propagation allocates and starts the workers
    f[t - 1] = measure(d, runs);
  }
  const std::string name = path.substr(path.find_last_of('/') + 1);
  const double slowest = std::max(f[1].caller, f[1].workers);
  std::printf(
      "%-12s %11.0f entries %5.1f%% split  one %8.2f ms (cpu %8.2f)  two %8.2f ms "
      "(caller cpu %8.2f, workers %8.2f)  speed-up %4.2f wall, %4.2f cpu\n",
      name.c_str(), entries, 100.0 * split / entries, f[0].wall * 1e3, f[0].caller * 1e3,
      f[1].wall * 1e3, f[1].caller * 1e3, f[1].workers * 1e3, f[0].wall / f[1].wall,
      (f[0].caller + f[0].workers) / slowest);
  k_domain_delete(d);
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> files(argv + 1, argv + argc);
  if (files.empty()) {
    const char* env = std::getenv("KELVA_SHARED_DIR");
    const std::string dir = std::string(env != nullptr ? env : KELVA_DEFAULT_SHARED_DIR) + "/nets/";
    for (const char* n : {"pigs.net", "munin2.net", "munin3.net", "water.net", "mildew.net",
                          "diabetes.net", "barley.net", "link.net"})
      files.push_back(dir + n);
  }
  const char* runs = std::getenv("KELVA_BENCH_RUNS");
  for (const std::string& f : files) run(f, runs != nullptr ? std::atoi(runs) : 20);
  return 0;
}
