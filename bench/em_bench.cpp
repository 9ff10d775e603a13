// EM learning speed on a real network: samples cases from the network's own
// tables (items hidden at random), learns every discrete chance node's table
// from uniform starting tables for a fixed number of iterations, and sets
// the time per iteration beside the time of propagating the same cases one
// by one.
//
// usage: bench_em NET [CASES [ITERATIONS [HIDE [SEED [START [THREADS]]]]]]
// (defaults 10000 cases, 2 iterations, hide 0.2, seed 1, START "uniform":
// learning starts from uniform tables; "true" starts from the network's
// own; THREADS 1).  With THREADS above 1 learning runs again from the same
// start at that concurrency level, and the speed-up and whether the learned
// tables are identical are printed.  Prints key<TAB>value lines.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <random>
#include <string>
#include <vector>

#include "compile/junction_forest.h"
#include "inference/evidence.h"
#include "inference/propagate.h"
#include "kelva/kelva.h"
#include "learning/em.h"
#include "network/domain.h"
#include "network/node.h"
#include "table/table.h"

namespace {

using kelva::Domain;
using kelva::Node;
using kelva::Table;
using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// CPU seconds of the process: on a shared machine less disturbed by other
// programs than the wall clock.
double cpu_seconds() {
  timespec t{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

// Discrete chance nodes, parents before children.
std::vector<Node*> sampling_order(Domain& d) {
  std::vector<Node*> pending;
  for (Node* n = d.first_node(); n != nullptr; n = n->next)
    if (n->category() == K_CATEGORY_CHANCE && n->is_discrete()) pending.push_back(n);
  std::vector<Node*> order;
  auto placed = [&](Node* n) {
    for (Node* o : order)
      if (o == n) return true;
    return false;
  };
  while (!pending.empty()) {
    for (auto it = pending.begin(); it != pending.end();) {
      bool ready = true;
      for (Node* p : (*it)->parents())
        if (p->category() == K_CATEGORY_CHANCE && p->is_discrete() && !placed(p)) ready = false;
      if (ready) {
        order.push_back(*it);
        it = pending.erase(it);
      } else {
        ++it;
      }
    }
  }
  return order;
}

// Forward sampling into the domain's case store.
void sample(Domain& d, std::size_t cases, double hide, std::mt19937_64& rng) {
  const std::vector<Node*> order = sampling_order(d);
  std::uniform_real_distribution<double> u(0.0, 1.0);
  std::vector<int> state(order.size(), 0);
  std::vector<std::size_t> position(d.counter() + 1, 0);
  for (std::size_t i = 0; i < order.size(); ++i) position[order[i]->serial()] = i;
  for (std::size_t c = 0; c < cases; ++c) {
    const std::size_t k = d.cases.add();
    for (std::size_t i = 0; i < order.size(); ++i) {
      const Table& t = *order[i]->table();
      std::uint64_t base = 0;
      std::uint64_t stride = 0;
      for (std::size_t j = 0; j < t.discrete_count(); ++j) {
        base *= t.state_counts()[j];
        stride *= t.state_counts()[j];
        if (t.nodes()[j] == order[i]) stride = 1;
        else base += static_cast<std::uint64_t>(state[position[t.nodes()[j]->serial()]]);
      }
      double sum = 0.0;
      for (std::size_t s = 0; s < order[i]->state_count(); ++s) sum += t.data()[base + s * stride];
      double r = u(rng) * sum;
      int s = 0;
      for (; s + 1 < static_cast<int>(order[i]->state_count()); ++s) {
        r -= t.data()[base + static_cast<std::uint64_t>(s) * stride];
        if (r < 0.0) break;
      }
      state[i] = s;
      if (u(rng) >= hide) order[i]->cases.set_state(k, s);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr,
                 "usage: bench_em NET [CASES [ITERATIONS [HIDE [SEED [START [THREADS]]]]]]\n");
    return 2;
  }
  const std::size_t cases = argc > 2 ? std::strtoul(argv[2], nullptr, 10) : 10000;
  const std::uint64_t iterations = argc > 3 ? std::strtoull(argv[3], nullptr, 10) : 2;
  const double hide = argc > 4 ? std::strtod(argv[4], nullptr) : 0.2;
  const unsigned long seed = argc > 5 ? std::strtoul(argv[5], nullptr, 10) : 1;
  const bool uniform = argc <= 6 || std::string(argv[6]) != "true";
  const std::uint64_t threads = argc > 7 ? std::strtoull(argv[7], nullptr, 10) : 1;

  k_domain_t h = k_net_parse_domain(argv[1], nullptr, nullptr);
  if (h == nullptr) {
    std::fprintf(stderr, "bench_em: cannot read %s (%s)\n", argv[1],
                 k_error_description(k_error_code()));
    return 1;
  }
  Domain& d = *reinterpret_cast<Domain*>(h);
  std::mt19937_64 rng(seed);
  auto start = Clock::now();
  sample(d, cases, hide, rng);
  const double sample_seconds = seconds_since(start);

  std::size_t learned = 0;
  for (Node* n = d.first_node(); n != nullptr; n = n->next) {
    if (n->category() != K_CATEGORY_CHANCE || !n->is_discrete()) continue;
    k_node_get_experience_table(reinterpret_cast<k_node_t>(n));
    ++learned;
    if (!uniform) continue;
    Table& t = *n->table();
    std::fill(t.data(), t.data() + t.size(), 1.0 / static_cast<double>(n->state_count()));
    t.notify_changed();
  }
  start = Clock::now();
  if (k_domain_compile(h) != 0) {
    std::fprintf(stderr, "bench_em: compile failed (%s)\n", k_error_description(k_error_code()));
    return 1;
  }
  const double compile_seconds = seconds_since(start);

  // The same cases propagated one by one, as the E-step does, without the
  // accumulation.
  start = Clock::now();
  double cpu = cpu_seconds();
  const double ll = k_domain_get_log_likelihood(h);
  const double propagate_seconds = seconds_since(start);
  const double propagate_cpu = cpu_seconds() - cpu;
  if (ll == 1.0) {
    std::fprintf(stderr, "bench_em: log-likelihood failed (%s)\n",
                 k_error_description(k_error_code()));
    return 1;
  }

  k_domain_set_max_number_of_em_iterations(h, iterations);
  k_domain_set_log_likelihood_tolerance(h, 0.0);
  std::vector<std::vector<double>> start_tables;
  for (Node* n = d.first_node(); n != nullptr; n = n->next)
    if (n->category() == K_CATEGORY_CHANCE && n->is_discrete())
      start_tables.emplace_back(n->table()->data(), n->table()->data() + n->table()->size());
  start = Clock::now();
  cpu = cpu_seconds();
  if (k_domain_learn_tables(h) != 0) {
    std::fprintf(stderr, "bench_em: learning failed (%s)\n", k_error_description(k_error_code()));
    return 1;
  }
  const double learn_seconds = seconds_since(start);
  const double learn_cpu = cpu_seconds() - cpu;
  const double per_iteration = learn_seconds / static_cast<double>(iterations);
  const double per_iteration_cpu = learn_cpu / static_cast<double>(iterations);

  // The same run at the concurrency level `threads`.
  double threads_seconds = 0.0;
  bool identical = true;
  if (threads > 1) {
    std::vector<std::vector<double>> learned_tables;
    std::size_t i = 0;
    for (Node* n = d.first_node(); n != nullptr; n = n->next) {
      if (n->category() != K_CATEGORY_CHANCE || !n->is_discrete()) continue;
      Table& t = *n->table();
      learned_tables.emplace_back(t.data(), t.data() + t.size());
      std::copy(start_tables[i].begin(), start_tables[i].end(), t.data());
      t.notify_changed();
      ++i;
    }
    k_domain_set_concurrency_level(h, threads);
    start = Clock::now();
    if (k_domain_learn_tables(h) != 0) {
      std::fprintf(stderr, "bench_em: learning with %llu threads failed (%s)\n",
                   static_cast<unsigned long long>(threads), k_error_description(k_error_code()));
      return 1;
    }
    threads_seconds = seconds_since(start);
    i = 0;
    for (Node* n = d.first_node(); n != nullptr; n = n->next) {
      if (n->category() != K_CATEGORY_CHANCE || !n->is_discrete()) continue;
      const Table& t = *n->table();
      identical = identical && std::equal(learned_tables[i].begin(), learned_tables[i].end(),
                                          t.data(), t.data() + t.size());
      ++i;
    }
  }

  std::uint64_t total_clique = 0;
  for (const auto& c : d.forest()->cliques) total_clique += c->table->size();
  std::printf("network\t%s\n", argv[1]);
  std::printf("learned_nodes\t%zu\n", learned);
  std::printf("cliques\t%zu\n", d.forest()->cliques.size());
  std::printf("total_clique_size\t%llu\n", static_cast<unsigned long long>(total_clique));
  std::printf("cases\t%zu\n", cases);
  std::printf("hide\t%g\n", hide);
  std::printf("start\t%s\n", uniform ? "uniform" : "true");
  std::printf("sample_seconds\t%.3f\n", sample_seconds);
  std::printf("compile_seconds\t%.3f\n", compile_seconds);
  std::printf("initial_log_likelihood\t%.10g\n", ll);
  std::printf("propagate_cases_seconds\t%.3f\n", propagate_seconds);
  std::printf("propagation_seconds_per_case\t%.3g\n",
              propagate_seconds / static_cast<double>(cases));
  std::printf("iterations\t%llu\n", static_cast<unsigned long long>(iterations));
  std::printf("learn_seconds\t%.3f\n", learn_seconds);
  std::printf("seconds_per_iteration\t%.3f\n", per_iteration);
  std::printf("cases_per_second\t%.0f\n", static_cast<double>(cases) / per_iteration);
  std::printf("iteration_over_propagations\t%.3f\n", per_iteration / propagate_seconds);
  std::printf("propagate_cases_cpu_seconds\t%.3f\n", propagate_cpu);
  std::printf("cpu_seconds_per_iteration\t%.3f\n", per_iteration_cpu);
  std::printf("cpu_cases_per_second\t%.0f\n", static_cast<double>(cases) / per_iteration_cpu);
  std::printf("cpu_iteration_over_propagations\t%.3f\n", per_iteration_cpu / propagate_cpu);
  if (threads > 1) {
    std::printf("threads\t%llu\n", static_cast<unsigned long long>(threads));
    std::printf("threads_learn_seconds\t%.3f\n", threads_seconds);
    std::printf("threads_speedup\t%.2f\n", learn_seconds / threads_seconds);
    std::printf("threads_identical_tables\t%d\n", identical ? 1 : 0);
  }
  k_domain_delete(h);
  return 0;
}
