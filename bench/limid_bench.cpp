// Single policy updating on influence diagrams.
//
//   bench_limid [SHARED-DIR]
//
// 1. Every shared influence diagram (SHARED-DIR/nets/id-*.net, default
//    $KELVA_SHARED_DIR or ../shared): compile, update the policies; prints
//    the maximum expected utility, the number of sweeps and the seconds.
// 2. A generated limited-memory diagram of 30 decisions, 200 chance nodes
//    and 60 utility nodes (30 stages of a hidden 3-state process, each
//    decision seeing one noisy observation and the previous decision):
//    prints the compile and the update seconds, wall and processor, and
//    those of one propagation with the option values and their variances.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "inference/policy_update.h"
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

std::mt19937 rng(7);

k_node_t add(k_domain_t d, k_category_t category, std::size_t states,
             const std::vector<k_node_t>& parents) {
  const bool utility = category == K_CATEGORY_UTILITY;
  k_node_t n = k_domain_new_node(d, category, utility ? K_KIND_OTHER : K_KIND_DISCRETE,
                                 utility ? K_SUBTYPE_ERROR : K_SUBTYPE_LABEL);
  check(n != nullptr, "new node");
  if (!utility) check(k_node_set_number_of_states(n, states) == 0, "states");
  for (k_node_t p : parents) check(k_node_add_parent(n, p) == 0, "add parent");
  if (category == K_CATEGORY_DECISION) return n;
  k_table_t t = k_node_get_table(n);
  std::vector<double> data(k_table_get_size(t));
  std::uniform_real_distribution<double> u(0.05, 1.0);
  for (std::size_t i = 0; i < data.size(); ++i) data[i] = utility ? 100 * u(rng) - 50 : u(rng);
  for (std::size_t i = 0; !utility && i < data.size(); i += states) {
    double s = 0;
    for (std::size_t k = 0; k < states; ++k) s += data[i + k];
    for (std::size_t k = 0; k < states; ++k) data[i + k] /= s;
  }
  check(k_table_set_data(t, data.data(), data.size(), 0, data.size()) == 0, "set data");
  return n;
}

// Compiles and solves `d`; prints the figures under `name`.
void solve(k_domain_t d, const std::string& name) {
  const std::clock_t cpu0 = std::clock();
  auto start = std::chrono::steady_clock::now();
  check(k_domain_compile(d) == 0, "compile");
  const double compile = seconds_since(start);
  const std::clock_t cpu1 = std::clock();
  start = std::chrono::steady_clock::now();
  const std::uint64_t sweeps = kelva::update_policies(*reinterpret_cast<kelva::Domain*>(d));
  const double update = seconds_since(start);
  const std::clock_t cpu2 = std::clock();
  // One propagation from the node tables: beliefs, then each decision's
  // option values and the variances of their total utility.
  check(k_domain_initialize(d) == 0, "initialize");
  start = std::chrono::steady_clock::now();
  check(k_domain_propagate(d, K_EQUILIBRIUM_SUM, K_MODE_NORMAL) == 0, "propagate");
  const double propagate = seconds_since(start);
  std::printf(
      "%-40s MEU %.10g  sweeps %llu  compile %.4f s  update %.4f s (cpu %.4f s)  "
      "propagate %.4f s\n",
      name.c_str(), k_domain_get_expected_utility(d), static_cast<unsigned long long>(sweeps),
      compile, update, static_cast<double>(cpu2 - cpu1) / CLOCKS_PER_SEC, propagate);
  (void)cpu0;
}

}  // namespace

int main(int argc, char** argv) {
  const char* env = std::getenv("KELVA_SHARED_DIR");
  const std::filesystem::path shared = argc > 1 ? argv[1] : env && *env ? env : "../shared";
  std::vector<std::filesystem::path> nets;
  std::error_code ec;
  for (const auto& e : std::filesystem::directory_iterator(shared / "nets", ec))
    if (e.path().filename().string().starts_with("id-")) nets.push_back(e.path());
  std::sort(nets.begin(), nets.end());
  for (const auto& path : nets) {
    k_domain_t d = k_net_parse_domain(path.c_str(), nullptr, nullptr);
    check(d != nullptr, path.c_str());
    solve(d, path.filename().string());
    k_domain_delete(d);
  }

  k_domain_t d = k_new_domain();
  std::vector<k_node_t> globals;
  for (int g = 0; g < 20; ++g) globals.push_back(add(d, K_CATEGORY_CHANCE, 2, {}));
  k_node_t state = nullptr;
  k_node_t decision = nullptr;
  for (int t = 0; t < 30; ++t) {
    std::vector<k_node_t> parents{globals[static_cast<std::size_t>(t) % globals.size()]};
    if (state != nullptr) parents.insert(parents.end(), {state, decision});
    state = add(d, K_CATEGORY_CHANCE, 3, parents);
    k_node_t seen = add(d, K_CATEGORY_CHANCE, 3, {state});
    k_node_t a = add(d, K_CATEGORY_CHANCE, 2, {state});
    k_node_t b = add(d, K_CATEGORY_CHANCE, 2, {a, state});
    k_node_t c = add(d, K_CATEGORY_CHANCE, 2, {b});
    add(d, K_CATEGORY_CHANCE, 2, {c, seen});
    std::vector<k_node_t> informed{seen};
    if (decision != nullptr) informed.push_back(decision);
    decision = add(d, K_CATEGORY_DECISION, 3, informed);
    add(d, K_CATEGORY_UTILITY, 0, {state, decision});
    add(d, K_CATEGORY_UTILITY, 0, {b, decision});
  }
  check(k_domain_get_number_of_chance_nodes(d) == 200, "200 chance nodes");
  solve(d, "generated: 30 decisions, 200 chance nodes");
  k_domain_delete(d);
  return 0;
}
