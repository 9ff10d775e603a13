// MAP configurations against enumeration of the joint on random networks,
// and the refusals of the search and its getters.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "common/expect_code.h"
#include "common/random_network.h"

namespace kelva::test {
namespace {

/// A configuration of the MAP nodes with its probability given the evidence.
struct Configuration {
  std::vector<k_size_t> states;
  double probability;
};

/// Every configuration of `chosen` (positions in net.nodes) by enumeration
/// of the joint with `evidence`, in the search's order.
std::vector<Configuration> enumerate_map(const RandomNetwork& net,
                                         const std::vector<Finding>& evidence,
                                         const std::vector<std::size_t>& chosen) {
  std::vector<std::size_t> counts;
  for (k_node_t node : net.nodes) counts.push_back(k_node_get_number_of_states(node));
  std::size_t cells = 1;
  for (std::size_t c : chosen) cells *= counts[c];
  std::vector<double> mass(cells, 0.0);
  double total = 0.0;
  const std::vector<double> p = joint(net, evidence);
  for (std::size_t x = 0; x < p.size(); ++x) {
    const std::vector<std::size_t> config = configuration(net, x);
    std::size_t cell = 0;
    for (std::size_t c : chosen) cell = cell * counts[c] + config[c];
    mass[cell] += p[x];
    total += p[x];
  }
  std::vector<Configuration> result;
  for (std::size_t cell = 0; cell < cells; ++cell) {
    Configuration c{std::vector<k_size_t>(chosen.size()), mass[cell] / total};
    for (std::size_t k = chosen.size(), rest = cell; k-- > 0; rest /= counts[chosen[k]])
      c.states[k] = rest % counts[chosen[k]];
    result.push_back(c);
  }
  std::stable_sort(result.begin(), result.end(),
                   [](const auto& a, const auto& b) { return a.probability > b.probability; });
  return result;
}

TEST(MapConfigurations, EqualEnumerationAndLeaveTheDomainAsItWas) {
  for (unsigned seed = 1; seed <= 40; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 rng(seed);
    RandomNetwork net = random_network(seed, 7);
    ASSERT_EQ(k_domain_compile(net.domain), 0);
    const std::vector<Finding> evidence = random_evidence(rng, net, 0.3);
    enter(net, evidence);
    if (k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL) != 0) {
      k_domain_delete(net.domain);  // impossible evidence
      continue;
    }
    std::vector<std::size_t> chosen(net.nodes.size());
    for (std::size_t i = 0; i < chosen.size(); ++i) chosen[i] = i;
    std::shuffle(chosen.begin(), chosen.end(), rng);
    chosen.resize(1 + rng() % 5);
    std::vector<k_node_t> nodes;
    for (std::size_t c : chosen) nodes.push_back(net.nodes[c]);
    nodes.push_back(nullptr);
    const double minimum = std::uniform_real_distribution<double>(0.001, 0.3)(rng);

    std::vector<double> beliefs;
    for (k_node_t n : net.nodes)
      for (k_size_t s = 0; s < k_node_get_number_of_states(n); ++s)
        beliefs.push_back(k_node_get_belief(n, s));
    const double constant = k_domain_get_normalization_constant(net.domain);

    ASSERT_EQ(k_domain_find_map_configurations(net.domain, nodes.data(), minimum), 0);
    std::vector<Configuration> expected = enumerate_map(net, evidence, chosen);
    std::erase_if(expected, [&](const Configuration& c) { return c.probability < minimum; });
    ASSERT_EQ(k_domain_get_number_of_map_configurations(net.domain), expected.size());
    for (std::size_t c = 0; c < expected.size(); ++c) {
      EXPECT_NEAR(k_domain_get_probability_of_map_configuration(net.domain, c),
                  expected[c].probability, 1e-12);
      const k_size_t* states = k_domain_get_map_configuration(net.domain, c);
      ASSERT_NE(states, nullptr);
      EXPECT_TRUE(std::equal(expected[c].states.begin(), expected[c].states.end(), states))
          << "configuration " << c;
    }

    // The same evidence, equilibrium and beliefs as before the search.
    EXPECT_EQ(k_domain_evidence_to_propagate(net.domain), 0);
    EXPECT_EQ(k_domain_equilibrium_is(net.domain, K_EQUILIBRIUM_SUM), 1);
    EXPECT_NEAR(k_domain_get_normalization_constant(net.domain), constant, 1e-12 * constant);
    std::size_t k = 0;
    for (std::size_t i = 0; i < net.nodes.size(); ++i)
      for (k_size_t s = 0; s < k_node_get_number_of_states(net.nodes[i]); ++s) {
        EXPECT_NEAR(k_node_get_belief(net.nodes[i], s), beliefs[k++], 1e-12);
        EXPECT_EQ(k_node_get_entered_finding(net.nodes[i], s), evidence[i][s]);
      }
    k_domain_delete(net.domain);
  }
}

TEST(MapConfigurations, RefuseBadRequestsAndKeepEarlierResults) {
  RandomNetwork net = random_network(3, 4);
  k_node_t a = net.nodes[0];
  k_node_t b = net.nodes[1];
  k_node_t one[] = {a, nullptr};
  k_node_t twice[] = {a, b, a, nullptr};
  k_node_t none[] = {nullptr};
  EXPECT_FAILS(k_domain_find_map_configurations(net.domain, one, 0.1), K_ERROR_NOT_COMPILED);
  ASSERT_EQ(k_domain_compile(net.domain), 0);
  EXPECT_CODE(k_domain_get_number_of_map_configurations(net.domain), ~k_size_t{0}, K_ERROR_USAGE);
  EXPECT_FAILS(k_domain_find_map_configurations(net.domain, none, 0.1), K_ERROR_USAGE);
  EXPECT_FAILS(k_domain_find_map_configurations(net.domain, twice, 0.1), K_ERROR_USAGE);
  EXPECT_FAILS(k_domain_find_map_configurations(net.domain, one, 0.0), K_ERROR_USAGE);
  EXPECT_FAILS(k_domain_find_map_configurations(net.domain, one, 1.5), K_ERROR_USAGE);
  EXPECT_FAILS(k_domain_find_map_configurations(net.domain, nullptr, 0.1), K_ERROR_USAGE);
  k_domain_t other = k_new_domain();
  k_node_t stranger[] = {
      k_domain_new_node(other, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL), nullptr};
  EXPECT_FAILS(k_domain_find_map_configurations(net.domain, stranger, 0.1), K_ERROR_USAGE);
  k_domain_delete(other);

  ASSERT_EQ(k_domain_find_map_configurations(net.domain, one, 1e-9), 0);
  const k_size_t found = k_domain_get_number_of_map_configurations(net.domain);
  EXPECT_EQ(found, k_node_get_number_of_states(a));  // every state of a has belief > 0
  double total = 0.0;
  for (k_size_t c = 0; c < found; ++c)
    total += k_domain_get_probability_of_map_configuration(net.domain, c);
  EXPECT_NEAR(total, 1.0, 1e-12);
  EXPECT_NULL_WITH(k_domain_get_map_configuration(net.domain, found), K_ERROR_USAGE);
  EXPECT_EQ(k_domain_get_probability_of_map_configuration(net.domain, found), -1.0);

  // Evidence not yet propagated and max equilibrium are refused; the
  // results of the last search stay.
  k_node_select_state(b, 0);
  EXPECT_FAILS(k_domain_find_map_configurations(net.domain, one, 0.1), K_ERROR_USAGE);
  ASSERT_EQ(k_domain_propagate(net.domain, K_EQUILIBRIUM_MAX, K_MODE_NORMAL), 0);
  EXPECT_FAILS(k_domain_find_map_configurations(net.domain, one, 0.1), K_ERROR_USAGE);
  EXPECT_EQ(k_domain_get_number_of_map_configurations(net.domain), found);
  k_domain_uncompile(net.domain);
  EXPECT_EQ(k_domain_get_number_of_map_configurations(net.domain), ~k_size_t{0});
  k_domain_delete(net.domain);
}

}  // namespace
}  // namespace kelva::test
