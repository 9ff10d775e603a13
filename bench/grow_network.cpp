// Triangulation and junction forest time on networks that grow while their
// cliques stay small: a strip in which every node has a few parents among the
// `width` nodes before it.  The time per node should not grow with n.
//
//   bench_grow_network [width [parents [seconds [first]]]]
//
// Sizes double from `first` (default 1000) until one run takes longer than
// `seconds` (default 5).
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <vector>

#include "kelva/kelva.h"

namespace {

// Builds the strip: node i gets `parents` distinct parents drawn from nodes
// i-width .. i-1, and 2 or 3 states.
k_domain_t grow(std::size_t n, std::size_t width, std::size_t parents, unsigned seed) {
  k_domain_t domain = k_new_domain();
  std::mt19937 rng(seed);
  std::vector<k_node_t> nodes;
  nodes.reserve(n);
  for (std::size_t i = 0; i < n; ++i) {
    k_node_t node = k_domain_new_node(domain, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL);
    if (!node || k_node_set_number_of_states(node, 2 + rng() % 2) != 0) {
      std::fprintf(stderr, "cannot build node %zu: %s\n", i, k_error_name(k_error_code()));
      std::exit(1);
    }
    const std::size_t window = i < width ? i : width;
    std::vector<std::size_t> picked;
    while (picked.size() < parents && picked.size() < window) {
      const std::size_t p = i - 1 - rng() % window;
      bool fresh = true;
      for (std::size_t q : picked) fresh = fresh && q != p;
      if (fresh) picked.push_back(p);
    }
    for (std::size_t p : picked) k_node_add_parent(node, nodes[p]);
    nodes.push_back(node);
  }
  return domain;
}

}  // namespace

int main(int argc, char** argv) {
  const std::size_t width = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 6;
  const std::size_t parents = argc > 2 ? std::strtoul(argv[2], nullptr, 10) : 3;
  const double limit = argc > 3 ? std::strtod(argv[3], nullptr) : 5.0;
  const std::size_t first = argc > 4 ? std::strtoul(argv[4], nullptr, 10) : 1000;
  std::printf("strip of width %zu, %zu parents per node, best greedy\n", width, parents);
  std::printf("%9s %10s %12s %9s %11s %12s\n", "nodes", "build s", "triangulate s", "us/node",
              "cliques", "total size");
  for (std::size_t n = first; n <= (std::size_t{1} << 24); n *= 2) {
    const auto t0 = std::chrono::steady_clock::now();
    k_domain_t domain = grow(n, width, parents, 17);
    const auto t1 = std::chrono::steady_clock::now();
    if (k_domain_triangulate(domain, K_TM_BEST_GREEDY) != 0) {
      std::fprintf(stderr, "triangulation of %zu nodes failed: %s\n", n,
                   k_error_name(k_error_code()));
      return 1;
    }
    const auto t2 = std::chrono::steady_clock::now();
    std::size_t cliques = 0, total = 0;
    for (k_junction_tree_t jt = k_domain_get_first_junction_tree(domain); jt;
         jt = k_jt_get_next(jt)) {
      for (k_clique_t* c = k_jt_get_cliques(jt); *c; ++c) ++cliques;
      total += k_jt_get_total_size(jt);
    }
    const double build = std::chrono::duration<double>(t1 - t0).count();
    const double seconds = std::chrono::duration<double>(t2 - t1).count();
    std::printf("%9zu %10.3f %12.3f %9.2f %11zu %12zu\n", n, build, seconds, seconds * 1e6 / n,
                cliques, total);
    std::fflush(stdout);
    k_domain_delete(domain);
    if (seconds + build > limit) break;
  }
  return 0;
}
