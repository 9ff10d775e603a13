// Adaptation speed on a real network: draws cases from the network's own
// tables (items hidden at random), then enters, propagates and adapts to
// each case in turn, every discrete chance node adapting with experience 1
// and the given fading factor.
//
// usage: bench_adapt NET [CASES [HIDE [FADING [SEED]]]]
// (defaults 100000 cases, hide 0, fading 1, seed 1).  Prints key<TAB>value
// lines.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <random>
#include <vector>

#include "kelva/kelva.h"

namespace {

using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

struct Sampled {
  k_node_t node;
  k_table_t table;
  std::vector<k_node_t> members;  // the table's nodes
  std::vector<double> data;
};

// Discrete chance nodes with their tables, parents before children.
std::vector<Sampled> sampling_order(k_domain_t d) {
  std::vector<Sampled> pending, order;
  for (k_node_t n = k_domain_get_first_node(d); n != nullptr; n = k_node_get_next(n)) {
    if (k_node_get_category(n) != K_CATEGORY_CHANCE || k_node_get_kind(n) != K_KIND_DISCRETE)
      continue;
    Sampled s{n, k_node_get_table(n), {}, {}};
    for (k_node_t* m = k_table_get_nodes(s.table); *m; ++m) s.members.push_back(*m);
    s.data.resize(k_table_get_size(s.table));
    k_table_get_data(s.table, s.data.data(), s.data.size(), 0, s.data.size());
    pending.push_back(std::move(s));
  }
  while (!pending.empty())
    for (auto it = pending.begin(); it != pending.end();) {
      bool ready = true;
      for (k_node_t m : it->members) {
        if (m == it->node) continue;
        bool placed = false;
        for (const Sampled& o : order) placed = placed || o.node == m;
        ready = ready && placed;
      }
      if (ready) {
        order.push_back(std::move(*it));
        it = pending.erase(it);
      } else {
        ++it;
      }
    }
  return order;
}

// CPU seconds of the process: on a shared machine less disturbed by other
// programs than the wall clock.
double cpu_seconds() {
  timespec t{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: bench_adapt NET [CASES [HIDE [FADING [SEED]]]]\n");
    return 2;
  }
  const std::size_t cases = argc > 2 ? std::strtoul(argv[2], nullptr, 10) : 100000;
  const double hide = argc > 3 ? std::strtod(argv[3], nullptr) : 0.0;
  const double fading = argc > 4 ? std::strtod(argv[4], nullptr) : 1.0;
  const unsigned long seed = argc > 5 ? std::strtoul(argv[5], nullptr, 10) : 1;
  k_domain_t d = k_net_parse_domain(argv[1], nullptr, nullptr);
  if (d == nullptr) {
    std::fprintf(stderr, "bench_adapt: cannot read %s\n", argv[1]);
    return 1;
  }
  std::vector<Sampled> order = sampling_order(d);
  std::mt19937_64 rng(seed);
  std::uniform_real_distribution<double> u(0.0, 1.0);
  k_domain_set_number_of_cases(d, cases);
  std::vector<std::size_t> state(order.size());
  for (std::size_t c = 0; c < cases; ++c)
    for (std::size_t i = 0; i < order.size(); ++i) {
      const Sampled& s = order[i];
      std::size_t base = 0, stride = 0;
      for (k_node_t m : s.members) {
        const std::size_t states = k_node_get_number_of_states(m);
        base *= states;
        stride *= states;
        if (m == s.node) {
          stride = 1;
          continue;
        }
        for (std::size_t j = 0; j < i; ++j)
          if (order[j].node == m) base += state[j];
      }
      const std::size_t states = k_node_get_number_of_states(s.node);
      double r = u(rng);
      std::size_t k = 0;
      for (; k + 1 < states; ++k) {
        r -= s.data[base + k * stride];
        if (r < 0.0) break;
      }
      state[i] = k;
      if (u(rng) >= hide) k_node_set_case_state(s.node, c, k);
    }
  for (const Sampled& s : order) {
    k_table_set_all_data_items(k_node_get_experience_table(s.node), 1.0);
    if (fading != 1.0) k_table_set_all_data_items(k_node_get_fading_table(s.node), fading);
  }
  if (k_domain_compile(d) != 0) {
    std::fprintf(stderr, "bench_adapt: compile failed\n");
    return 1;
  }
  std::size_t skipped = 0;
  const auto start = Clock::now();
  const double cpu_start = cpu_seconds();
  for (std::size_t c = 0; c < cases; ++c) {
    k_domain_enter_case(d, c);
    if (k_domain_propagate(d, K_EQUILIBRIUM_SUM, K_MODE_NORMAL) != 0) {
      ++skipped;
      continue;
    }
    if (k_domain_adapt(d) != 0) {
      std::fprintf(stderr, "bench_adapt: adapt failed (%s)\n", k_error_description(k_error_code()));
      return 1;
    }
  }
  const double seconds = seconds_since(start);
  const double cpu = cpu_seconds() - cpu_start;
  std::printf("network\t%s\n", argv[1]);
  std::printf("adapted_nodes\t%zu\n", order.size());
  std::printf("cases\t%zu\n", cases);
  std::printf("skipped\t%zu\n", skipped);
  std::printf("hide\t%g\n", hide);
  std::printf("fading\t%g\n", fading);
  std::printf("adapt_seconds\t%.3f\n", seconds);
  std::printf("adapt_cpu_seconds\t%.3f\n", cpu);
  std::printf("cpu_microseconds_per_case\t%.2f\n", 1e6 * cpu / static_cast<double>(cases));
  k_domain_delete(d);
  return 0;
}
