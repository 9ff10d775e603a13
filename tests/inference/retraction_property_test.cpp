// Random sequences of entering, changing and retracting evidence: after each
// step a domain propagated in normal mode (incrementally where it can) and one
// propagated in fast-retraction mode must agree with a freshly compiled copy
// that sees the evidence from the start, and with enumeration of the joint;
// their conflict values must be those that enumeration gives.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>

#include "common/random_network.h"
#include "common/shared_nets.h"
#include "kelva/kelva.h"

namespace kelva::test {
namespace {

// One random change of the evidence, applied to both domains and to the
// model of it kept in `evidence`.
void change(std::mt19937& rng, const RandomNetwork& normal, const RandomNetwork& fast,
            std::vector<Finding>& evidence) {
  const std::size_t i = rng() % normal.nodes.size();
  Finding& f = evidence[i];
  const std::size_t states = f.size();
  const std::size_t s = rng() % states;
  const unsigned what = rng() % 10;
  if (what < 3) {
    for (const RandomNetwork* net : {&normal, &fast})
      ASSERT_EQ(k_node_select_state(net->nodes[i], s), 0);
    f.assign(states, 0.0);
    f[s] = 1.0;
  } else if (what < 7) {
    // 0 excludes a state, 1 allows it again, anything else is a likelihood.
    const double values[] = {0.0, 1.0, 0.25, 3.0};
    const double v = values[rng() % 4];
    for (const RandomNetwork* net : {&normal, &fast})
      ASSERT_EQ(k_node_enter_finding(net->nodes[i], s, v), 0);
    f[s] = v;
  } else if (what < 9) {
    for (const RandomNetwork* net : {&normal, &fast})
      ASSERT_EQ(k_node_retract_findings(net->nodes[i]), 0);
    f.assign(states, 1.0);
  } else {
    for (const RandomNetwork* net : {&normal, &fast})
      ASSERT_EQ(k_domain_retract_findings(net->domain), 0);
    for (Finding& g : evidence) g.assign(g.size(), 1.0);
  }
}

TEST(RetractionProperty, IncrementalAndFastRetractionAgreeWithPropagationFromScratch) {
  std::size_t steps = 0, failures = 0;
  for (unsigned seed = 100; seed < 130; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    const std::size_t count = 5 + seed % 5;
    RandomNetwork normal = random_network(seed, count), fast = random_network(seed, count);
    DomainHandle own_normal(normal.domain), own_fast(fast.domain);
    ASSERT_EQ(k_domain_compile(normal.domain), 0);
    ASSERT_EQ(k_domain_compile(fast.domain), 0);
    std::vector<Finding> evidence = no_evidence(normal);
    const Answers prior = enumerate(normal, evidence);
    std::mt19937 rng(seed);
    for (int step = 0; step < 25; ++step) {
      SCOPED_TRACE("step " + std::to_string(step));
      // Sometimes several changes go into one propagation.
      for (unsigned k = 1 + rng() % 3; k > 0; --k) {
        change(rng, normal, fast, evidence);
        if (HasFatalFailure()) return;
      }
      const Answers a = enumerate(normal, evidence);
      RandomNetwork scratch = random_network(seed, count);
      DomainHandle own_scratch(scratch.domain);
      enter(scratch, evidence);
      // The error code of each call (none on success).
      auto code = [](k_status_t status) { return status == 0 ? K_ERROR_NONE : k_error_code(); };
      const k_error_t from_scratch = code(k_domain_compile(scratch.domain));
      const k_error_t by_normal =
          code(k_domain_propagate(normal.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL));
      const k_error_t by_fast =
          code(k_domain_propagate(fast.domain, K_EQUILIBRIUM_SUM, K_MODE_FAST_RETRACTION));
      ++steps;
      if (a.evidence == 0.0) {
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
      EXPECT_EQ(k_domain_evidence_mode_is(fast.domain, K_MODE_FAST_RETRACTION), 1);
      for (const RandomNetwork* net : {&normal, &fast, &scratch}) {
        EXPECT_NEAR(k_domain_get_normalization_constant(net->domain) / a.evidence, 1.0, 1e-10);
        EXPECT_NEAR(k_domain_get_log_normalization_constant(net->domain), std::log(a.evidence),
                    1e-10);
      }
      // Conflict: after a propagation from the node tables, 1 / P(e); in
      // fast-retraction mode the product of each finding's prior probability
      // over P(e).
      double separate = 1.0;
      for (std::size_t i = 0; i < count; ++i) {
        double p = 0.0;
        for (std::size_t s = 0; s < evidence[i].size(); ++s)
          p += prior.beliefs[i][s] * evidence[i][s];
        separate *= p;
      }
      EXPECT_NEAR(k_domain_get_conflict(scratch.domain) * a.evidence, 1.0, 1e-10);
      EXPECT_NEAR(k_domain_get_conflict(fast.domain) * a.evidence / separate, 1.0, 1e-10);
      for (std::size_t i = 0; i < count; ++i)
        for (std::size_t s = 0; s < evidence[i].size(); ++s) {
          const double expected = k_node_get_belief(scratch.nodes[i], s);
          EXPECT_NEAR(expected, a.beliefs[i][s], 1e-12);
          EXPECT_NEAR(k_node_get_belief(normal.nodes[i], s), expected, 1e-11) << "normal mode";
          EXPECT_NEAR(k_node_get_belief(fast.nodes[i], s), expected, 1e-11) << "fast retraction";
        }
    }
  }
  // The sequences should reach impossible evidence now and then, and recover.
  EXPECT_GT(failures, 0u);
  EXPECT_GT(steps - failures, steps / 2);
}

}  // namespace
}  // namespace kelva::test
