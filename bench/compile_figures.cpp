// Compilation figures of the shared networks: with best greedy the number of
// cliques, the largest and the total clique table size and the compile time;
// the total clique table size under each single greedy heuristic.
//
//   bench_compile_figures [nets folder]      (default $KELVA_SHARED_DIR/nets)
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "kelva/kelva.h"

namespace {

namespace fs = std::filesystem;

struct Sizes {
  std::size_t cliques = 0;
  std::uint64_t largest = 0;
  std::uint64_t total = 0;
};

// Saturating product and sum, as the clique sizes of large networks overflow.
std::uint64_t mul(std::uint64_t a, std::uint64_t b) {
  return b != 0 && a > UINT64_MAX / b ? UINT64_MAX : a * b;
}

Sizes sizes(k_domain_t domain) {
  Sizes s;
  for (k_junction_tree_t jt = k_domain_get_first_junction_tree(domain); jt;
       jt = k_jt_get_next(jt)) {
    for (k_clique_t* c = k_jt_get_cliques(jt); *c; ++c) {
      ++s.cliques;
      std::uint64_t size = 1;
      for (k_node_t* m = k_clique_get_members(*c); *m; ++m)
        if (k_node_get_kind(*m) == K_KIND_DISCRETE)
          size = mul(size, k_node_get_number_of_states(*m));
      s.largest = std::max(s.largest, size);
    }
    const std::uint64_t t = k_jt_get_total_size(jt);
    s.total = s.total > UINT64_MAX - t ? UINT64_MAX : s.total + t;
  }
  return s;
}

std::string text(std::uint64_t v) { return v == UINT64_MAX ? "HUGE" : std::to_string(v); }

}  // namespace

int main(int argc, char** argv) {
  fs::path folder;
  if (argc > 1) {
    folder = argv[1];
  } else {
    const char* env = std::getenv("KELVA_SHARED_DIR");
    folder = fs::path(env && *env ? env : "/work/shared") / "nets";
  }
  std::vector<fs::path> nets;
  for (const auto& entry : fs::directory_iterator(folder))
    if (entry.path().extension() == ".net") nets.push_back(entry.path());
  std::sort(nets.begin(), nets.end());

  std::printf(
      "| network | nodes | cliques | largest clique table | total clique size | compile s "
      "| total 15 | total 16 | total 17 | total 18 |\n");
  std::printf("|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|\n");
  for (const fs::path& file : nets) {
    k_domain_t domain = k_net_parse_domain(
        file.string().c_str(), [](uint64_t, const char*, void*) {}, nullptr);
    const std::string name = file.stem().string();
    if (!domain) {
      std::printf("| %s | refused by the reader |||||||||\n", name.c_str());
      continue;
    }
    std::size_t nodes = 0;
    for (k_node_t n = k_domain_get_first_node(domain); n; n = k_node_get_next(n)) ++nodes;
    const auto t0 = std::chrono::steady_clock::now();
    const k_status_t compiled = k_domain_compile(domain);
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    std::string row = "| " + name + " | " + std::to_string(nodes) + " | ";
    if (compiled != 0 && k_domain_is_triangulated(domain) != 1) {
      // Too large to compile: the figures of the triangulation alone.
      const std::string why = k_error_name(k_error_code());
      if (k_domain_triangulate(domain, K_TM_BEST_GREEDY) != 0) {
        std::printf("%s%s |||||||||\n", row.c_str(), k_error_name(k_error_code()));
        k_domain_delete(domain);
        continue;
      }
      const Sizes s = sizes(domain);
      row +=
          std::to_string(s.cliques) + " | " + text(s.largest) + " | " + text(s.total) + " | " + why;
    } else {
      const Sizes s = sizes(domain);
      char t[32];
      std::snprintf(t, sizeof t, "%.3f", seconds);
      row += std::to_string(s.cliques) + " | " + text(s.largest) + " | " + text(s.total) + " | " +
             (compiled == 0 ? t : k_error_name(k_error_code()));
    }
    for (k_triangulation_method_t method :
         {K_TM_CLIQUE_SIZE, K_TM_CLIQUE_WEIGHT, K_TM_FILL_IN_SIZE, K_TM_FILL_IN_WEIGHT}) {
      k_domain_uncompile(domain);
      if (k_domain_triangulate(domain, method) != 0) {
        row += std::string(" | ") + k_error_name(k_error_code());
        continue;
      }
      row += " | " + text(sizes(domain).total);
    }
    std::printf("%s |\n", row.c_str());
    std::fflush(stdout);
    k_domain_delete(domain);
  }
  return 0;
}
