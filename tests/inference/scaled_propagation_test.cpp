// Scaled propagation: evidence whose probability is far below the smallest
// double propagates, with log P(e) and the beliefs of enumeration; ordinary
// propagation keeps refusing it.

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <random>

#include "common/random_network.h"

namespace kelva::test {
namespace {

// Every node observed (a state, a set of states or a likelihood) and each
// finding multiplied by 1e-50, so that P(e) is near 1e-500 while no clique
// table underflows on its own; enumeration of the unscaled findings gives
// the answers, and log P(e) gains 50 log 10 per finding.
TEST(ScaledPropagation, EvidenceBelowTheSmallestDoubleMatchesEnumeration) {
  int checked = 0;
  for (unsigned seed = 1; seed <= 40; ++seed) {
    SCOPED_TRACE(seed);
    RandomNetwork net = random_network(seed, 10);
    std::mt19937 rng(seed);
    const std::vector<Finding> evidence = random_evidence(rng, net, 1.0);
    const Answers a = enumerate(net, evidence);
    if (a.evidence == 0.0) {
      k_domain_delete(net.domain);
      continue;
    }
    ASSERT_EQ(k_domain_compile(net.domain), 0);
    for (std::size_t i = 0; i < net.nodes.size(); ++i)
      for (std::size_t s = 0; s < evidence[i].size(); ++s)
        ASSERT_EQ(k_node_enter_finding(net.nodes[i], s, evidence[i][s] * 1e-50), 0);
    const double log_evidence = std::log(a.evidence) + 10 * std::log(1e-50);

    // Off by default: the documented underflow (of one tree's total; in a
    // forest only the product may underflow).
    EXPECT_EQ(k_domain_get_scaled_propagation(net.domain), 0);
    if (k_jt_get_next(k_domain_get_first_junction_tree(net.domain)) == nullptr) {
      EXPECT_NE(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
      EXPECT_EQ(k_error_code(), K_ERROR_INCONSISTENCY_OR_UNDERFLOW);
    }

    ASSERT_EQ(k_domain_set_scaled_propagation(net.domain, 1), 0);
    ASSERT_EQ(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
    EXPECT_NEAR(k_domain_get_log_normalization_constant(net.domain), log_evidence,
                1e-12 * std::fabs(log_evidence));
    EXPECT_EQ(k_domain_get_normalization_constant(net.domain), 0.0);
    for (std::size_t i = 0; i < net.nodes.size(); ++i)
      for (std::size_t s = 0; s < a.beliefs[i].size(); ++s)
        EXPECT_NEAR(k_node_get_belief(net.nodes[i], s), a.beliefs[i][s], 1e-12);

    // Where ordinary propagation succeeds, the two agree.
    for (std::size_t i = 0; i < net.nodes.size(); ++i)
      for (std::size_t s = 0; s < evidence[i].size(); ++s)
        ASSERT_EQ(k_node_enter_finding(net.nodes[i], s, evidence[i][s]), 0);
    ASSERT_EQ(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
    EXPECT_NEAR(k_domain_get_normalization_constant(net.domain), a.evidence,
                1e-12 * a.evidence + DBL_MIN);
    for (std::size_t i = 0; i < net.nodes.size(); ++i)
      for (std::size_t s = 0; s < a.beliefs[i].size(); ++s)
        EXPECT_NEAR(k_node_get_belief(net.nodes[i], s), a.beliefs[i][s], 1e-12);
    ++checked;
    k_domain_delete(net.domain);
  }
  EXPECT_GT(checked, 10);

  // Impossible evidence still fails; the switch takes only 0 and 1.
  RandomNetwork net = random_network(99, 3);
  ASSERT_EQ(k_domain_compile(net.domain), 0);
  ASSERT_EQ(k_domain_set_scaled_propagation(net.domain, 1), 0);
  for (std::size_t s = 0; s < k_node_get_number_of_states(net.nodes[0]); ++s)
    ASSERT_EQ(k_node_enter_finding(net.nodes[0], s, 0.0), 0);
  EXPECT_NE(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
  EXPECT_EQ(k_error_code(), K_ERROR_INCONSISTENCY_OR_UNDERFLOW);
  EXPECT_NE(k_domain_set_scaled_propagation(net.domain, 2), 0);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  EXPECT_EQ(k_domain_get_scaled_propagation(nullptr), -1);
  k_domain_delete(net.domain);
}

}  // namespace
}  // namespace kelva::test
