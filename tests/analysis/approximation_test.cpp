// Approximation against enumeration: the mass kept and the beliefs of the
// joint with the small clique configurations removed; and its refusals.

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <vector>

#include "common/expect_code.h"
#include "common/random_network.h"

namespace kelva::test {
namespace {

/// Position of each node of a null-ended list in net.nodes.
std::vector<std::size_t> positions(const RandomNetwork& net, k_node_t* list) {
  std::vector<std::size_t> result;
  for (; *list != nullptr; ++list)
    result.push_back(std::find(net.nodes.begin(), net.nodes.end(), *list) - net.nodes.begin());
  return result;
}

TEST(Approximation, KeepsTheMassAndBeliefsOfTheCutJoint) {
  for (unsigned seed = 1; seed <= 12; ++seed) {
    SCOPED_TRACE(seed);
    RandomNetwork net = random_network(seed, 7);
    ASSERT_EQ(k_domain_compile(net.domain), 0);
    const std::size_t n = net.nodes.size();
    std::vector<std::size_t> counts(n);
    for (std::size_t i = 0; i < n; ++i) counts[i] = k_node_get_number_of_states(net.nodes[i]);

    // The joint, and per clique the index of each configuration's entry.
    std::vector<std::vector<std::size_t>> cliques;
    for (k_junction_tree_t jt = k_domain_get_first_junction_tree(net.domain); jt;
         jt = k_jt_get_next(jt))
      for (k_clique_t* c = k_jt_get_cliques(jt); *c; ++c)
        cliques.push_back(positions(net, k_clique_get_members(*c)));
    const Answers prior = enumerate(net, no_evidence(net));
    std::vector<double> p = joint(net, no_evidence(net));
    std::vector<std::vector<std::size_t>> configs;
    for (std::size_t c = 0; c < p.size(); ++c) {
      configs.push_back(configuration(net, c));
      p[c] /= prior.evidence;
    }
    auto entry = [&](const std::vector<std::size_t>& members, const std::vector<std::size_t>& x) {
      std::size_t e = 0;
      for (std::size_t m : members) e = e * counts[m] + x[m];
      return e;
    };
    // Each clique's marginal, and the entries kept: the smallest go while
    // their total stays at most epsilon.
    const double epsilon = 0.02 * (seed % 4 + 1);
    std::vector<double> keep(p.size(), 1.0);
    for (const auto& members : cliques) {
      std::size_t size = 1;
      for (std::size_t m : members) size *= counts[m];
      std::vector<double> marginal(size, 0.0);
      for (std::size_t x = 0; x < p.size(); ++x) marginal[entry(members, configs[x])] += p[x];
      std::vector<std::size_t> order(size);
      std::iota(order.begin(), order.end(), 0);
      std::stable_sort(order.begin(), order.end(),
                       [&](std::size_t a, std::size_t b) { return marginal[a] < marginal[b]; });
      std::vector<bool> cut(size, false);
      double removed = 0.0;
      for (std::size_t e : order) {
        if (removed + marginal[e] > epsilon) break;
        removed += marginal[e];
        cut[e] = true;
      }
      for (std::size_t x = 0; x < p.size(); ++x)
        if (cut[entry(members, configs[x])]) keep[x] = 0.0;
    }
    double mass = 0.0;
    std::vector<std::vector<double>> beliefs(n);
    for (std::size_t i = 0; i < n; ++i) beliefs[i].assign(counts[i], 0.0);
    for (std::size_t x = 0; x < p.size(); ++x) {
      mass += p[x] * keep[x];
      for (std::size_t i = 0; i < n; ++i) beliefs[i][configs[x][i]] += p[x] * keep[x];
    }

    const double constant = k_domain_approximate(net.domain, epsilon);
    EXPECT_NEAR(constant, mass, 1e-12);
    EXPECT_GE(constant, 1.0 - epsilon * static_cast<double>(cliques.size()) - 1e-12);
    EXPECT_EQ(k_domain_get_approximation_constant(net.domain), constant);
    EXPECT_EQ(k_domain_is_compressed(net.domain), 1);
    for (std::size_t i = 0; i < n; ++i)
      for (std::size_t s = 0; s < counts[i]; ++s)
        EXPECT_NEAR(k_node_get_belief(net.nodes[i], s), beliefs[i][s] / mass, 1e-12);
    EXPECT_CODE(k_domain_approximate(net.domain, epsilon), -1.0, K_ERROR_COMPRESSED);
    k_domain_delete(net.domain);
  }
}

TEST(Approximation, RefusesEvidenceAndBadEpsilonLeavingTheDomainAsItWas) {
  RandomNetwork net = random_network(9, 5);
  EXPECT_CODE(k_domain_approximate(net.domain, 0.1), -1.0, K_ERROR_NOT_COMPILED);
  ASSERT_EQ(k_domain_compile(net.domain), 0);
  EXPECT_EQ(k_domain_get_approximation_constant(net.domain), 1.0);
  for (double bad : {-0.1, 1.0, static_cast<double>(NAN)}) {
    EXPECT_CODE(k_domain_approximate(net.domain, bad), -1.0, K_ERROR_USAGE);
  }
  k_node_select_state(net.nodes[2], 0);
  EXPECT_CODE(k_domain_approximate(net.domain, 0.1), -1.0, K_ERROR_USAGE);
  EXPECT_EQ(k_domain_is_compressed(net.domain), 0);
  k_node_retract_findings(net.nodes[2]);
  // Only a sum equilibrium of the current tables is approximated.
  ASSERT_EQ(k_domain_propagate(net.domain, K_EQUILIBRIUM_MAX, K_MODE_NORMAL), 0);
  EXPECT_CODE(k_domain_approximate(net.domain, 0.1), -1.0, K_ERROR_USAGE);
  ASSERT_EQ(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
  // Epsilon 0 removes only zeros: the beliefs stay.
  std::vector<double> before;
  for (k_node_t node : net.nodes) before.push_back(k_node_get_belief(node, 0));
  EXPECT_NEAR(k_domain_approximate(net.domain, 0.0), 1.0, 1e-12);
  for (std::size_t i = 0; i < net.nodes.size(); ++i)
    EXPECT_NEAR(k_node_get_belief(net.nodes[i], 0), before[i], 1e-12);
  k_domain_delete(net.domain);
}

}  // namespace
}  // namespace kelva::test
