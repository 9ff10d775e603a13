// Optimal triangulation against best greedy: the total clique weight (sum of
// the clique table sizes) each finds and the time the optimal search takes.
//
//   bench_total_weight [net files]   (default mildew, water and barley of
//                                     $KELVA_SHARED_DIR/nets)
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "kelva/kelva.h"

namespace {

double total_weight(k_domain_t domain) {
  double total = 0.0;
  for (k_junction_tree_t jt = k_domain_get_first_junction_tree(domain); jt; jt = k_jt_get_next(jt))
    total += static_cast<double>(k_jt_get_total_size(jt));
  return total;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> files(argv + 1, argv + argc);
  if (files.empty()) {
    const char* env = std::getenv("KELVA_SHARED_DIR");
    const std::string nets = std::string(env && *env ? env : "/work/shared") + "/nets/";
    for (const char* name : {"mildew", "water", "barley"}) files.push_back(nets + name + ".net");
  }
  std::printf("| network | best greedy | total weight | search s |\n|---|---:|---:|---:|\n");
  for (const std::string& file : files) {
    k_domain_t domain = k_net_parse_domain(
        file.c_str(), [](uint64_t, const char*, void*) {}, nullptr);
    if (!domain || k_domain_triangulate(domain, K_TM_BEST_GREEDY) != 0) {
      std::printf("| %s | %s |||\n", file.c_str(), k_error_name(k_error_code()));
      if (domain) k_domain_delete(domain);
      continue;
    }
    const double greedy = total_weight(domain);
    k_domain_uncompile(domain);
    const auto t0 = std::chrono::steady_clock::now();
    const k_status_t status = k_domain_triangulate(domain, K_TM_TOTAL_WEIGHT);
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    if (status != 0)
      std::printf("| %s | %.0f | %s | %.2f |\n", file.c_str(), greedy, k_error_name(k_error_code()),
                  seconds);
    else
      std::printf("| %s | %.0f | %.0f | %.2f |\n", file.c_str(), greedy, total_weight(domain),
                  seconds);
    std::fflush(stdout);
    k_domain_delete(domain);
  }
  return 0;
}
