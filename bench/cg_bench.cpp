// Full propagations of mixed networks of 100 discrete and 100 continuous
// nodes with continuous values entered: time per propagation (the tree is
// initialised again each time, so the continuous part is computed anew).
//
//   bench_cg
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <random>
#include <vector>

#include "kelva/kelva.h"

namespace {

using Clock = std::chrono::steady_clock;

// 100 binary nodes, each with up to two of the three nodes before it as
// parents; 100 continuous nodes in chains of `chain` nodes, each chain's
// first node with one discrete parent, the others regressing on the node
// before them and on a discrete parent every fourth node (a chain then
// depends on about chain / 4 discrete nodes, all in one clique).  Values are entered
// on every fifth continuous node.
k_domain_t make_network(std::size_t chain, std::mt19937& rng) {
  std::uniform_real_distribution<double> u(0.1, 1.0);
  k_domain_t d = k_new_domain();
  std::vector<k_node_t> discrete;
  for (int i = 0; i < 100; ++i) {
    k_node_t n = k_domain_new_node(d, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL);
    k_node_set_number_of_states(n, 2);
    for (int k = 1; k <= 3 && k <= i; ++k)
      if (rng() % 3 != 0 && k_node_get_parents(n)[1] == nullptr)
        k_node_add_parent(n, discrete[static_cast<std::size_t>(i - k)]);
    discrete.push_back(n);
    k_table_t t = k_node_get_table(n);
    for (k_size_t c = 0; c < k_table_get_size(t); c += 2) {
      const double p = u(rng);
      k_table_set_data_item(t, c, p);
      k_table_set_data_item(t, c + 1, 1.0 - p);
    }
  }
  k_node_t previous = nullptr;
  for (std::size_t i = 0; i < 100; ++i) {
    k_node_t x = k_domain_new_node(d, K_CATEGORY_CHANCE, K_KIND_CONTINUOUS, K_SUBTYPE_ERROR);
    const bool first = i % chain == 0;
    if (first || i % 4 == 0) k_node_add_parent(x, discrete[rng() % discrete.size()]);
    if (!first) k_node_add_parent(x, previous);
    const k_size_t configs = k_table_get_size(k_node_get_table(x));
    for (k_size_t c = 0; c < configs; ++c) {
      k_node_set_alpha(x, 4 * u(rng), c);
      k_node_set_gamma(x, u(rng), c);
      if (!first) k_node_set_beta(x, u(rng), previous, c);
    }
    if (i % 5 == 2) k_node_enter_value(x, u(rng));
    previous = x;
  }
  return d;
}

}  // namespace

int main() {
  std::mt19937 rng(7);
  for (std::size_t chain : {4, 20}) {
    k_domain_t d = make_network(chain, rng);
    if (k_domain_compile(d) != 0) {
      std::fprintf(stderr, "compile failed: %s\n", k_error_name(k_error_code()));
      return 1;
    }
    double best = 1e300, total = 0.0;
    const int reps = 200;
    for (int r = 0; r < reps; ++r) {
      const Clock::time_point t = Clock::now();
      k_domain_initialize(d);
      if (k_domain_propagate(d, K_EQUILIBRIUM_SUM, K_MODE_NORMAL) != 0) {
        std::fprintf(stderr, "propagation failed: %s\n", k_error_name(k_error_code()));
        return 1;
      }
      const double s = std::chrono::duration<double>(Clock::now() - t).count();
      best = std::min(best, s);
      total += s;
    }
    unsigned long long size = 0, cg_size = 0;
    for (k_junction_tree_t jt = k_domain_get_first_junction_tree(d); jt != nullptr;
         jt = k_jt_get_next(jt)) {
      size += k_jt_get_total_size(jt);
      cg_size += k_jt_get_total_cg_size(jt);
    }
    std::printf(
        "chains of %3zu continuous nodes: %.3f ms per full propagation (best %.3f ms), "
        "clique tables %llu + %llu\n",
        chain, 1e3 * total / reps, 1e3 * best, size, cg_size);
    k_domain_delete(d);
  }
  return 0;
}
