#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <random>
#include <vector>

#include "common/shared_nets.h"
#include "compile/junction_forest.h"
#include "inference/net_builder.h"
#include "inference/propagate.h"

namespace kelva::test {
namespace {

// The largest forests compared; under the sanitizers the larger ones took
// most of the suite's time, and the release build checks them.
#if defined(KELVA_TEST_SANITIZED)
constexpr std::uint64_t kMostEntries = 5'000'000;
#else
constexpr std::uint64_t kMostEntries = 50'000'000;
#endif

// Clique tables found waiting for a deferred product by record_state.
std::size_t deferred_tables = 0;

// Appends a propagation's status and, after a success, the bits of the log
// constant and of every belief, and a hash of the bits of every clique table
// (which makes a deferred product).
void record_state(k_domain_t domain, const std::vector<k_node_t>& nodes, k_status_t status,
                  std::vector<std::uint64_t>& seen) {
  auto bits = [](double x) { return std::bit_cast<std::uint64_t>(x); };
  seen.push_back(status == 0 ? 0 : 1000 + static_cast<std::uint64_t>(k_error_code()));
  if (status != 0) return;
  seen.push_back(bits(k_domain_get_log_normalization_constant(domain)));
  for (k_node_t n : nodes)
    for (std::size_t s = 0; s < k_node_get_number_of_states(n); ++s)
      seen.push_back(bits(k_node_get_belief(n, s)));
  std::uint64_t hash = 14695981039346656037ull;
  for (const auto& c : reinterpret_cast<Domain*>(domain)->forest()->cliques) {
    deferred_tables += c->table->deferred() ? 1 : 0;
    for (std::uint64_t i = 0; i < c->table->size(); ++i)
      hash = (hash ^ bits(c->table->data()[i])) * 1099511628211ull;
  }
  seen.push_back(hash);
}

// The random network of seed `seed` for the series, some of its tables
// with zeros so that some evidence is impossible; compile_for_test's result.
k_status_t compile_random_net(TestNet& net, unsigned seed) {
  std::mt19937 rng(seed);
  random_network(net, rng, 6 + seed % 12, 1 + seed % 4, true, seed % 3 == 0 ? 0.3 : 0.0);
  return compile_for_test(net.d());
}

// Halves every other entry of each node's table, keeping the old entries in
// `kept`, or, when `kept` holds them, puts them back.
void change_tables(const std::vector<k_node_t>& nodes, std::vector<std::vector<double>>& kept) {
  const bool restore = !kept.empty();
  for (std::size_t j = 0; j < nodes.size(); ++j) {
    const k_table_t t = k_node_get_table(nodes[j]);
    std::vector<double> data(k_table_get_size(t));
    if (restore) {
      data = kept[j];
    } else {
      k_table_get_data(t, data.data(), data.size(), 0, data.size());
      kept.push_back(data);
      for (std::size_t i = 0; i < data.size(); i += 2) data[i] *= 0.5;
    }
    k_table_set_data(t, data.data(), data.size(), 0, data.size());
  }
  if (restore) kept.clear();
}

// Runs a fixed series of propagations on `domain` (evidence entered, added,
// a likelihood, max, fast retraction, scaled, two threads, changed node
// tables), all of them on `threads` threads (their sweeps split down to
// small cliques), and records every status, log constant and belief, and a
// hash of the bits of every clique table.
std::vector<std::uint64_t> run_series(k_domain_t domain, const std::vector<k_node_t>& nodes,
                                      std::size_t threads) {
  std::vector<std::uint64_t> seen;
  auto record = [&](k_status_t status) { record_state(domain, nodes, status, seen); };
  const std::size_t n = nodes.size();
  const k_size_t grain = k_domain_get_grain_size(domain);
  auto propagate = [&](k_equilibrium_t eq, k_evidence_mode_t mode) {
    record(k_domain_propagate(domain, eq, mode));
  };
  k_domain_set_concurrency_level(domain, threads);
  k_domain_set_grain_size(domain, threads > 1 ? 16 : grain);
  k_domain_retract_findings(domain);
  k_domain_initialize(domain);
  k_node_select_state(nodes[n / 3], 0);
  k_node_enter_finding(nodes[n / 2], 0, 0.75);  // a likelihood
  propagate(K_EQUILIBRIUM_SUM, K_MODE_NORMAL);  // rebuilt with evidence
  k_node_select_state(nodes[n - 1], 1);
  propagate(K_EQUILIBRIUM_SUM, K_MODE_NORMAL);  // new evidence absorbed
  propagate(K_EQUILIBRIUM_MAX, K_MODE_NORMAL);  // the same tables to max
  k_node_retract_findings(nodes[n / 3]);
  propagate(K_EQUILIBRIUM_SUM, K_MODE_FAST_RETRACTION);
  k_domain_set_scaled_propagation(domain, 1);
  k_domain_initialize(domain);
  propagate(K_EQUILIBRIUM_SUM, K_MODE_NORMAL);
  k_domain_set_scaled_propagation(domain, 0);
  k_domain_set_concurrency_level(domain, 2);
  k_domain_set_grain_size(domain, 16);
  k_domain_initialize(domain);
  propagate(K_EQUILIBRIUM_SUM, K_MODE_NORMAL);
  k_domain_set_concurrency_level(domain, 1);
  k_domain_set_grain_size(domain, grain);
  std::vector<std::vector<double>> kept;
  change_tables(nodes, kept);
  propagate(K_EQUILIBRIUM_SUM, K_MODE_NORMAL);  // rebuilt from the new tables
  change_tables(nodes, kept);
  return seen;
}

// The series gives the same bits with one sweep per clique and pass as with
// one kernel per table operation.
void expect_same_bits(k_domain_t domain) {
  std::vector<k_node_t> nodes;
  for (k_node_t n = k_domain_get_first_node(domain); n; n = k_node_get_next(n))
    if (k_node_get_kind(n) == K_KIND_DISCRETE && k_node_get_category(n) == K_CATEGORY_CHANCE)
      nodes.push_back(n);
  if (nodes.size() < 2) return;
  for (std::size_t threads = 1; threads <= 2; ++threads) {
    std::vector<std::uint64_t> seen[2];
    for (int fused = 0; fused < 2; ++fused) {
      set_fused_sweeps(fused == 1);
      seen[fused] = run_series(domain, nodes, threads);
    }
    set_fused_sweeps(true);
    EXPECT_EQ(seen[0], seen[1]) << threads << " threads";
  }
}

TEST(Sweeps, SameBitsAsOneKernelPerOperation) {
  for (unsigned seed = 0; seed < 40; ++seed) {
    SCOPED_TRACE(seed);
    TestNet net;
    ASSERT_EQ(compile_random_net(net, seed), 0);
    expect_same_bits(net.domain);
  }
  deferred_tables = 0;
  std::size_t large = 0;  // networks with a clique that may be deferred
  for (const auto& file : shared_nets_for_sweeps()) {
    SCOPED_TRACE(file.filename().string());
    DomainHandle domain(parse_net_quietly(file));
    if (!domain || k_domain_compile(domain.get()) != 0) continue;
    std::uint64_t entries = 0, largest = 0;
    for (const auto& c : reinterpret_cast<Domain*>(domain.get())->forest()->cliques) {
      entries += c->table->size();
      largest = std::max(largest, c->table->size());
    }
    if (entries >= kMostEntries) continue;
    large += largest >= std::uint64_t{1} << 15 ? 1 : 0;
    expect_same_bits(domain.get());
  }
  // The tables compared include products deferred by the distribute.
  if (large > 0) {
    EXPECT_GT(deferred_tables, 0u);
  }
}

// Sweeps through a tree's plan give the bits of sweeps that choose their
// kernels as they go: the series, then case after case (through the
// collect memo, or absorbing the new evidence), sum and max, with a node
// table changed halfway.
TEST(Sweeps, PlannedSameBitsAsUnplanned) {
  for (unsigned seed = 0; seed < 30; ++seed) {
    SCOPED_TRACE(seed);
    TestNet net;
    std::mt19937 rng(seed);
    random_network(net, rng, 6 + seed % 12, 1 + seed % 4, true, seed % 3 == 0 ? 0.3 : 0.0);
    // A one-state node, whose marginal is folded as a total.
    net.randomize(net.add(K_CATEGORY_CHANCE, 1, {net.nodes[seed % net.nodes.size()]}), rng);
    ASSERT_EQ(compile_for_test(net.d()), 0);
    const k_domain_t d = net.domain;
    std::vector<k_node_t> nodes;
    for (k_node_t n = k_domain_get_first_node(d); n; n = k_node_get_next(n))
      if (k_node_get_kind(n) == K_KIND_DISCRETE && k_node_get_category(n) == K_CATEGORY_CHANCE)
        nodes.push_back(n);
    const k_table_t table = k_node_get_table(nodes[seed % nodes.size()]);
    std::vector<double> original(k_table_get_size(table));
    ASSERT_EQ(k_table_get_data(table, original.data(), original.size(), 0, original.size()), 0);
    std::vector<double> changed = original;
    for (std::size_t i = 0; i < changed.size(); i += 2) changed[i] *= 0.5;
    std::vector<std::uint64_t> seen[2];
    for (int planned = 0; planned < 2; ++planned) {
      set_sweep_plans(planned == 1);
      seen[planned] = run_series(d, nodes, 1);
      std::mt19937 cases(seed);
      for (int row = 0; row < 16; ++row) {
        if (row == 8) k_table_set_data(table, changed.data(), changed.size(), 0, changed.size());
        for (k_node_t n : nodes) {
          const std::size_t pick = cases() % (2 * k_node_get_number_of_states(n));
          if (pick < k_node_get_number_of_states(n)) k_node_select_state(n, pick);
          else if (pick % 3 == 0) k_node_retract_findings(n);
        }
        const k_equilibrium_t eq = row % 4 == 3 ? K_EQUILIBRIUM_MAX : K_EQUILIBRIUM_SUM;
        record_state(d, nodes, k_domain_propagate(d, eq, K_MODE_NORMAL), seen[planned]);
      }
      k_table_set_data(table, original.data(), original.size(), 0, original.size());
    }
    set_sweep_plans(true);
    EXPECT_EQ(seen[0], seen[1]);
  }
}

// Paths the series does not take: new evidence absorbed in scaled mode,
// and every clique as the root, where a separator need not lead the table
// of the clique it reaches.
TEST(Sweeps, SameBitsFromEveryRootAndScaledAbsorption) {
  for (unsigned seed = 0; seed < 20; ++seed) {
    std::mt19937 rng(seed);
    TestNet net;
    random_network(net, rng, 6 + seed % 10, 1 + seed % 3, true, 0.0);
    ASSERT_EQ(compile_for_test(net.d()), 0);
    const k_domain_t d = net.domain;
    std::vector<k_node_t> nodes;
    for (k_node_t n = k_domain_get_first_node(d); n; n = k_node_get_next(n)) nodes.push_back(n);
    std::vector<std::uint64_t> seen[2];
    for (int fused = 0; fused < 2; ++fused) {
      set_fused_sweeps(fused == 1);
      auto record = [&](k_status_t status) { record_state(d, nodes, status, seen[fused]); };
      k_domain_set_scaled_propagation(d, 1);
      k_domain_retract_findings(d);
      k_domain_initialize(d);
      k_node_select_state(nodes[0], 1);
      record(k_domain_propagate(d, K_EQUILIBRIUM_SUM, K_MODE_NORMAL));
      k_node_enter_finding(nodes.back(), 0, 0.25);
      record(k_domain_propagate(d, K_EQUILIBRIUM_SUM, K_MODE_NORMAL));
      k_domain_set_scaled_propagation(d, 0);
      for (const auto& c : net.d().forest()->cliques) {
        k_domain_initialize(d);
        record(k_clique_propagate(reinterpret_cast<k_clique_t>(c.get()), K_EQUILIBRIUM_SUM,
                                  K_MODE_NORMAL));
      }
    }
    set_fused_sweeps(true);
    EXPECT_EQ(seen[0], seen[1]) << seed;
  }
}

}  // namespace
}  // namespace kelva::test
