// Beliefs, max-marginals and the probability of the evidence after
// propagation, against enumeration of the joint on small random networks.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>

#include "common/random_network.h"
#include "common/shared_nets.h"
#include "kelva/kelva.h"

namespace kelva::test {
namespace {

constexpr std::size_t kMaxConfigurations = 60000;

std::size_t configurations(const RandomNetwork& net) {
  std::size_t product = 1;
  for (k_node_t n : net.nodes) product *= k_node_get_number_of_states(n);
  return product;
}

// Compares every belief and P(e) with enumeration after a sum propagation,
// and the max-marginals (up to a common factor) after a max propagation.
void expect_exact(const RandomNetwork& net, const std::vector<Finding>& evidence) {
  const Answers a = enumerate(net, evidence);
  if (a.evidence == 0.0) {
    EXPECT_NE(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
    EXPECT_EQ(k_error_code(), K_ERROR_INCONSISTENCY_OR_UNDERFLOW);
    return;
  }
  ASSERT_EQ(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0)
      << k_error_name(k_error_code());
  EXPECT_NEAR(k_domain_get_normalization_constant(net.domain) / a.evidence, 1.0, 1e-12);
  EXPECT_NEAR(k_domain_get_log_normalization_constant(net.domain), std::log(a.evidence), 1e-12);
  for (std::size_t i = 0; i < net.nodes.size(); ++i)
    for (std::size_t s = 0; s < a.beliefs[i].size(); ++s)
      EXPECT_NEAR(k_node_get_belief(net.nodes[i], s), a.beliefs[i][s], 1e-12)
          << "node " << i << " state " << s;

  ASSERT_EQ(k_domain_propagate(net.domain, K_EQUILIBRIUM_MAX, K_MODE_NORMAL), 0)
      << k_error_name(k_error_code());
  EXPECT_EQ(k_domain_equilibrium_is(net.domain, K_EQUILIBRIUM_MAX), 1);
  for (std::size_t i = 0; i < net.nodes.size(); ++i) {
    const std::vector<double>& mm = a.max_marginals[i];
    const double top = *std::max_element(mm.begin(), mm.end());
    double belief_top = 0.0;
    for (std::size_t s = 0; s < mm.size(); ++s)
      belief_top = std::max(belief_top, k_node_get_belief(net.nodes[i], s));
    ASSERT_GT(belief_top, 0.0);
    for (std::size_t s = 0; s < mm.size(); ++s)
      EXPECT_NEAR(k_node_get_belief(net.nodes[i], s) / belief_top, mm[s] / top, 1e-12)
          << "max-marginal of node " << i << " state " << s;
  }
}

TEST(Exactness, RandomNetworksAgainstEnumeration) {
  std::size_t networks = 0, inconsistent = 0;
  for (unsigned seed = 1; networks < 60; ++seed) {
    RandomNetwork net = random_network(seed, 5 + seed % 8, seed % 3 == 0);
    DomainHandle owner(net.domain);
    if (configurations(net) > kMaxConfigurations) continue;
    ++networks;
    SCOPED_TRACE("seed " + std::to_string(seed));
    ASSERT_EQ(k_domain_compile(net.domain), 0) << k_error_name(k_error_code());
    std::mt19937 rng(seed);
    // No evidence, then several rounds of fresh evidence on the same forest.
    expect_exact(net, no_evidence(net));
    for (int round = 0; round < 4; ++round) {
      const std::vector<Finding> evidence = random_evidence(rng, net, 0.1 + 0.15 * round);
      enter(net, evidence);
      inconsistent += enumerate(net, evidence).evidence == 0.0;
      expect_exact(net, evidence);
      if (HasFatalFailure()) return;
    }
  }
  // Some rounds should have hit impossible evidence.
  EXPECT_GT(inconsistent, 0u);
}

}  // namespace
}  // namespace kelva::test
