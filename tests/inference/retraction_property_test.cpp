// Random sequences of entering, changing and retracting evidence on small
// random networks (tables with zeros, every third network with entries that
// are no probabilities): after each step a domain propagated in normal mode
// (incrementally where it can) and one propagated in fast-retraction mode
// (now and then in normal mode) must agree with a freshly compiled copy that
// sees the evidence from the start, and with enumeration of the joint; so
// must their conflict values and, now and then, the max-marginals.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>

#include "inference/net_builder.h"

namespace kelva::test {
namespace {

using Findings = std::vector<std::vector<double>>;

// The network of `seed`; P(e) of a network whose entries are no
// probabilities is the plain sum of the product of its tables.
void build(TestNet& net, unsigned seed) {
  std::mt19937 rng(seed);
  random_network(net, rng, 5 + seed % 6, 3, seed % 3 != 0, 1.0 / 6);
}

// Enters `evidence` on a fresh domain: a vector with one 1 and zeros by
// selecting the state, anything but all ones entry by entry.
void enter(const TestNet& net, const Findings& evidence) {
  for (std::size_t i = 0; i < net.nodes.size(); ++i) {
    const std::vector<double>& f = evidence[i];
    const auto ones = std::count(f.begin(), f.end(), 1.0);
    const auto zeros = std::count(f.begin(), f.end(), 0.0);
    if (ones == 1 && zeros + 1 == static_cast<long>(f.size())) {
      select_state(*net.nodes[i], std::find(f.begin(), f.end(), 1.0) - f.begin());
    } else if (ones != static_cast<long>(f.size())) {
      enter_vector(*net.nodes[i], f);
    }
  }
}

// One random change of the evidence, applied to both domains and to the
// model of it kept in `evidence`.
void change(std::mt19937& rng, const TestNet& normal, const TestNet& fast, Findings& evidence) {
  const std::size_t i = rng() % normal.nodes.size();
  std::vector<double>& f = evidence[i];
  const std::size_t states = f.size();
  const std::size_t s = rng() % states;
  const unsigned what = rng() % 10;
  if (what < 3) {
    for (const TestNet* net : {&normal, &fast})
      ASSERT_EQ(k_node_select_state(h(net->nodes[i]), s), 0);
    f.assign(states, 0.0);
    f[s] = 1.0;
  } else if (what < 7) {
    // 0 excludes a state, 1 allows it again, anything else is a likelihood.
    const double values[] = {0.0, 1.0, 0.25, 3.0};
    const double v = values[rng() % 4];
    for (const TestNet* net : {&normal, &fast})
      ASSERT_EQ(k_node_enter_finding(h(net->nodes[i]), s, v), 0);
    f[s] = v;
  } else if (what < 9) {
    for (const TestNet* net : {&normal, &fast})
      ASSERT_EQ(k_node_retract_findings(h(net->nodes[i])), 0);
    f.assign(states, 1.0);
  } else {
    for (const TestNet* net : {&normal, &fast})
      ASSERT_EQ(k_domain_retract_findings(net->domain), 0);
    for (std::vector<double>& g : evidence) g.assign(g.size(), 1.0);
  }
}

// After a max propagation the beliefs are the max-marginals up to a common
// factor.
void expect_max_marginals(const TestNet& net, const Oracle& max) {
  ASSERT_EQ(k_domain_propagate(net.domain, K_EQUILIBRIUM_MAX, K_MODE_NORMAL), 0)
      << k_error_name(k_error_code());
  EXPECT_EQ(k_domain_equilibrium_is(net.domain, K_EQUILIBRIUM_MAX), 1);
  for (std::size_t i = 0; i < net.nodes.size(); ++i) {
    double top = 0.0;
    for (std::size_t s = 0; s < max.marginals[i].size(); ++s)
      top = std::max(top, k_node_get_belief(h(net.nodes[i]), s));
    ASSERT_GT(top, 0.0);
    for (std::size_t s = 0; s < max.marginals[i].size(); ++s)
      EXPECT_NEAR(k_node_get_belief(h(net.nodes[i]), s) / top, max.marginals[i][s], 1e-12)
          << "max-marginal of node " << i << " state " << s;
  }
}

TEST(RetractionProperty, IncrementalAndFastRetractionAgreeWithPropagationFromScratch) {
  std::size_t networks = 0, steps = 0, failures = 0;
  for (unsigned seed = 100; networks < 30; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    TestNet normal, fast;
    build(normal, seed);
    build(fast, seed);
    std::size_t configurations = 1;
    for (Node* n : normal.nodes) configurations *= n->state_count();
    if (configurations > 20000) continue;
    ++networks;
    const bool probabilities = seed % 3 != 0;
    const std::size_t count = normal.nodes.size();
    ASSERT_EQ(k_domain_compile(normal.domain), 0);
    ASSERT_EQ(k_domain_compile(fast.domain), 0);
    Findings evidence;
    for (Node* n : normal.nodes) evidence.emplace_back(n->state_count(), 1.0);
    const Oracle prior = enumerate(normal, false, &evidence);
    std::mt19937 rng(seed);
    for (int step = 0; step < 25; ++step) {
      SCOPED_TRACE("step " + std::to_string(step));
      // Sometimes several changes go into one propagation.
      for (unsigned k = 1 + rng() % 3; k > 0; --k) {
        change(rng, normal, fast, evidence);
        if (HasFatalFailure()) return;
      }
      const Oracle a = enumerate(normal, false, &evidence);
      TestNet scratch;
      build(scratch, seed);
      enter(scratch, evidence);
      // The error code of each call (none on success).
      auto code = [](k_status_t status) { return status == 0 ? K_ERROR_NONE : k_error_code(); };
      const k_error_t from_scratch = code(k_domain_compile(scratch.domain));
      const k_error_t by_normal =
          code(k_domain_propagate(normal.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL));
      // Now and then the fast domain is propagated in normal mode, and back.
      const k_evidence_mode_t mode = step % 7 == 6 ? K_MODE_NORMAL : K_MODE_FAST_RETRACTION;
      const k_error_t by_fast = code(k_domain_propagate(fast.domain, K_EQUILIBRIUM_SUM, mode));
      ++steps;
      if (a.total == 0.0) {
        ++failures;
        EXPECT_EQ(from_scratch, K_ERROR_INCONSISTENCY_OR_UNDERFLOW);
        EXPECT_EQ(by_normal, K_ERROR_INCONSISTENCY_OR_UNDERFLOW);
        EXPECT_EQ(by_fast, K_ERROR_INCONSISTENCY_OR_UNDERFLOW);
        EXPECT_EQ(k_domain_equilibrium_is(normal.domain, K_EQUILIBRIUM_SUM), 0);
        continue;
      }
      ASSERT_EQ(from_scratch, K_ERROR_NONE) << k_error_name(from_scratch);
      ASSERT_EQ(by_normal, K_ERROR_NONE) << k_error_name(by_normal);
      ASSERT_EQ(by_fast, K_ERROR_NONE) << k_error_name(by_fast);
      EXPECT_EQ(k_domain_evidence_mode_is(fast.domain, mode), 1);
      for (const TestNet* net : {&normal, &fast})
        EXPECT_EQ(k_domain_evidence_to_propagate(net->domain), 0);
      for (const TestNet* net : {&normal, &fast, &scratch}) {
        EXPECT_NEAR(k_domain_get_normalization_constant(net->domain) / a.total, 1.0, 1e-10);
        EXPECT_NEAR(k_domain_get_log_normalization_constant(net->domain), std::log(a.total), 1e-10);
      }
      // Conflict: after a propagation from the node tables, 1 / P(e); in
      // fast-retraction mode the product of each finding's prior probability
      // over P(e).
      double separate = 1.0;
      for (std::size_t i = 0; i < count; ++i) {
        double p = 0.0;
        for (std::size_t s = 0; s < evidence[i].size(); ++s)
          p += prior.marginals[i][s] * evidence[i][s];
        separate *= p;
      }
      if (probabilities) {
        EXPECT_NEAR(k_domain_get_conflict(scratch.domain) * a.total, 1.0, 1e-10);
        if (mode == K_MODE_FAST_RETRACTION) {
          EXPECT_NEAR(k_domain_get_conflict(fast.domain) * a.total / separate, 1.0, 1e-10);
        }
      }
      for (std::size_t i = 0; i < count; ++i)
        for (std::size_t s = 0; s < evidence[i].size(); ++s) {
          const double expected = k_node_get_belief(h(scratch.nodes[i]), s);
          EXPECT_NEAR(expected, a.marginals[i][s], 1e-12);
          EXPECT_NEAR(k_node_get_belief(h(normal.nodes[i]), s), expected, 1e-11) << "normal mode";
          EXPECT_NEAR(k_node_get_belief(h(fast.nodes[i]), s), expected, 1e-11) << "fast retraction";
        }
      // Max-marginals of the fresh copy, and of the normal domain, whose
      // next sum propagation then starts over.
      if (step % 5 == 4) {
        const Oracle max = enumerate(normal, true, &evidence);
        expect_max_marginals(scratch, max);
        expect_max_marginals(normal, max);
      }
    }
  }
  // The sequences should reach impossible evidence now and then, and recover.
  EXPECT_GT(failures, 0u);
  EXPECT_GT(steps - failures, steps / 2);
}

}  // namespace
}  // namespace kelva::test
