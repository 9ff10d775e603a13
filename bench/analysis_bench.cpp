// MAP search and posterior sampling over the C API.
//
//   bench_analysis [NET [MAP-NODES [EVIDENCE [MIN]]]]
//
// 1. MAP: reads NET (default the shared alarm.net), enters EVIDENCE (a
//    comma-separated list of NODE=STATE, default three alarm findings),
//    propagates and finds every configuration of MAP-NODES (comma-separated,
//    default five alarm diagnoses) with probability at least MIN (default
//    0.001); prints their number, the first five and the time taken.
// 2. Sampling: 100,000 draws from the posterior of a generated strip network
//    of 1,000 nodes (each with up to 3 parents among the 6 before it) with
//    evidence on 20 nodes, and of NET with EVIDENCE; prints the time each.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "kelva/kelva.h"

namespace {

double seconds_since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void check(bool ok, const char* what) {
  if (ok) return;
  std::fprintf(stderr, "%s failed: %s\n", what, k_error_name(k_error_code()));
  std::exit(1);
}

std::vector<std::string> split(const std::string& text) {
  std::vector<std::string> parts;
  std::stringstream in(text);
  for (std::string part; std::getline(in, part, ',');)
    if (!part.empty()) parts.push_back(part);
  return parts;
}

void enter(k_domain_t domain, const std::string& evidence) {
  for (const std::string& item : split(evidence)) {
    const std::size_t eq = item.find('=');
    k_node_t node = k_domain_get_node_by_name(domain, item.substr(0, eq).c_str());
    check(node != nullptr, item.c_str());
    const int64_t state = k_node_get_state_index_from_label(node, item.substr(eq + 1).c_str());
    check(state >= 0 && k_node_select_state(node, static_cast<k_size_t>(state)) == 0, item.c_str());
  }
}

/// Times `draws` simulations of the propagated `domain`: prints the wall
/// and the processor seconds (the latter tells more on a busy machine).
void time_sampling(const char* what, k_domain_t domain, long draws) {
  check(k_domain_seed_random(domain, 1) == 0, "seed");
  const std::clock_t cpu = std::clock();
  const auto start = std::chrono::steady_clock::now();
  for (long d = 0; d < draws; ++d) check(k_domain_simulate(domain) == 0, "simulate");
  std::printf("%s_seconds\t%.3f\n%s_cpu_seconds\t%.3f\n", what, seconds_since(start), what,
              static_cast<double>(std::clock() - cpu) / CLOCKS_PER_SEC);
}

k_domain_t strip(std::size_t n, unsigned seed) {
  std::mt19937 rng(seed);
  k_domain_t domain = k_new_domain();
  std::vector<k_node_t> nodes;
  for (std::size_t i = 0; i < n; ++i) {
    k_node_t node = k_domain_new_node(domain, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL);
    k_node_set_number_of_states(node, 2 + rng() % 2);
    const std::size_t window = i < 6 ? i : 6;
    for (std::size_t k = 0; k < 3 && k < window; ++k)
      k_node_add_parent(node, nodes[i - 1 - rng() % window]);
    nodes.push_back(node);
  }
  std::uniform_real_distribution<double> u(0.05, 1.0);
  for (k_node_t node : nodes) {
    k_table_t table = k_node_get_table(node);
    std::vector<double> data(k_table_get_size(table));
    for (double& v : data) v = u(rng);
    k_table_set_data(table, data.data(), data.size(), 0, data.size());
  }
  check(k_domain_compile(domain) == 0, "compile strip");
  for (std::size_t i = 0; i < 20; ++i) k_node_select_state(nodes[i * n / 20 + 7], 0);
  check(k_domain_propagate(domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL) == 0, "propagate strip");
  return domain;
}

}  // namespace

int main(int argc, char** argv) {
  const char* shared = std::getenv("KELVA_SHARED_DIR");
  const std::string net =
      argc > 1 ? argv[1]
               : std::string(shared ? shared : KELVA_DEFAULT_SHARED_DIR) + "/nets/alarm.net";
  const std::string map_nodes =
      argc > 2 ? argv[2] : "HYPOVOLEMIA,LVFAILURE,ANAPHYLAXIS,INSUFFANESTH,PULMEMBOLUS";
  const std::string evidence = argc > 3 ? argv[3] : "HRBP=HIGH,BP=LOW,CVP=HIGH";
  const double minimum = argc > 4 ? std::strtod(argv[4], nullptr) : 0.001;

  k_domain_t domain = k_net_parse_domain(net.c_str(), nullptr, nullptr);
  check(domain != nullptr, "parse");
  check(k_domain_compile(domain) == 0, "compile");
  enter(domain, evidence);
  check(k_domain_propagate(domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL) == 0, "propagate");
  std::vector<k_node_t> nodes;
  for (const std::string& name : split(map_nodes)) {
    nodes.push_back(k_domain_get_node_by_name(domain, name.c_str()));
    check(nodes.back() != nullptr, name.c_str());
  }
  nodes.push_back(nullptr);
  auto start = std::chrono::steady_clock::now();
  check(k_domain_find_map_configurations(domain, nodes.data(), minimum) == 0, "MAP");
  const double map_seconds = seconds_since(start);
  const k_size_t count = k_domain_get_number_of_map_configurations(domain);
  std::printf("map\t%s\tnodes=%s\tevidence=%s\tmin=%g\n", net.c_str(), map_nodes.c_str(),
              evidence.c_str(), minimum);
  std::printf("map_configurations\t%llu\nmap_seconds\t%.6f\n",
              static_cast<unsigned long long>(count), map_seconds);
  for (k_size_t c = 0; c < count && c < 5; ++c) {
    const k_size_t* states = k_domain_get_map_configuration(domain, c);
    std::printf("  %.12f", k_domain_get_probability_of_map_configuration(domain, c));
    for (std::size_t i = 0; i + 1 < nodes.size(); ++i)
      std::printf("  %s=%s", k_node_get_name(nodes[i]),
                  k_node_get_state_label(nodes[i], states[i]));
    std::printf("\n");
  }
  time_sampling("sample_net_100000", domain, 100000);
  k_domain_delete(domain);

  start = std::chrono::steady_clock::now();
  k_domain_t big = strip(1000, 3);
  std::printf("strip_1000_compile_seconds\t%.3f\n", seconds_since(start));
  time_sampling("sample_strip_1000_100000", big, 100000);
  k_domain_delete(big);
  return 0;
}
