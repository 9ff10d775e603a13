// Posterior sampling against exact beliefs (a chi-square test over the
// joint configurations), reproducibility under a seed, the deviates, and
// the refusals.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>
#include <vector>

#include "common/expect_code.h"
#include "common/random_network.h"

namespace kelva::test {
namespace {

/// The upper tail of the chi-square distribution with `dof` degrees of
/// freedom at `x`, by the Wilson-Hilferty normal approximation.
double chi_square_tail(double x, double dof) {
  const double h = 2.0 / (9.0 * dof);
  const double z = (std::cbrt(x / dof) - (1.0 - h)) / std::sqrt(h);
  return 0.5 * std::erfc(z / std::sqrt(2.0));
}

TEST(Simulation, DrawsTheJointPosteriorAndRepeatsUnderASeed) {
  for (unsigned seed : {4u, 11u}) {
    SCOPED_TRACE(seed);
    std::mt19937 rng(seed);
    RandomNetwork net = random_network(seed, 6);
    ASSERT_EQ(k_domain_compile(net.domain), 0);
    std::vector<Finding> evidence;
    do {
      evidence = random_evidence(rng, net, 0.4);
      enter(net, evidence);
    } while (k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL) != 0);
    std::vector<double> p = joint(net, evidence);  // normalised to P(x | e)
    const double total = std::accumulate(p.begin(), p.end(), 0.0);
    for (double& v : p) v /= total;

    ASSERT_EQ(k_domain_seed_random(net.domain, 2024), 0);
    const long draws = 100000;
    std::vector<long> count(p.size(), 0);
    std::vector<std::size_t> first;
    for (long d = 0; d < draws; ++d) {
      ASSERT_EQ(k_domain_simulate(net.domain), 0);
      std::size_t cell = 0;
      for (k_node_t node : net.nodes) {
        const int64_t s = k_node_get_sampled_state(node);
        ASSERT_GE(s, 0);
        cell = cell * k_node_get_number_of_states(node) + static_cast<std::size_t>(s);
      }
      if (d < 20) first.push_back(cell);
      ASSERT_GT(p[cell], 0.0) << "drew an impossible configuration";
      ++count[cell];
    }
    // Cells expecting fewer than 5 draws are pooled.
    double chi = 0.0, pooled_expected = 0.0, pooled_count = 0.0;
    int cells = 0;
    for (std::size_t c = 0; c < p.size(); ++c) {
      const double e = p[c] * draws;
      if (e < 5.0) {
        pooled_expected += e;
        pooled_count += static_cast<double>(count[c]);
        continue;
      }
      chi += (count[c] - e) * (count[c] - e) / e;
      ++cells;
    }
    if (pooled_expected >= 5.0) {
      chi += (pooled_count - pooled_expected) * (pooled_count - pooled_expected) / pooled_expected;
      ++cells;
    }
    ASSERT_GT(cells, 1);
    EXPECT_GT(chi_square_tail(chi, cells - 1), 0.001) << "chi-square " << chi << " over " << cells;

    // The same seed draws the same configurations; another seed does not.
    for (unsigned again : {2024u, 7u}) {
      k_domain_seed_random(net.domain, again);
      bool same = true;
      for (std::size_t d = 0; d < first.size(); ++d) {
        k_domain_simulate(net.domain);
        std::size_t cell = 0;
        for (k_node_t node : net.nodes)
          cell = cell * k_node_get_number_of_states(node) +
                 static_cast<std::size_t>(k_node_get_sampled_state(node));
        same = same && cell == first[d];
      }
      EXPECT_EQ(same, again == 2024u);
    }
    k_domain_delete(net.domain);
  }
}

TEST(Simulation, DeviatesFollowTheirLawsAndRefusalsHaveTheirCodes) {
  RandomNetwork net = random_network(5, 4);
  k_domain_seed_random(net.domain, 1);
  double sum = 0.0, square = 0.0, low = 1.0, high = 0.0;
  for (int i = 0; i < 100000; ++i) {
    const double u = k_domain_get_uniform_deviate(net.domain);
    low = std::min(low, u);
    high = std::max(high, u);
    const double z = k_domain_get_normal_deviate(net.domain, 3.0, 4.0);
    sum += z;
    square += (z - 3.0) * (z - 3.0);
  }
  EXPECT_GE(low, 0.0);
  EXPECT_LT(high, 1.0);
  EXPECT_NEAR(sum / 100000, 3.0, 0.03);    // standard error 0.0063
  EXPECT_NEAR(square / 100000, 4.0, 0.1);  // standard error 0.018
  EXPECT_CODE(k_domain_get_normal_deviate(net.domain, 0.0, -1.0), -1.0, K_ERROR_USAGE);
  EXPECT_CODE(k_domain_get_normal_deviate(net.domain, NAN, 1.0), -1.0, K_ERROR_USAGE);

  EXPECT_FAILS(k_domain_simulate(net.domain), K_ERROR_NOT_COMPILED);
  ASSERT_EQ(k_domain_compile(net.domain), 0);
  EXPECT_CODE(k_node_get_sampled_state(net.nodes[0]), -1, K_ERROR_NO_VALUE);
  ASSERT_EQ(k_domain_simulate(net.domain), 0);
  EXPECT_GE(k_node_get_sampled_state(net.nodes[0]), 0);
  EXPECT_EQ(k_node_get_sampled_value(net.nodes[0]), -1.0);  // a label node has no value
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  EXPECT_CODE(k_node_get_sampled_utility(net.nodes[0]), -1.0, K_ERROR_USAGE);

  // A selected state is always drawn; evidence still to propagate and max
  // equilibrium are refused.
  k_node_select_state(net.nodes[3], 1);
  EXPECT_FAILS(k_domain_simulate(net.domain), K_ERROR_USAGE);
  ASSERT_EQ(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
  for (int i = 0; i < 50; ++i) {
    ASSERT_EQ(k_domain_simulate(net.domain), 0);
    EXPECT_EQ(k_node_get_sampled_state(net.nodes[3]), 1);
  }
  ASSERT_EQ(k_domain_propagate(net.domain, K_EQUILIBRIUM_MAX, K_MODE_NORMAL), 0);
  EXPECT_FAILS(k_domain_simulate(net.domain), K_ERROR_USAGE);
  k_domain_uncompile(net.domain);
  EXPECT_CODE(k_node_get_sampled_state(net.nodes[0]), -1, K_ERROR_NOT_COMPILED);
  k_domain_delete(net.domain);
}

TEST(Simulation, NumberedNodesGiveTheirValueAndUtilityNodesTheirUtility) {
  k_domain_t domain = k_new_domain();
  k_node_t a = k_domain_new_node(domain, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_NUMBER);
  k_node_t u = k_domain_new_node(domain, K_CATEGORY_UTILITY, K_KIND_OTHER, K_SUBTYPE_ERROR);
  ASSERT_TRUE(a && u);
  ASSERT_EQ(k_node_set_number_of_states(a, 3), 0);
  const double values[] = {-2.5, 0.0, 7.0}, utilities[] = {10.0, -20.0, 30.0};
  for (k_size_t s = 0; s < 3; ++s) {
    ASSERT_EQ(k_node_set_state_value(a, s, values[s]), 0);
    ASSERT_EQ(k_table_set_data_item(k_node_get_table(a), s, 1.0 / 3.0), 0);
  }
  ASSERT_EQ(k_node_add_parent(u, a), 0);
  for (k_size_t s = 0; s < 3; ++s)
    ASSERT_EQ(k_table_set_data_item(k_node_get_table(u), s, utilities[s]), 0);
  ASSERT_EQ(k_domain_compile(domain), 0);
  k_domain_seed_random(domain, 7);
  std::vector<int> seen(3, 0);
  for (int i = 0; i < 300; ++i) {
    ASSERT_EQ(k_domain_simulate(domain), 0);
    const int64_t s = k_node_get_sampled_state(a);
    ASSERT_TRUE(s >= 0 && s < 3);
    ++seen[static_cast<std::size_t>(s)];
    EXPECT_EQ(k_node_get_sampled_value(a), values[s]);
    EXPECT_EQ(k_node_get_sampled_utility(u), utilities[s]);
  }
  EXPECT_TRUE(std::all_of(seen.begin(), seen.end(), [](int n) { return n > 50; }));
  k_domain_delete(domain);
}

TEST(Simulation, ContinuousNodesFollowTheirRegressionsAndCompressedDomainsSample) {
  const char* text =
      "net {}\n"
      "node I { states = (\"low\" \"high\"); subtype = interval; state_values = (0 1 3); }\n"
      "continuous node Y {}\n"
      "continuous node Z {}\n"
      "potential (I) { data = (0.3 0.7); }\n"
      "potential (Y | I) { data = (normal (1, 4) normal (-2, 0.25)); }\n"
      "potential (Z | Y) { data = (normal (1 + 2 * Y, 1)); }\n";
  k_domain_t domain = k_net_parse_domain_string(text, nullptr, nullptr);
  ASSERT_NE(domain, nullptr);
  k_node_t i = k_domain_get_node_by_name(domain, "I");
  k_node_t y = k_domain_get_node_by_name(domain, "Y");
  k_node_t z = k_domain_get_node_by_name(domain, "Z");
  ASSERT_EQ(k_domain_compile(domain), 0);
  k_domain_seed_random(domain, 3);
  const int n = 40000;
  double count[2] = {0, 0}, sum[2] = {0, 0}, square[2] = {0, 0}, residual = 0.0;
  for (int k = 0; k < n; ++k) {
    ASSERT_EQ(k_domain_simulate(domain), 0);
    const int64_t s = k_node_get_sampled_state(i);
    ASSERT_TRUE(s == 0 || s == 1);
    EXPECT_EQ(k_node_get_sampled_value(i), s == 0 ? 0.5 : 2.0);  // the interval's midpoint
    const double v = k_node_get_sampled_value(y);
    count[s] += 1;
    sum[s] += v;
    square[s] += v * v;
    residual += k_node_get_sampled_value(z) - (1 + 2 * v);
  }
  EXPECT_NEAR(count[0] / n, 0.3, 0.01);
  EXPECT_NEAR(sum[0] / count[0], 1.0, 0.05);
  EXPECT_NEAR(square[0] / count[0] - std::pow(sum[0] / count[0], 2), 4.0, 0.15);
  EXPECT_NEAR(sum[1] / count[1], -2.0, 0.02);
  EXPECT_NEAR(square[1] / count[1] - std::pow(sum[1] / count[1], 2), 0.25, 0.01);
  EXPECT_NEAR(residual / n, 0.0, 0.02);
  k_domain_delete(domain);

  // A compressed domain samples from the entries it kept.
  RandomNetwork net = random_network(11, 6);
  ASSERT_EQ(k_domain_compile(net.domain), 0);
  ASSERT_GE(k_domain_compress(net.domain), 0.0);
  k_domain_seed_random(net.domain, 5);
  std::vector<double> seen(k_node_get_number_of_states(net.nodes[0]), 0.0);
  for (int k = 0; k < 20000; ++k) {
    ASSERT_EQ(k_domain_simulate(net.domain), 0);
    seen[static_cast<std::size_t>(k_node_get_sampled_state(net.nodes[0]))] += 1.0 / 20000;
  }
  for (std::size_t s = 0; s < seen.size(); ++s)
    EXPECT_NEAR(seen[s], k_node_get_belief(net.nodes[0], s), 0.015);
  k_domain_delete(net.domain);
}

}  // namespace
}  // namespace kelva::test
