// Unfolding speed: a class of NODES nodes (each with up to two random
// earlier parents; the first an input, the last an output) instantiated
// INSTANCES times in a chain, each instance's input bound to the previous
// instance's output; then the chain class is unfolded into a domain.
//
// usage: bench_class_unfold [INSTANCES [NODES]]  (defaults 1000 and 50).
// Prints key<TAB>value lines.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <random>
#include <string>
#include <vector>

#include "kelva/kelva.h"

namespace {

using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

void check(bool ok, const char* what) {
  if (ok) return;
  std::fprintf(stderr, "bench_class_unfold: %s failed (error %d)\n", what,
               static_cast<int>(k_error_code()));
  std::exit(1);
}

}  // namespace

int main(int argc, char** argv) {
  const long instances = argc > 1 ? std::atol(argv[1]) : 1000;
  const long nodes = argc > 2 ? std::atol(argv[2]) : 50;
  if (instances < 1 || nodes < 2) {
    std::fprintf(stderr, "usage: bench_class_unfold [INSTANCES [NODES]]\n");
    return 2;
  }
  k_class_collection_t cc = k_new_class_collection();
  k_class_t part = k_cc_new_class(cc, "Part"), chain = k_cc_new_class(cc, "Chain");
  auto* body = reinterpret_cast<k_domain_t>(part);
  std::mt19937 rng(1);
  std::vector<k_node_t> made;
  for (long i = 0; i < nodes; ++i) {
    k_node_t n = k_domain_new_node(body, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL);
    check(n != nullptr && k_node_set_number_of_states(n, 2) == 0, "node");
    check(k_node_set_name(n, (std::string("n").append(std::to_string(i))).c_str()) == 0, "name");
    for (int k = 0; k < 2 && i > 0; ++k) {
      k_node_t p = made[rng() % made.size()];
      if (k == 0 || p != made.back()) k_node_add_parent(n, p);  // a repeated link is refused
    }
    k_table_t t = k_node_get_table(n);
    for (k_size_t j = 0; j < k_table_get_size(t); ++j) k_table_set_data_item(t, j, 0.5);
    made.push_back(n);
  }
  check(k_node_add_to_inputs(made.front()) == 0, "input");
  check(k_node_add_to_outputs(made.back()) == 0, "output");

  const auto built = Clock::now();
  k_node_t previous = nullptr;
  for (long i = 0; i < instances; ++i) {
    k_node_t instance = k_class_new_instance(chain, part);
    check(instance != nullptr, "instance");
    if (previous != nullptr)
      check(k_node_set_input(instance, made.front(), k_node_get_outputs(previous)[0]) == 0, "bind");
    previous = instance;
  }
  const double instantiate = seconds_since(built);

  // Processor time too: on the shared machine the wall clock mostly tells the load.
  const std::clock_t cpu_start = std::clock();
  const auto start = Clock::now();
  k_domain_t flat = k_class_create_domain(chain);
  const double unfold = seconds_since(start);
  const double unfold_cpu = static_cast<double>(std::clock() - cpu_start) / CLOCKS_PER_SEC;
  check(flat != nullptr, "unfold");
  std::size_t count = 0;
  for (k_node_t n = k_domain_get_first_node(flat); n != nullptr; n = k_node_get_next(n)) ++count;
  std::printf("instances\t%ld\nclass_nodes\t%ld\nunfolded_nodes\t%zu\n", instances, nodes, count);
  std::printf("instantiate_seconds\t%.3f\nunfold_seconds\t%.3f\nunfold_cpu_seconds\t%.3f\n",
              instantiate, unfold, unfold_cpu);
  k_domain_delete(flat);
  k_cc_delete(cc);
  return 0;
}
