// Adaptation against counting and against family posteriors enumerated
// from the joint.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>
#include <vector>

#include "common/random_network.h"
#include "kelva/kelva.h"

namespace {

using kelva::test::entry;
using kelva::test::Finding;
using kelva::test::RandomNetwork;

std::vector<double> data_of(k_table_t t) {
  std::vector<double> d(k_table_get_size(t));
  k_table_get_data(t, d.data(), d.size(), 0, d.size());
  return d;
}

// Strictly positive tables, so that every case stays possible, each node
// with an experience table of `experience` and a fading table of `fading`.
RandomNetwork adaptive_network(unsigned seed, std::size_t count, double experience, double fading) {
  RandomNetwork net = kelva::test::random_network(seed, count);
  for (k_node_t node : net.nodes) {
    k_table_t t = k_node_get_table(node);
    std::vector<double> d = data_of(t);
    const std::size_t states = k_node_get_number_of_states(node);
    for (std::size_t row = 0; row < d.size(); row += states) {
      double sum = 0.0;
      for (std::size_t s = 0; s < states; ++s) sum += d[row + s] += 0.2;
      for (std::size_t s = 0; s < states; ++s) d[row + s] /= sum;
    }
    k_table_set_data(t, d.data(), d.size(), 0, d.size());
    k_table_set_all_data_items(k_node_get_experience_table(node), experience);
    if (fading != 1.0) k_table_set_all_data_items(k_node_get_fading_table(node), fading);
  }
  EXPECT_EQ(k_domain_compile(net.domain), 0);
  return net;
}

// With complete cases the experience of a parent configuration is the
// faded prior count plus the cases seen with it, each weighted by the
// fading factor to the power of the later cases with the same parents, and
// each row the matching counts normalised.
TEST(Adapt, CompleteCasesAreFadedCounts) {
  for (double lambda : {1.0, 0.9}) {
    RandomNetwork net = adaptive_network(11, 6, 2.0, lambda);
    std::vector<std::vector<double>> prior_table;
    for (k_node_t n : net.nodes) prior_table.push_back(data_of(k_node_get_table(n)));
    std::mt19937 rng(5);
    std::vector<std::vector<std::size_t>> cases;
    for (int c = 0; c < 300; ++c) {
      std::vector<std::size_t> config;
      for (k_node_t n : net.nodes) config.push_back(rng() % k_node_get_number_of_states(n));
      for (std::size_t i = 0; i < net.nodes.size(); ++i)
        ASSERT_EQ(k_node_select_state(net.nodes[i], config[i]), 0);
      ASSERT_EQ(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
      ASSERT_EQ(k_domain_adapt(net.domain), 0);
      cases.push_back(config);
    }
    for (std::size_t i = 0; i < net.nodes.size(); ++i) {
      k_table_t table = k_node_get_table(net.nodes[i]);
      k_table_t experience = k_node_get_experience_table(net.nodes[i]);
      // Weighted counts from the last case backwards: the weight of a case
      // is lambda to the number of later cases with the same parents.
      std::vector<double> counts(k_table_get_size(table), 0.0);
      std::vector<double> weight(k_table_get_size(experience), 1.0);
      for (auto c = cases.rbegin(); c != cases.rend(); ++c) {
        const std::size_t e = entry(net, experience, *c);
        counts[entry(net, table, *c)] += weight[e];
        weight[e] *= lambda;
      }
      const std::vector<double> got = data_of(table);
      const std::vector<double> got_experience = data_of(experience);
      // Every table entry, through a configuration that leads to it.
      std::vector<std::size_t> config(net.nodes.size(), 0);
      for (;;) {
        const std::size_t t = entry(net, table, config), e = entry(net, experience, config);
        const double n = 2.0 * weight[e];
        double total = n;
        const std::size_t states = k_node_get_number_of_states(net.nodes[i]);
        std::vector<std::size_t> other = config;
        for (std::size_t s = 0; s < states; ++s) {
          other[i] = s;
          total += counts[entry(net, table, other)];
        }
        EXPECT_NEAR(got_experience[e], total, 1e-12 * total);
        EXPECT_NEAR(got[t], (n * prior_table[i][t] + counts[t]) / total, 1e-12);
        std::size_t k = 0;
        while (k < config.size() && ++config[k] == k_node_get_number_of_states(net.nodes[k]))
          config[k++] = 0;
        if (k == config.size()) break;
      }
    }
    k_domain_delete(net.domain);
  }
}

// P(family | e) for every node, by enumeration of the joint.
std::vector<std::vector<double>> family_posteriors(const RandomNetwork& net,
                                                   const std::vector<Finding>& evidence) {
  std::vector<std::vector<double>> post;
  for (k_node_t n : net.nodes) post.emplace_back(k_table_get_size(k_node_get_table(n)), 0.0);
  const std::vector<double> p = kelva::test::joint(net, evidence);
  const double total = std::accumulate(p.begin(), p.end(), 0.0);
  for (std::size_t c = 0; c < p.size(); ++c) {
    const std::vector<std::size_t> config = kelva::test::configuration(net, c);
    for (std::size_t i = 0; i < net.nodes.size(); ++i)
      post[i][entry(net, k_node_get_table(net.nodes[i]), config)] += p[c] / total;
  }
  return post;
}

// Partial and likelihood evidence: the expected counts are the family
// posteriors, and fading applies as far as the case speaks about a parent
// configuration.  Afterwards the evidence is still entered, and retracting
// it gives the prior of the adapted tables.
TEST(Adapt, MissingItemsGiveExpectedCountsAndRetractionGivesTheNewPrior) {
  std::mt19937 rng(3);
  int checked = 0;
  for (unsigned seed = 1; seed <= 12; ++seed) {
    RandomNetwork net = adaptive_network(seed, 5, 0.0, 0.8);
    // Random experience, some of it negative (not adapted).
    for (k_node_t n : net.nodes) {
      k_table_t e = k_node_get_experience_table(n);
      for (std::size_t j = 0; j < k_table_get_size(e); ++j)
        k_table_set_data_item(e, j, rng() % 5 == 0 ? -1.0 : 0.5 + rng() % 7);
    }
    // A node without experience is left alone.
    k_node_t fixed = net.nodes[seed % net.nodes.size()];
    k_table_delete(k_node_get_experience_table(fixed));
    std::vector<Finding> evidence = kelva::test::random_evidence(rng, net, 0.6);
    kelva::test::enter(net, evidence);
    if (k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL) != 0) continue;
    const auto post = family_posteriors(net, evidence);
    std::vector<std::vector<double>> before, before_experience;
    for (k_node_t n : net.nodes) {
      before.push_back(data_of(k_node_get_table(n)));
      before_experience.push_back(k_node_has_experience_table(n) == 1
                                      ? data_of(k_node_get_experience_table(n))
                                      : std::vector<double>{});
    }
    ASSERT_EQ(k_domain_adapt(net.domain), 0);
    ++checked;
    for (std::size_t i = 0; i < net.nodes.size(); ++i) {
      k_node_t n = net.nodes[i];
      const std::vector<double> got = data_of(k_node_get_table(n));
      if (n == fixed) {
        EXPECT_EQ(got, before[i]);
        continue;
      }
      k_table_t experience = k_node_get_experience_table(n);
      const std::vector<double> got_experience = data_of(experience);
      const std::size_t states = k_node_get_number_of_states(n);
      std::vector<std::size_t> config(net.nodes.size(), 0);
      for (;;) {
        const std::size_t t = entry(net, k_node_get_table(n), config);
        const std::size_t e = entry(net, experience, config);
        const double old = before_experience[i][e];
        double w = 0.0;
        std::vector<std::size_t> other = config;
        for (std::size_t s = 0; s < states; ++s) {
          other[i] = s;
          w += post[i][entry(net, k_node_get_table(n), other)];
        }
        if (old < 0.0) {
          EXPECT_EQ(got[t], before[i][t]);
          EXPECT_EQ(got_experience[e], old);
        } else {
          const double f = 1.0 - w * 0.2;
          EXPECT_NEAR(got_experience[e], f * old + w, 1e-12);
          EXPECT_NEAR(got[t], (f * old * before[i][t] + post[i][t]) / (f * old + w), 1e-12);
        }
        std::size_t k = 0;
        while (k < config.size() && ++config[k] == k_node_get_number_of_states(net.nodes[k]))
          config[k++] = 0;
        if (k == config.size()) break;
      }
    }
    // The evidence is still there; without it the beliefs are the prior of
    // the adapted network.
    ASSERT_EQ(k_domain_retract_findings(net.domain), 0);
    ASSERT_EQ(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
    const auto prior = kelva::test::enumerate(net, kelva::test::no_evidence(net));
    for (std::size_t i = 0; i < net.nodes.size(); ++i)
      for (std::size_t s = 0; s < prior.beliefs[i].size(); ++s)
        EXPECT_NEAR(k_node_get_belief(net.nodes[i], s), prior.beliefs[i][s], 1e-12);
    k_domain_delete(net.domain);
  }
  EXPECT_GE(checked, 8);
}

TEST(Adapt, RefusesEvidenceNotPropagatedAndChangesNothing) {
  RandomNetwork net = adaptive_network(2, 4, 1.0, 1.0);
  const std::vector<double> before = data_of(k_node_get_table(net.nodes[3]));
  ASSERT_EQ(k_node_select_state(net.nodes[0], 1), 0);
  EXPECT_NE(k_domain_adapt(net.domain), 0);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  EXPECT_EQ(data_of(k_node_get_table(net.nodes[3])), before);
  ASSERT_EQ(k_domain_propagate(net.domain, K_EQUILIBRIUM_MAX, K_MODE_NORMAL), 0);
  EXPECT_NE(k_domain_adapt(net.domain), 0);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  ASSERT_EQ(k_domain_uncompile(net.domain), 0);
  EXPECT_NE(k_domain_adapt(net.domain), 0);
  EXPECT_EQ(k_error_code(), K_ERROR_NOT_COMPILED);
  EXPECT_NE(k_domain_adapt(nullptr), 0);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  k_domain_delete(net.domain);
}

}  // namespace
