// Sensitivity constants, explanations and information measures against
// the joint distribution of small random networks.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "common/random_network.h"
#include "kelva/kelva.h"

namespace {

using kelva::test::RandomNetwork;

// The joint of a network weighted by hard evidence (state or -1 per node).
struct Joint {
  std::vector<std::size_t> states;
  std::vector<double> p;  // mixed radix, the last node fastest

  Joint(const RandomNetwork& net, const std::vector<long>& evidence) {
    std::vector<kelva::test::Finding> findings;
    for (std::size_t i = 0; i < net.nodes.size(); ++i) {
      states.push_back(k_node_get_number_of_states(net.nodes[i]));
      findings.emplace_back(states[i], evidence[i] < 0 ? 1.0 : 0.0);
      if (evidence[i] >= 0) findings[i][evidence[i]] = 1.0;
    }
    p = kelva::test::joint(net, findings);
  }
  // P(x = a, y = b) / total (x == y allowed).
  double pair(std::size_t x, std::size_t a, std::size_t y, std::size_t b) const {
    double sum = 0.0, total = 0.0;
    for (std::size_t c = 0; c < p.size(); ++c) {
      total += p[c];
      if (state(c, x) == a && state(c, y) == b) sum += p[c];
    }
    return sum / total;
  }
  std::size_t state(std::size_t c, std::size_t i) const {
    for (std::size_t j = states.size(); --j > i;) c /= states[j];
    return c % states[i];
  }
};

// A random network with hard evidence on `observed` nodes drawn from the
// joint, so that it is possible; compiled and propagated.
struct Case {
  RandomNetwork net;
  std::vector<long> evidence;
  Case(unsigned seed, std::size_t count, std::size_t observed) {
    net = kelva::test::random_network(seed, count);
    std::mt19937 rng(seed);
    evidence.assign(count, -1);
    EXPECT_EQ(k_domain_compile(net.domain), 0);
    for (std::size_t k = 0; k < observed; ++k) {
      const std::size_t i = rng() % count;
      const Joint joint(net, evidence);
      std::vector<double> w(joint.states[i]);
      for (std::size_t s = 0; s < w.size(); ++s) w[s] = joint.pair(i, s, i, s);
      evidence[i] = std::discrete_distribution<long>(w.begin(), w.end())(rng);
      k_node_select_state(net.nodes[i], evidence[i]);
    }
    EXPECT_EQ(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
  }
  ~Case() { k_domain_delete(net.domain); }
  // Every belief, to be compared with expect_same.
  std::vector<double> beliefs() const {
    std::vector<double> b;
    for (k_node_t n : net.nodes)
      for (std::size_t s = 0; s < k_node_get_number_of_states(n); ++s)
        b.push_back(k_node_get_belief(n, s));
    return b;
  }
};

// Beliefs after an analysis equal those before it (up to rounding: the
// analysis propagates the tables again from scratch).
void expect_same(const std::vector<double>& a, const std::vector<double>& b) {
  ASSERT_EQ(a.size(), b.size());
  for (std::size_t i = 0; i < a.size(); ++i) EXPECT_NEAR(a[i], b[i], 1e-12);
}

TEST(Information, EntropyAndMutualInformationEqualTheJoint) {
  for (unsigned seed = 1; seed <= 40; ++seed) {
    Case c(seed, 6, seed % 3);
    const Joint joint(c.net, c.evidence);
    const std::vector<double> before = c.beliefs();
    for (std::size_t x = 0; x < 6; ++x) {
      const std::size_t y = (x + seed) % 6;
      double h = 0.0, mi = 0.0;
      for (std::size_t a = 0; a < joint.states[x]; ++a) {
        const double pa = joint.pair(x, a, x, a);
        if (pa > 0.0) h -= pa * std::log(pa);
        for (std::size_t b = 0; b < joint.states[y]; ++b) {
          const double pab = joint.pair(x, a, y, b);
          if (pab > 0.0) mi += pab * std::log(pab / (pa * joint.pair(y, b, y, b)));
        }
      }
      EXPECT_NEAR(k_node_get_entropy(c.net.nodes[x]), h, 1e-10);
      EXPECT_NEAR(k_node_get_mutual_information(c.net.nodes[x], c.net.nodes[y]), mi, 1e-10);
    }
    expect_same(c.beliefs(), before);
  }
}

// Sets entry i of the node's table to t, the other entries of its column
// scaled (or shared equally when all 0) to fill the column up to 1.
void perturb(k_node_t node, std::size_t i, double t, const std::vector<double>& base) {
  const std::size_t n = k_node_get_number_of_states(node), first = i - i % n;
  double mates = 0.0;
  for (std::size_t j = first; j < first + n; ++j) mates += j == i ? 0.0 : base[j];
  std::vector<double> data = base;
  for (std::size_t j = first; j < first + n; ++j)
    data[j] = j == i ? t : mates > 0.0 ? base[j] * (1.0 - t) / mates : (1.0 - t) / (n - 1);
  k_table_set_data(k_node_get_table(node), data.data(), data.size(), 0, data.size());
}

TEST(Sensitivity, ConstantsReproduceTheOutputForPerturbedEntries) {
  int checked = 0;
  for (unsigned seed = 1; seed <= 30; ++seed) {
    Case c(seed, 6, 1 + seed % 2);
    std::size_t y = seed % 6;
    while (c.evidence[y] >= 0) y = (y + 1) % 6;
    const std::size_t state = seed % k_node_get_number_of_states(c.net.nodes[y]);
    // A likelihood on an unobserved node (every third seed the output's own).
    std::size_t soft = seed % 3 == 0 ? y : (y + seed) % 6;
    if (c.evidence[soft] < 0) {
      for (std::size_t s = 0; s < k_node_get_number_of_states(c.net.nodes[soft]); ++s)
        k_node_enter_finding(c.net.nodes[soft], s, 0.25 + 0.5 * ((s + seed) % 3));
      ASSERT_EQ(k_domain_propagate(c.net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
    }
    ASSERT_EQ(k_node_compute_sensitivity_data(c.net.nodes[y], state), 0);
    const double p = k_node_get_belief(c.net.nodes[y], state);
    std::vector<k_node_t> set;
    for (k_node_t* n = k_domain_get_sensitivity_set(c.net.domain, 0); *n != nullptr; ++n)
      set.push_back(*n);
    for (k_node_t x : c.net.nodes) {
      k_table_t table = k_node_get_table(x);
      std::vector<double> base(k_table_get_size(table));
      k_table_get_data(table, base.data(), base.size(), 0, base.size());
      for (std::size_t i = 0; i < base.size(); ++i) {
        double k[4];
        ASSERT_EQ(k_node_get_sensitivity_constants(x, i, k), 0);
        EXPECT_NEAR(k[2] * base[i] + k[3], 1.0, 1e-9);
        EXPECT_NEAR(k[0] * base[i] + k[1], p, 1e-9);
        if (std::count(set.begin(), set.end(), x) == 0) {
          EXPECT_TRUE(k[0] == 0.0 && k[2] == 0.0);
        }
        for (double t : {0.05, 0.5, 0.97}) {
          perturb(x, i, t, base);
          if (k_domain_propagate(c.net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL) != 0) continue;
          EXPECT_NEAR(k_node_get_belief(c.net.nodes[y], state),
                      (k[0] * t + k[1]) / (k[2] * t + k[3]), 1e-9)
              << "seed " << seed << ", entry " << i;
          ++checked;
        }
        k_table_set_data(table, base.data(), base.size(), 0, base.size());
      }
    }
    // Several outputs at once give each output's constants.
    const std::size_t z = (y + 1) % 6;
    k_node_t outputs[] = {c.net.nodes[z], c.net.nodes[y], nullptr};
    const k_size_t states[] = {0, state};
    ASSERT_EQ(k_domain_compute_sensitivity_data(c.net.domain, outputs, states), 0);
    double one[4], two[4];
    ASSERT_EQ(k_node_get_sensitivity_constants2(c.net.nodes[0], 0, 1, one), 0);
    ASSERT_EQ(k_node_compute_sensitivity_data(c.net.nodes[y], state), 0);
    ASSERT_EQ(k_node_get_sensitivity_constants(c.net.nodes[0], 0, two), 0);
    for (int j = 0; j < 4; ++j) EXPECT_NEAR(one[j], two[j], 1e-12);
    EXPECT_NE(k_node_get_sensitivity_constants2(c.net.nodes[0], 0, 1, one), 0);  // one output now
    EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  }
  EXPECT_GT(checked, 1000);
}

TEST(Explanation, ScoresAreBayesFactorsOfTheJoint) {
  for (unsigned seed = 1; seed <= 30; ++seed) {
    Case c(seed, 6, 3);
    std::size_t h = seed % 6;
    while (c.evidence[h] >= 0) h = (h + 1) % 6;
    std::vector<long> none(6, -1);
    const Joint prior(c.net, none);
    if (prior.pair(h, 0, h, 0) <= 0.0 || prior.pair(h, 0, h, 0) >= 1.0) continue;
    const std::vector<double> before = c.beliefs();
    ASSERT_EQ(k_node_compute_explanation_data(c.net.nodes[h], 0, 3), 0);
    expect_same(c.beliefs(), before);
    const k_size_t count = k_domain_get_number_of_explanations(c.net.domain);
    std::size_t items = 0;
    for (long e : c.evidence) items += e >= 0;
    EXPECT_EQ(count, (std::size_t{1} << items) - 1);
    // The Bayes factor of a subset: P(s | h) / P(s | not h) from the joint.
    auto factor = [&](const std::vector<k_node_t>& subset) {
      std::vector<long> ev(6, -1);
      for (k_node_t n : subset) {
        const std::size_t i =
            std::find(c.net.nodes.begin(), c.net.nodes.end(), n) - c.net.nodes.begin();
        ev[i] = c.evidence[i];
      }
      const double q = Joint(c.net, ev).pair(h, 0, h, 0), p = prior.pair(h, 0, h, 0);
      return q / (1.0 - q) / (p / (1.0 - p));
    };
    double last = HUGE_VAL;
    for (k_size_t i = 0; i < count; ++i) {
      std::vector<k_node_t> subset;
      for (k_node_t* n = k_domain_get_explanation(c.net.domain, i); *n != nullptr; ++n)
        subset.push_back(*n);
      const double score = k_domain_get_explanation_score(c.net.domain, i);
      EXPECT_LE(score, last);
      last = score;
      const double expected = factor(subset);
      if (std::isinf(expected)) {
        EXPECT_TRUE(std::isinf(score));
      } else {
        EXPECT_NEAR(score, expected, 1e-9 * std::max(1.0, expected));
      }
    }
    std::vector<k_node_t> all;
    for (std::size_t i = 0; i < 6; ++i)
      if (c.evidence[i] >= 0) all.push_back(c.net.nodes[i]);
    const double total = factor(all);
    if (!std::isinf(total)) {
      EXPECT_NEAR(k_node_get_total_impact(c.net.nodes[h], 0), total, 1e-9 * std::max(1.0, total));
    }
    EXPECT_EQ(k_domain_get_explanation(c.net.domain, count), nullptr);
    EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  }
}

TEST(Queries, RefuseWhatTheyCannotAnswer) {
  RandomNetwork net = kelva::test::random_network(3, 4);
  double k[4];
  EXPECT_NE(k_node_compute_sensitivity_data(net.nodes[0], 0), 0);
  EXPECT_EQ(k_error_code(), K_ERROR_NOT_COMPILED);
  EXPECT_EQ(k_node_get_mutual_information(net.nodes[0], net.nodes[1]), -1.0);
  EXPECT_EQ(k_error_code(), K_ERROR_NOT_COMPILED);
  ASSERT_EQ(k_domain_compile(net.domain), 0);
  EXPECT_NE(k_node_get_sensitivity_constants(net.nodes[0], 0, k), 0);  // nothing computed
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  EXPECT_EQ(k_domain_get_number_of_explanations(net.domain), K_SIZE_ERROR);
  EXPECT_NE(k_node_compute_sensitivity_data(net.nodes[0], 9), 0);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  ASSERT_EQ(k_node_compute_sensitivity_data(net.nodes[0], 0), 0);
  EXPECT_NE(k_node_get_sensitivity_constants(net.nodes[0], 99, k), 0);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  EXPECT_NE(k_node_compute_explanation_data(net.nodes[0], 0, 0), 0);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  k_domain_uncompile(net.domain);
  EXPECT_NE(k_node_get_sensitivity_constants(net.nodes[0], 0, k), 0);  // stale data
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  k_domain_delete(net.domain);
}

}  // namespace
