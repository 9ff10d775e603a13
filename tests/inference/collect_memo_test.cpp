// Case after case of random evidence on shared networks: a domain whose
// collects go through the memo (small subtrees copied from an earlier case
// with the same evidence) must give the bits of a domain that sweeps every
// clique each time: every status, belief, log P(e) and clique table.
#include "inference/collect_memo.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "common/shared_nets.h"
#include "compile/junction_forest.h"
#include "inference/net_builder.h"

namespace kelva::test {
namespace {

Domain& d(k_domain_t h) { return *reinterpret_cast<Domain*>(h); }

bool same_bits(const double* a, const double* b, std::size_t n) {
  return std::memcmp(a, b, n * sizeof(double)) == 0;
}

// Both domains' results after one case, bit for bit.
void expect_same(k_domain_t memo, k_domain_t full, std::size_t row) {
  SCOPED_TRACE(row);
  const std::vector<k_node_t> a = domain_nodes(memo);
  const std::vector<k_node_t> b = domain_nodes(full);
  for (std::size_t i = 0; i < a.size(); ++i)
    for (k_size_t s = 0; s < k_node_get_number_of_states(a[i]); ++s) {
      const double x = k_node_get_belief(a[i], s);
      const double y = k_node_get_belief(b[i], s);
      ASSERT_TRUE(same_bits(&x, &y, 1)) << k_node_get_name(a[i]) << " " << s;
    }
  const double x = k_domain_get_log_normalization_constant(memo);
  const double y = k_domain_get_log_normalization_constant(full);
  ASSERT_TRUE(same_bits(&x, &y, 1));
  const auto& ta = d(memo).forest()->trees;
  const auto& tb = d(full).forest()->trees;
  for (std::size_t t = 0; t < ta.size(); ++t)
    for (std::size_t c = 0; ta[t]->cliques[c] != nullptr; ++c) {
      const Table& p = *ta[t]->cliques[c]->table;
      ASSERT_TRUE(same_bits(p.data(), tb[t]->cliques[c]->table->data(), p.size())) << c;
    }
}

TEST(CollectMemo, CaseAfterCaseGivesTheBitsOfFullSweeps) {
  struct Net {
    const char* name;
    std::size_t rows;
    std::size_t budget;  // the memo's room in doubles (0: the default)
    unsigned observed;   // percent of the nodes observed
  };
  // Alarm's links near the root meet more evidence than a link keeps; child
  // has room for a few subtrees only; water has cliques too large to keep.
  // Fewer observations where many combinations are impossible.
  const Net nets[] = {{"asia.net", 300, 0, 50},      {"alarm.net", 700, 0, 50},
                      {"insurance.net", 300, 0, 15}, {"hailfinder.net", 200, 0, 10},
                      {"child.net", 300, 400, 50},   {"water.net", 25, 0, 5}};
  std::mt19937 rng(11);
  for (const Net& net : nets) {
    SCOPED_TRACE(net.name);
    DomainHandle memo(parse_net_quietly(shared_dir() / "nets" / net.name));
    DomainHandle full(parse_net_quietly(shared_dir() / "nets" / net.name));
    if (!memo || !full) GTEST_SKIP() << "no shared networks at " << shared_dir();
    ASSERT_EQ(compile_for_test(d(memo.get())), 0);
    ASSERT_EQ(compile_for_test(d(full.get())), 0);
    JunctionTree& tree = *d(memo.get()).forest()->trees[0];
    if (net.budget > 0) tree.collect_memo.reset(new CollectMemo(net.budget));
    const std::vector<k_node_t> a = domain_nodes(memo.get());
    const std::vector<k_node_t> b = domain_nodes(full.get());
    std::size_t failed = 0;
    for (std::size_t row = 0; row < net.rows; ++row) {
      for (k_domain_t h : {memo.get(), full.get()}) {
        ASSERT_EQ(k_domain_retract_findings(h), 0);
        ASSERT_EQ(k_domain_initialize(h), 0);
      }
      // Some nodes observed; now and then a likelihood, which is not
      // remembered; some cases are impossible.
      for (std::size_t i = 0; i < a.size(); ++i) {
        const k_size_t states = k_node_get_number_of_states(a[i]);
        const unsigned r = rng() % 100;
        if (r < net.observed) {
          const k_size_t s = rng() % states;
          ASSERT_EQ(k_node_select_state(a[i], s), 0);
          ASSERT_EQ(k_node_select_state(b[i], s), 0);
        } else if (r < net.observed + 1) {
          ASSERT_EQ(k_node_enter_finding(a[i], 0, 0.5), 0);
          ASSERT_EQ(k_node_enter_finding(b[i], 0, 0.5), 0);
        }
      }
      // A table change drops the full domain's memo before every case.
      d(full.get()).note_table_change();
      const k_status_t sa = k_domain_propagate(memo.get(), K_EQUILIBRIUM_SUM, K_MODE_NORMAL);
      const k_error_t ea = k_error_code();
      const k_status_t sb = k_domain_propagate(full.get(), K_EQUILIBRIUM_SUM, K_MODE_NORMAL);
      ASSERT_EQ(ea, k_error_code());
      ASSERT_EQ(sa, sb);
      if (sa != 0) ++failed;
      else expect_same(memo.get(), full.get(), row);
      if (testing::Test::HasFatalFailure()) return;
    }
    EXPECT_LT(failed, net.rows / 2);
    // The memo was used, and only by the domain that kept its tables.
    ASSERT_TRUE(tree.collect_memo);
    EXPECT_GT(tree.collect_memo->held(), 0U);
    EXPECT_LE(tree.collect_memo->held(), net.budget > 0 ? net.budget : kMemoBudget);
    EXPECT_EQ(d(full.get()).forest()->trees[0]->collect_memo->held(), 0U);
  }
}

}  // namespace
}  // namespace kelva::test
