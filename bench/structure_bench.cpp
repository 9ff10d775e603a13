// Structure learning on a shared network: reads a data file drawn from it
// (`kelva sample NET -n N -o DATA`), learns the links by each method into a
// domain of the same nodes without links, and prints per method the wall
// time and the structural Hamming distance to the network's links (pairs
// linked in one graph only, plus pairs linked in opposite directions).
//
// usage: bench_structure NET DATA [METHOD...]   (methods: pc npc tree greedy;
// default all three).  Prints METHOD<TAB>seconds<TAB>shd<TAB>links<TAB>cpu SECONDS lines
// (cpu: processor time of the process, worth reading beside the wall time
// on a loaded machine).

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <string>
#include <vector>

#include "kelva/kelva.h"

namespace {

using Clock = std::chrono::steady_clock;

std::vector<k_node_t> nodes_of(k_domain_t d) {
  std::vector<k_node_t> out;
  for (k_node_t n = k_domain_get_first_node(d); n != nullptr; n = k_node_get_next(n))
    out.push_back(n);
  std::reverse(out.begin(), out.end());
  return out;
}

// The links as (parent, child) name pairs.
std::vector<std::pair<std::string, std::string>> links_of(k_domain_t d) {
  std::vector<std::pair<std::string, std::string>> out;
  for (k_node_t n : nodes_of(d))
    for (k_node_t* p = k_node_get_parents(n); *p != nullptr; ++p)
      out.emplace_back(k_node_get_name(*p), k_node_get_name(n));
  return out;
}

std::size_t hamming(k_domain_t truth, k_domain_t learned) {
  const auto a = links_of(truth), b = links_of(learned);
  auto has = [](const auto& list, const std::string& x, const std::string& y) {
    return std::find(list.begin(), list.end(), std::make_pair(x, y)) != list.end();
  };
  std::size_t d = 0;
  for (const auto& [x, y] : a)
    if (!has(b, x, y)) ++d;  // missing or reversed
  for (const auto& [x, y] : b)
    if (!has(a, x, y) && !has(a, y, x)) ++d;  // extra
  return d;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: bench_structure NET DATA [pc|npc|tree|greedy]...\n");
    return 2;
  }
  k_domain_t truth = k_net_parse_domain(argv[1], nullptr, nullptr);
  if (truth == nullptr) {
    std::fprintf(stderr, "bench_structure: cannot read %s\n", argv[1]);
    return 1;
  }
  std::vector<std::string> methods;
  for (int i = 3; i < argc; ++i) methods.emplace_back(argv[i]);
  if (methods.empty()) methods = {"pc", "tree", "greedy"};
  for (const std::string& method : methods) {
    k_domain_t d = k_new_domain();
    for (k_node_t n : nodes_of(truth)) {
      k_node_t copy = k_domain_new_node(d, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL);
      k_node_set_name(copy, k_node_get_name(n));
      k_node_set_number_of_states(copy, k_node_get_number_of_states(n));
    }
    if (k_domain_parse_cases(d, argv[2], nullptr, nullptr) != 0) {
      std::fprintf(stderr, "bench_structure: cannot read the cases of %s\n", argv[2]);
      return 1;
    }
    const auto start = Clock::now();
    const std::clock_t cpu_start = std::clock();
    int status = 1;
    if (method == "pc") status = k_domain_learn_structure(d);
    if (method == "tree") status = k_domain_learn_tree_structure(d, nodes_of(d)[0], nullptr);
    if (method == "greedy") status = k_domain_learn_greedy_structure(d, K_SCORE_BIC, 0, 0, 0);
    // NPC, each region resolved by its first minimal solution.
    std::size_t regions = 0, uncertain = 0;
    if (method == "npc" && (status = k_domain_learn_structure_npc(d)) == 0)
      for (k_ambiguous_region_t r = k_domain_get_first_ambiguous_region(d); r != nullptr;
           r = k_ambiguous_region_get_next(r)) {
        ++regions;
        for (k_uncertain_edge_t* e = k_ambiguous_region_get_edges(r); *e != nullptr; ++e)
          ++uncertain;
        if (k_ambiguous_region_find_minimal_solutions(r) == 0) continue;
        // As kelva learn-structure: edge by edge, absent when possible.
        for (k_uncertain_edge_t* e = k_ambiguous_region_get_edges(r); *e != nullptr; ++e)
          if (k_uncertain_edge_manual_decision(*e, 0) != 0) k_uncertain_edge_manual_decision(*e, 1);
      }
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    const double cpu = static_cast<double>(std::clock() - cpu_start) / CLOCKS_PER_SEC;
    if (status != 0) {
      std::fprintf(stderr, "bench_structure: %s failed: %s\n", method.c_str(),
                   k_error_name(k_error_code()));
      return 1;
    }
    std::printf("%s\t%.3f\t%zu\t%zu\tcpu %.3f", method.c_str(), seconds, hamming(truth, d),
                links_of(d).size(), cpu);
    if (method == "npc") std::printf("\tregions %zu, uncertain edges %zu", regions, uncertain);
    std::printf("\n");
    k_domain_delete(d);
  }
  k_domain_delete(truth);
  return 0;
}
