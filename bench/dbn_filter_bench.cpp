// Filtering a long time series with a moving window of one slice: a slice
// of 20 binary nodes whose 4 interface nodes carry the past; every step
// enters evidence on 5 nodes, propagates, reads every belief and moves the
// window.  Prints wall and processor time (plain program over the C API).
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <vector>

#include "kelva/kelva.h"

int main(int argc, char** argv) {
  const long steps = argc > 1 ? std::atol(argv[1]) : 100000;
  constexpr int kNodes = 20;
  constexpr int kInterface = 4;
  k_class_collection_t cc = k_new_class_collection();
  k_class_t cls = k_cc_new_class(cc, "Slice");
  auto* body = reinterpret_cast<k_domain_t>(cls);
  std::mt19937 rng(7);
  std::uniform_real_distribution<double> u(0.1, 1.0);
  std::vector<k_node_t> x;
  for (int i = 0; i < kNodes; ++i) {
    x.push_back(k_domain_new_node(body, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL));
    k_node_set_number_of_states(x[i], 2);
    char name[16];
    std::snprintf(name, sizeof name, "X%d", i);
    k_node_set_name(x[i], name);
    if (i >= 1) k_node_add_parent(x[i], x[i - 1]);
    if (i >= 3) k_node_add_parent(x[i], x[i - 3]);
  }
  std::vector<k_node_t> all = x;
  for (int i = 0; i < kInterface; ++i) {
    k_node_t clone = k_node_create_temporal_clone(x[i]);
    k_node_add_parent(x[i], clone);
    all.push_back(clone);
  }
  for (k_node_t n : all) {
    k_table_t t = k_node_get_table(n);
    std::vector<double> data(k_table_get_size(t));
    for (std::size_t b = 0; b < data.size(); b += 2) {
      data[b] = u(rng);
      data[b + 1] = 1.0 - data[b];
    }
    k_table_set_data(t, data.data(), data.size(), 0, data.size());
  }
  k_domain_t window = k_class_create_dbn_domain(cls, 1);
  if (window == nullptr || k_domain_triangulate_dbn(window, K_TM_BEST_GREEDY) != 0 ||
      k_domain_compile(window) != 0) {
    std::fprintf(stderr, "setting up the window failed: %d\n", k_error_code());
    return 1;
  }
  std::vector<k_node_t> slice;
  for (int i = 0; i < kNodes; ++i) {
    char name[16];
    std::snprintf(name, sizeof name, "T1.X%d", i);
    slice.push_back(k_domain_get_node_by_name(window, name));
  }
  const double cpu0 = k_get_clock();
  const auto wall0 = std::chrono::steady_clock::now();
  double sum = 0;
  for (long t = 0; t < steps; ++t) {
    for (int i : {5, 9, 12, 16, 19}) k_node_select_state(slice[i], rng() % 2);
    if (k_domain_propagate(window, K_EQUILIBRIUM_SUM, K_MODE_NORMAL) != 0) {
      std::fprintf(stderr, "propagation failed at step %ld: %d\n", t, k_error_code());
      return 1;
    }
    for (k_node_t n : slice) sum += k_node_get_belief(n, 0);
    if (k_domain_move_dbn_window(window, 1) != 0) return 1;
  }
  const double wall =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - wall0).count();
  std::printf(
      "filtered %ld steps of a %d-node slice: wall %.3f s, processor %.3f s (checksum %.6g)\n",
      steps, kNodes, wall, k_get_clock() - cpu0, sum);
  k_domain_delete(window);
  k_cc_delete(cc);
  return 0;
}
