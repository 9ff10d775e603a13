// Full propagations of shared networks: time per propagation, and the
// effective memory bandwidth of the clique-table passes against a STREAM
// triad over arrays of the same total size.
//
//   bench_propagation [FILE.net ...]   (default: a set of shared networks)
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "compile/junction_forest.h"
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

// Bytes a full propagation moves through clique tables: the initialisation
// (a write of the first table assigned to a clique, then a read and a
// write per further table); per link and direction a read of the sender
// (none when its marginal was made while it received its own message) and
// a read and a write of the receiver; the root's total and scaling; and one
// read of the home clique per node marginal.
double bytes_per_propagation(const kelva::Forest& forest) {
  double entries = 0.0;
  for (const auto& c : forest.cliques) entries += 1.0 * c->table->size();
  std::vector<int> assigned(forest.cliques.size(), 0);
  for (const kelva::NodeSlot& s : forest.nodes) {
    if (s.assigned != nullptr && s.node->is_discrete() && assigned[s.assigned->number]++ > 0)
      entries += 2.0 * s.assigned->table->size();
    if (s.home != nullptr && s.node->is_discrete()) entries += 1.0 * s.home->table->size();
  }
  auto first_child = [](const kelva::Clique* c) -> const kelva::Clique* {
    for (const auto& link : c->links)
      if (link.neighbour != c->parent) return link.neighbour;
    return nullptr;
  };
  for (const auto& sep : forest.separators) {
    const double p = 1.0 * sep->parent->table->size(), c = 1.0 * sep->child->table->size();
    entries += (first_child(sep->child) != nullptr ? 0.0 : c) + 2.0 * p;
    const bool fused = sep->parent->parent != nullptr && first_child(sep->parent) == sep->child;
    entries += (fused ? 0.0 : p) + 2.0 * c;
  }
  for (const auto& t : forest.trees) entries += 3.0 * t->root->table->size();
  return 8.0 * entries;
}

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
  const double t = best_time([&] {
    k_domain_initialize(d);
    if (k_domain_propagate(d, K_EQUILIBRIUM_SUM, K_MODE_NORMAL) != 0) std::abort();
  });
  const double bytes = bytes_per_propagation(forest);
  const double triad = triad_bandwidth(static_cast<std::size_t>(entries));
  const std::string name = path.substr(path.find_last_of('/') + 1);
  std::printf("%-14s %6zu cliques %12.0f entries %10.1f us  %7.2f GB/s  %5.2f of triad\n",
              name.c_str(), forest.cliques.size(), entries, t * 1e6, bytes / t / 1e9,
              bytes / t / triad);
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
