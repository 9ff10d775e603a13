#include <gtest/gtest.h>

#include <random>

#include "common/fail_new.h"
#include "compile/junction_forest.h"
#include "inference/net_builder.h"

namespace kelva::test {
namespace {

// Propagates with every allocation failing; the status and the code.
k_status_t propagate_without_allocation(TestNet& net, k_equilibrium_t eq, k_evidence_mode_t mode) {
  fail_allocation_after(0);
  const k_status_t status = k_domain_propagate(net.domain, eq, mode);
  const long left = allocations_left();
  fail_allocation_after(-1);
  EXPECT_EQ(left, 0) << "propagation allocated";
  return status;
}

TEST(PropagationAllocation, NoAllocationAfterTheFirstPropagation) {
  for (int threads : {1, 3}) {
    SCOPED_TRACE(threads);
    std::mt19937 rng(4);
    TestNet net;
    random_network(net, rng, 12, 3);
    k_domain_set_concurrency_level(net.domain, threads);
    k_domain_set_grain_size(net.domain, 4);
    ASSERT_EQ(compile_for_test(net.d()), 0);
    // Threads are started by the first threaded operation and kept.
    select_state(*net.nodes[5], 1);
    ASSERT_EQ(propagate_without_allocation(net, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);

    enter_vector(*net.nodes[7], std::vector<double>(net.nodes[7]->state_count(), 0.5));
    ASSERT_EQ(propagate_without_allocation(net, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
    retract(*net.nodes[5]);
    ASSERT_EQ(propagate_without_allocation(net, K_EQUILIBRIUM_MAX, K_MODE_NORMAL), 0);
    select_state(*net.nodes[2], 0);
    ASSERT_EQ(propagate_without_allocation(net, K_EQUILIBRIUM_SUM, K_MODE_FAST_RETRACTION), 0);
    // Another root.
    fail_allocation_after(0);
    const k_status_t status =
        k_clique_propagate(reinterpret_cast<k_clique_t>(net.d().forest()->cliques.back().get()),
                           K_EQUILIBRIUM_SUM, K_MODE_NORMAL);
    fail_allocation_after(-1);
    EXPECT_EQ(status, 0);
    EXPECT_GE(k_node_get_belief(reinterpret_cast<k_node_t>(net.nodes[3]), 0), 0.0);
    // Case after case from the node tables: the collect memo makes its
    // room on the second case, so later cases allocate nothing.
    for (int row = 0; row < 5; ++row) {
      ASSERT_EQ(k_domain_retract_findings(net.domain), 0);
      ASSERT_EQ(k_domain_initialize(net.domain), 0);
      select_state(*net.nodes[row % 3], row % 2);
      if (row < 2) ASSERT_EQ(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
      else ASSERT_EQ(propagate_without_allocation(net, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
    }
  }
}

TEST(PropagationAllocation, FailedAllocationLeavesTheDomainCompiled) {
  // A fresh forest allocates its working records on the first propagation:
  // fail each allocation in turn.
  for (long n = 0;; ++n) {
    std::mt19937 rng(6);
    TestNet net;
    random_network(net, rng, 8, 2);
    build_forest_for_test(net.d());
    select_state(*net.nodes[3], 1);
    fail_allocation_after(n);
    const k_status_t status = k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL);
    const bool failed = allocations_left() < 0;
    fail_allocation_after(-1);
    if (!failed) {
      EXPECT_EQ(status, 0);
      break;
    }
    EXPECT_NE(status, 0);
    EXPECT_EQ(k_error_code(), K_ERROR_NO_MEMORY);
    EXPECT_TRUE(net.d().is_compiled());
    EXPECT_EQ(net.nodes[3]->evidence.entered_code, 1);
    ASSERT_EQ(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
    const Oracle o = enumerate(net, false);
    EXPECT_NEAR(k_domain_get_normalization_constant(net.domain), o.total, 1e-12);
  }
}

}  // namespace
}  // namespace kelva::test
