#include "inference/evidence.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <limits>
#include <memory>
#include <random>

#include "common/expect_code.h"
#include "common/fail_new.h"
#include "compile/junction_forest.h"
#include "inference/net_builder.h"
#include "kelva/kelva.h"
#include "network/domain.h"

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

kelva::Node& node_of(k_node_t h) { return *reinterpret_cast<kelva::Node*>(h); }
k_node_t handle_of(kelva::Node* n) { return reinterpret_cast<k_node_t>(n); }

struct Evidence : ::testing::Test {
  k_domain_t d = k_new_domain();
  ~Evidence() override { k_domain_delete(d); }

  k_node_t discrete(k_size_t states, k_subtype_t subtype = K_SUBTYPE_LABEL) {
    k_node_t n = k_domain_new_node(d, K_CATEGORY_CHANCE, K_KIND_DISCRETE, subtype);
    EXPECT_EQ(k_node_set_number_of_states(n, states), 0);
    return n;
  }
  k_node_t continuous() {
    return k_domain_new_node(d, K_CATEGORY_CHANCE, K_KIND_CONTINUOUS, K_SUBTYPE_LABEL);
  }

  // The entered findings of every state.
  std::vector<double> findings(k_node_t n) {
    std::vector<double> v;
    for (k_size_t i = 0; i < k_node_get_number_of_states(n); ++i)
      v.push_back(k_node_get_entered_finding(n, i));
    return v;
  }

  // Gives the domain a forest of its own making: one tree per group of
  // nodes, compiled and in sum equilibrium, nothing propagated.  (Only the
  // records that evidence uses are filled in.)
  std::vector<kelva::JunctionTree*> forest(std::vector<std::vector<k_node_t>> groups) {
    kelva::Domain& domain = *reinterpret_cast<kelva::Domain*>(d);
    auto f = kelva::ForestPtr(new kelva::Forest(domain));
    std::vector<kelva::JunctionTree*> trees;
    for (const auto& group : groups) {
      f->trees.push_back(std::make_unique<kelva::JunctionTree>(domain));
      kelva::JunctionTree* t = f->trees.back().get();
      t->needs_initialisation = false;
      t->equilibrium = K_EQUILIBRIUM_SUM;
      t->table_changes_seen = domain.table_changes();
      for (k_node_t h : group) {
        node_of(h).forest_slot = f->nodes.size();
        kelva::NodeSlot slot;
        slot.node = &node_of(h);
        slot.tree = t;
        f->nodes.push_back(std::move(slot));
        t->nodes.push_back(&node_of(h));
      }
      trees.push_back(t);
    }
    domain.install_forest(std::move(f));
    domain.set_compiled(true);
    return trees;
  }
};

TEST_F(Evidence, FindingVectorsAndTheirCodes) {
  k_node_t n = discrete(3);
  EXPECT_EQ(findings(n), (std::vector<double>{1, 1, 1}));
  EXPECT_EQ(k_node_evidence_is_entered(n), 0);

  // 0 for one state of three: a finding that is no likelihood.
  ASSERT_EQ(k_node_enter_finding(n, 1, 0.0), 0);
  EXPECT_EQ(k_node_evidence_is_entered(n), 1);
  EXPECT_EQ(k_node_likelihood_is_entered(n), 0);
  EXPECT_EQ(node_of(n).evidence.entered_code, -2);
  EXPECT_CODE(k_node_get_selected_state(n), -1, K_ERROR_USAGE);

  // 0.5 makes it a likelihood; putting 1 back on both leaves a finding
  // that is no evidence at all.
  ASSERT_EQ(k_node_enter_finding(n, 2, 0.5), 0);
  EXPECT_EQ(k_node_likelihood_is_entered(n), 1);
  EXPECT_EQ(findings(n), (std::vector<double>{1, 0, 0.5}));
  ASSERT_EQ(k_node_enter_finding(n, 1, 1.0), 0);
  ASSERT_EQ(k_node_enter_finding(n, 2, 1.0), 0);
  EXPECT_EQ(k_node_evidence_is_entered(n), 0);
  EXPECT_EQ(k_node_likelihood_is_entered(n), 0);

  // Zeros on all states but one select that state.
  ASSERT_EQ(k_node_enter_finding(n, 0, 0.0), 0);
  ASSERT_EQ(k_node_enter_finding(n, 2, 0.0), 0);
  EXPECT_EQ(k_node_get_selected_state(n), 1);

  // Select 2, then exclude it: all zeros, code -2 (inconsistent once
  // propagated).  The vector is rebuilt from the selection first.
  ASSERT_EQ(k_node_select_state(n, 2), 0);
  EXPECT_EQ(findings(n), (std::vector<double>{0, 0, 1}));
  ASSERT_EQ(k_node_enter_finding(n, 2, 0.0), 0);
  EXPECT_EQ(findings(n), (std::vector<double>{0, 0, 0}));
  EXPECT_EQ(node_of(n).evidence.entered_code, -2);
  EXPECT_EQ(k_node_evidence_is_entered(n), 1);
  EXPECT_EQ(k_node_likelihood_is_entered(n), 0);

  // Large finite values are likelihoods; the largest double is not taken.
  ASSERT_EQ(k_node_enter_finding(n, 0, 1e300), 0);
  EXPECT_EQ(k_node_get_entered_finding(n, 0), 1e300);
  EXPECT_NE(k_node_enter_finding(n, 0, DBL_MAX), 0);
}

TEST_F(Evidence, BadArgumentsAreUsageAndChangeNothing) {
  k_node_t n = discrete(3);
  k_node_t c = continuous();
  k_node_t u = k_domain_new_node(d, K_CATEGORY_UTILITY, K_KIND_OTHER, K_SUBTYPE_LABEL);
  ASSERT_EQ(k_node_enter_finding(n, 0, 0.25), 0);

  const auto refused = [](k_status_t status) { EXPECT_FAILS(status, K_ERROR_USAGE); };
  for (double bad : {-0.0 - 1e-300, -1.0, kInf, -kInf, kNaN, DBL_MAX})
    refused(k_node_enter_finding(n, 1, bad));
  refused(k_node_enter_finding(n, 3, 0.5));
  refused(k_node_select_state(n, 3));
  refused(k_node_select_state(nullptr, 0));
  refused(k_node_enter_finding(c, 0, 1.0));
  refused(k_node_select_state(c, 0));
  refused(k_node_enter_value(n, 1.0));  // a label node has no values
  refused(k_node_enter_value(u, 1.0));
  refused(k_node_enter_value(c, kNaN));
  refused(k_node_enter_value(c, kInf));
  refused(k_node_retract_findings(u));
  refused(k_node_select_state(reinterpret_cast<k_node_t>(d), 0));  // not a node
  EXPECT_EQ(findings(n), (std::vector<double>{0.25, 1, 1}));
  EXPECT_EQ(k_node_evidence_is_entered(c), 0);

  // Queries: -1 with "usage".
  EXPECT_CODE(k_node_evidence_is_entered(u), -1, K_ERROR_USAGE);
  EXPECT_EQ(k_node_evidence_to_propagate(nullptr), -1);
  EXPECT_EQ(k_node_get_entered_finding(n, 3), -1.0);
  EXPECT_EQ(k_node_get_propagated_finding(c, 0), -1.0);
  EXPECT_CODE(k_node_get_entered_value(n), -1.0, K_ERROR_USAGE);
  EXPECT_CODE(k_node_get_propagated_state(n), -1, K_ERROR_USAGE);
  // A successful query clears the code.
  EXPECT_CODE(k_node_get_entered_finding(n, 0), 0.25, K_ERROR_NONE);
}

TEST_F(Evidence, RetractionKeepsTheVectorAndReachesEveryNode) {
  k_node_t a = discrete(2);
  k_node_t b = discrete(3);
  k_node_t c = continuous();
  // Nothing to retract: success, no change.
  EXPECT_EQ(k_node_retract_findings(a), 0);
  EXPECT_EQ(k_node_evidence_is_entered(a), 0);

  ASSERT_EQ(k_node_enter_finding(a, 0, 0.3), 0);
  const double* vector = node_of(a).evidence.entered_vector.data();
  ASSERT_EQ(k_node_retract_findings(a), 0);
  EXPECT_EQ(findings(a), (std::vector<double>{1, 1}));
  EXPECT_EQ(node_of(a).evidence.entered_vector.data(), vector);  // kept for the next entry
  ASSERT_EQ(k_node_enter_finding(a, 1, 0.0), 0);
  EXPECT_EQ(findings(a), (std::vector<double>{1, 0}));  // rebuilt from "no evidence"

  ASSERT_EQ(k_node_select_state(b, 1), 0);
  ASSERT_EQ(k_node_enter_value(c, -2.5), 0);
  ASSERT_EQ(k_domain_retract_findings(d), 0);
  for (k_node_t n : {a, b, c}) EXPECT_EQ(k_node_evidence_is_entered(n), 0);
  EXPECT_CODE(k_node_get_entered_value(c), -1.0, K_ERROR_USAGE);
  EXPECT_NE(k_domain_retract_findings(nullptr), 0);
}

TEST_F(Evidence, NoRoomForTheVectorChangesNothing) {
  k_node_t n = discrete(3);
  auto trees = forest({{n}});
  ASSERT_EQ(k_node_select_state(n, 1), 0);
  kelva::test::fail_allocation_after(0);
  EXPECT_NE(k_node_enter_finding(n, 0, 0.5), 0);
  kelva::test::fail_allocation_after(-1);
  EXPECT_EQ(k_error_code(), K_ERROR_NO_MEMORY);
  EXPECT_EQ(k_node_get_selected_state(n), 1);
  EXPECT_EQ(trees[0]->evidence_to_propagate, 1u);
  ASSERT_EQ(k_node_enter_finding(n, 0, 0.5), 0);
  EXPECT_EQ(findings(n), (std::vector<double>{0.5, 1, 0}));
  EXPECT_EQ(trees[0]->evidence_to_propagate, 1u);
}

TEST_F(Evidence, ValuesOfNumericAndContinuousNodes) {
  k_node_t in = discrete(3, K_SUBTYPE_INTERVAL);  // [-inf, 0) [0, 10) [10, inf)
  const double bounds[] = {-kInf, 0, 10, kInf};
  for (k_size_t i = 0; i < 4; ++i) ASSERT_EQ(k_node_set_state_value(in, i, bounds[i]), 0);
  ASSERT_EQ(k_node_enter_value(in, 0.0), 0);
  EXPECT_EQ(k_node_get_selected_state(in), 1);
  EXPECT_EQ(k_node_get_entered_value(in), 0.0);
  ASSERT_EQ(k_node_enter_value(in, -1e300), 0);
  EXPECT_EQ(k_node_get_selected_state(in), 0);
  EXPECT_EQ(k_node_get_entered_value(in), -1e300);
  EXPECT_FAILS(k_node_enter_value(in, kNaN), K_ERROR_USAGE);
  EXPECT_NE(k_node_enter_value(in, kInf), 0);  // the last interval is open
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  // Any other entry forgets the value, even the same state.
  ASSERT_EQ(k_node_select_state(in, 1), 0);
  EXPECT_EQ(k_node_get_entered_value(in), -1.0);
  ASSERT_EQ(k_node_enter_value(in, 5.0), 0);
  ASSERT_EQ(k_node_enter_finding(in, 0, 0.0), 0);
  EXPECT_EQ(k_node_get_entered_value(in), -1.0);
  EXPECT_EQ(k_node_get_selected_state(in), 1);

  k_node_t num = discrete(3, K_SUBTYPE_NUMBER);  // 1, 2, 4
  for (k_size_t i = 0; i < 3; ++i) ASSERT_EQ(k_node_set_state_value(num, i, double(1 << i)), 0);
  ASSERT_EQ(k_node_enter_value(num, 4.0), 0);
  EXPECT_EQ(k_node_get_selected_state(num), 2);
  EXPECT_FAILS(k_node_enter_value(num, 3.0), K_ERROR_USAGE);
  EXPECT_EQ(k_node_get_selected_state(num), 2);       // unchanged
  ASSERT_EQ(k_node_set_state_value(num, 1, 4.0), 0);  // 1, 4, 4
  EXPECT_FAILS(k_node_enter_value(num, 1.0), K_ERROR_INVALID_STATE_VALUES);

  k_node_t c = continuous();
  ASSERT_EQ(k_node_enter_value(c, 3.5), 0);
  EXPECT_EQ(k_node_evidence_is_entered(c), 1);
  EXPECT_EQ(k_node_likelihood_is_entered(c), 0);
  EXPECT_EQ(k_node_get_entered_value(c), 3.5);
  EXPECT_EQ(k_node_get_propagated_value(c), -1.0);
  EXPECT_EQ(k_node_evidence_to_propagate(c), 1);
}

TEST_F(Evidence, WhatIsToBePropagated) {
  k_node_t n = discrete(3);
  k_node_t one = discrete(1);
  k_node_t c = continuous();
  kelva::Node& nn = node_of(n);

  // Same codes other than -2: nothing; -2: the vectors decide.
  EXPECT_EQ(k_node_evidence_to_propagate(n), 0);
  ASSERT_EQ(k_node_enter_finding(n, 0, 0.5), 0);
  EXPECT_EQ(k_node_evidence_to_propagate(n), 1);
  kelva::note_propagated(nn);
  EXPECT_EQ(k_node_evidence_to_propagate(n), 0);
  EXPECT_EQ(k_node_likelihood_is_propagated(n), 1);
  EXPECT_EQ(k_node_get_propagated_finding(n, 0), 0.5);
  ASSERT_EQ(k_node_enter_finding(n, 0, 0.25), 0);
  EXPECT_EQ(k_node_evidence_to_propagate(n), 1);
  ASSERT_EQ(k_node_enter_finding(n, 0, 0.5), 0);
  EXPECT_EQ(k_node_evidence_to_propagate(n), 0);  // back to what was propagated

  // The only state of a one-state node: entered, but nothing to propagate.
  ASSERT_EQ(k_node_select_state(one, 0), 0);
  EXPECT_EQ(k_node_evidence_is_entered(one), 1);
  EXPECT_EQ(k_node_evidence_to_propagate(one), 0);
  kelva::note_propagated(node_of(one));
  ASSERT_EQ(k_node_retract_findings(one), 0);
  EXPECT_EQ(k_node_evidence_to_propagate(one), 0);
  EXPECT_EQ(k_node_evidence_is_propagated(one), 1);
  EXPECT_EQ(k_node_get_propagated_state(one), 0);

  // Continuous: flags, then values (NaN always differs).
  ASSERT_EQ(k_node_enter_value(c, 1.0), 0);
  kelva::note_propagated(node_of(c));
  EXPECT_EQ(k_node_evidence_to_propagate(c), 0);
  EXPECT_EQ(k_node_get_propagated_value(c), 1.0);
  ASSERT_EQ(k_node_enter_value(c, 2.0), 0);
  EXPECT_EQ(k_node_evidence_to_propagate(c), 1);
  node_of(c).evidence.propagated_value = kNaN;
  node_of(c).evidence.entered_value = kNaN;
  EXPECT_EQ(k_node_evidence_to_propagate(c), 1);
  ASSERT_EQ(k_node_retract_findings(c), 0);
  EXPECT_EQ(k_node_evidence_to_propagate(c), 1);
}

TEST_F(Evidence, TreeCountsFollowEveryEntryAndRetraction) {
  k_node_t a = discrete(2);
  k_node_t b = discrete(3);
  k_node_t c = continuous();
  k_node_t outside = discrete(2);  // takes part in no tree
  auto trees = forest({{a, b}, {c}});
  auto jt = [&](int i) { return reinterpret_cast<k_junction_tree_t>(trees[i]); };

  EXPECT_EQ(k_domain_evidence_to_propagate(d), 0);
  ASSERT_EQ(k_node_select_state(a, 0), 0);
  ASSERT_EQ(k_node_select_state(a, 0), 0);  // the same selection changes nothing
  ASSERT_EQ(k_node_enter_finding(b, 2, 0.5), 0);
  ASSERT_EQ(k_node_enter_finding(b, 1, 0.5), 0);
  ASSERT_EQ(k_node_select_state(outside, 1), 0);
  EXPECT_EQ(trees[0]->evidence_to_propagate, 2u);
  EXPECT_EQ(trees[1]->evidence_to_propagate, 0u);
  EXPECT_EQ(k_jt_evidence_to_propagate(jt(0)), 1);
  EXPECT_EQ(k_jt_evidence_to_propagate(jt(1)), 0);
  EXPECT_EQ(k_domain_evidence_to_propagate(d), 1);

  ASSERT_EQ(k_node_enter_value(c, 1.0), 0);
  EXPECT_EQ(trees[1]->evidence_to_propagate, 1u);
  ASSERT_EQ(k_domain_retract_findings(d), 0);
  EXPECT_EQ(trees[0]->evidence_to_propagate, 0u);
  EXPECT_EQ(trees[1]->evidence_to_propagate, 0u);

  // After a propagation, retraction is the change.
  ASSERT_EQ(k_node_select_state(a, 1), 0);
  for (k_node_t n : {a, b, c}) kelva::note_propagated(node_of(n));
  trees[0]->evidence_to_propagate = kelva::count_evidence_to_propagate(*trees[0]);
  trees[0]->evidence_propagated = true;
  EXPECT_EQ(trees[0]->evidence_to_propagate, 0u);
  ASSERT_EQ(k_node_enter_finding(a, 0, 1.0), 0);  // selection becomes all ones
  EXPECT_EQ(trees[0]->evidence_to_propagate, 1u);
  ASSERT_EQ(k_node_retract_findings(a), 0);  // already "no evidence"
  EXPECT_EQ(trees[0]->evidence_to_propagate, 1u);
  ASSERT_EQ(k_node_select_state(a, 1), 0);  // as propagated
  EXPECT_EQ(trees[0]->evidence_to_propagate, 0u);

  // Tree and domain flags.
  EXPECT_EQ(k_jt_evidence_is_propagated(jt(0)), 1);
  EXPECT_EQ(k_jt_likelihood_is_propagated(jt(0)), 0);
  EXPECT_EQ(k_domain_evidence_is_propagated(d), 1);
  EXPECT_EQ(k_domain_likelihood_is_propagated(d), 0);
  EXPECT_EQ(k_domain_cg_evidence_is_propagated(d), 0);
  EXPECT_EQ(k_jt_equilibrium_is(jt(0), K_EQUILIBRIUM_SUM), 1);
  EXPECT_EQ(k_jt_equilibrium_is(jt(0), K_EQUILIBRIUM_MAX), 0);
  EXPECT_CODE(k_jt_equilibrium_is(jt(0), K_EQUILIBRIUM_NONE), -1, K_ERROR_USAGE);
  EXPECT_EQ(k_domain_equilibrium_is(d, K_EQUILIBRIUM_SUM), 1);
  EXPECT_EQ(k_domain_tables_to_propagate(d), 0);
  trees[1]->tables_changed = true;
  EXPECT_EQ(k_domain_tables_to_propagate(d), 1);
  EXPECT_EQ(k_jt_tables_to_propagate(jt(0)), 0);
  ASSERT_EQ(k_table_set_data_item(k_node_get_table(a), 0, 0.5), 0);  // a table write
  EXPECT_EQ(k_jt_tables_to_propagate(jt(0)), 1);

  // The mode counts only where evidence was propagated.
  trees[0]->mode = K_MODE_FAST_RETRACTION;
  EXPECT_EQ(k_jt_evidence_mode_is(jt(0), K_MODE_NORMAL), 0);
  EXPECT_EQ(k_jt_evidence_mode_is(jt(1), K_MODE_FAST_RETRACTION), 1);
  EXPECT_EQ(k_domain_evidence_mode_is(d, K_MODE_FAST_RETRACTION), 1);
  EXPECT_EQ(k_domain_evidence_mode_is(d, K_MODE_NORMAL), 0);
  EXPECT_CODE(k_jt_evidence_mode_is(jt(0), static_cast<k_evidence_mode_t>(22)), -1, K_ERROR_USAGE);

  // A tree without equilibrium: its flags and mode are unknown.
  trees[1]->equilibrium = K_EQUILIBRIUM_NONE;
  EXPECT_CODE(k_jt_evidence_is_propagated(jt(1)), -1, K_ERROR_NO_EQUILIBRIUM);
  EXPECT_CODE(k_domain_evidence_mode_is(d, K_MODE_NORMAL), -1, K_ERROR_NO_EQUILIBRIUM);
  EXPECT_EQ(k_domain_equilibrium_is(d, K_EQUILIBRIUM_SUM), 0);
  EXPECT_CODE(k_jt_evidence_to_propagate(nullptr), -1, K_ERROR_USAGE);

  // Uncompiling forgets what was propagated; domain queries need a forest.
  reinterpret_cast<kelva::Domain*>(d)->uncompile();
  EXPECT_EQ(k_node_evidence_is_propagated(a), 0);
  EXPECT_EQ(k_node_evidence_is_entered(a), 1);
  EXPECT_EQ(k_node_evidence_to_propagate(a), 1);
  for (k_bool_t r : {k_domain_evidence_is_propagated(d), k_domain_evidence_to_propagate(d),
                     k_domain_equilibrium_is(d, K_EQUILIBRIUM_SUM),
                     k_domain_evidence_mode_is(d, K_MODE_NORMAL)}) {
    EXPECT_EQ(r, -1);
  }
  EXPECT_EQ(k_error_code(), K_ERROR_NOT_COMPILED);
  ASSERT_EQ(k_node_retract_findings(a), 0);  // no forest, no count
}

TEST_F(Evidence, StateEditsCarryOrDropTheEvidence) {
  k_node_t n = discrete(3);
  for (k_size_t i = 0; i < 3; ++i) {
    const char* labels[] = {"x", "y", "z"};
    ASSERT_EQ(k_node_set_state_label(n, i, labels[i]), 0);
  }
  ASSERT_EQ(k_node_enter_finding(n, 0, 0.2), 0);
  ASSERT_EQ(k_node_enter_finding(n, 2, 0.0), 0);
  const char* order[] = {"z", "x", "y", nullptr};
  ASSERT_EQ(k_node_reorder_states(n, order), 0);
  EXPECT_EQ(findings(n), (std::vector<double>{0, 0.2, 1}));
  ASSERT_EQ(k_node_select_state(n, 0), 0);  // "z"
  const char* back[] = {"x", "y", "z", nullptr};
  ASSERT_EQ(k_node_reorder_states(n, back), 0);
  EXPECT_EQ(k_node_get_selected_state(n), 2);

  // A new number of states fits no earlier evidence.
  ASSERT_EQ(k_node_set_number_of_states(n, 4), 0);
  EXPECT_EQ(k_node_evidence_is_entered(n), 0);
  EXPECT_EQ(findings(n), (std::vector<double>{1, 1, 1, 1}));
  ASSERT_EQ(k_node_enter_finding(n, 3, 0.0), 0);
  EXPECT_EQ(findings(n), (std::vector<double>{1, 1, 1, 0}));
}

}  // namespace

namespace {

using kelva::test::TestNet;

k_junction_tree_t tree_handle(kelva::Node* n) { return k_node_get_junction_tree(handle_of(n)); }

// The counts, flags and propagated copies as real propagations leave them.
TEST(EvidenceInAForest, CountsAndFlagsFollowPropagation) {
  TestNet net;
  kelva::Node* a = net.add(K_CATEGORY_CHANCE, 2, {});
  kelva::Node* b = net.add(K_CATEGORY_CHANCE, 3, {a});
  kelva::Node* one = net.add(K_CATEGORY_CHANCE, 1, {});  // a tree of its own
  std::mt19937 rng(7);
  for (kelva::Node* n : net.nodes) net.randomize(n, rng);
  ASSERT_EQ(kelva::test::compile_for_test(net.d()), 0);
  k_junction_tree_t ab = tree_handle(a);
  k_junction_tree_t lone = tree_handle(one);
  ASSERT_NE(ab, lone);
  EXPECT_EQ(k_domain_evidence_to_propagate(net.domain), 0);

  ASSERT_EQ(k_node_select_state(handle_of(b), 2), 0);
  ASSERT_EQ(k_node_select_state(handle_of(one), 0), 0);  // no change for a one-state node
  EXPECT_EQ(k_jt_evidence_to_propagate(ab), 1);
  EXPECT_EQ(k_jt_evidence_to_propagate(lone), 0);
  ASSERT_EQ(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
  EXPECT_EQ(k_domain_evidence_to_propagate(net.domain), 0);
  EXPECT_EQ(k_node_get_propagated_state(handle_of(b)), 2);
  EXPECT_EQ(k_jt_evidence_is_propagated(ab), 1);
  EXPECT_EQ(k_domain_evidence_mode_is(net.domain, K_MODE_NORMAL), 1);

  // A likelihood on a, then impossible evidence on it.
  ASSERT_EQ(k_node_enter_finding(handle_of(a), 0, 0.5), 0);
  EXPECT_EQ(net.d().forest()->slot(*a)->tree->evidence_to_propagate, 1u);
  ASSERT_EQ(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
  EXPECT_EQ(k_domain_likelihood_is_propagated(net.domain), 1);
  EXPECT_EQ(k_node_get_propagated_finding(handle_of(a), 0), 0.5);
  ASSERT_EQ(k_node_enter_finding(handle_of(a), 0, 0.0), 0);
  ASSERT_EQ(k_node_enter_finding(handle_of(a), 1, 0.0), 0);
  EXPECT_FAILS(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL),
               K_ERROR_INCONSISTENCY_OR_UNDERFLOW);
  EXPECT_CODE(k_jt_evidence_is_propagated(ab), -1, K_ERROR_NO_EQUILIBRIUM);
  EXPECT_EQ(k_jt_evidence_to_propagate(ab), 1);
  EXPECT_EQ(k_node_evidence_is_entered(handle_of(a)), 1);  // evidence stays entered

  // Retracted, it propagates again; initialising makes all of it pending.
  ASSERT_EQ(k_node_retract_findings(handle_of(a)), 0);
  ASSERT_EQ(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
  EXPECT_EQ(k_domain_likelihood_is_propagated(net.domain), 0);
  EXPECT_EQ(k_domain_evidence_to_propagate(net.domain), 0);
  ASSERT_EQ(k_domain_initialize(net.domain), 0);
  EXPECT_EQ(k_node_evidence_to_propagate(handle_of(b)), 1);
  EXPECT_EQ(net.d().forest()->slot(*b)->tree->evidence_to_propagate, 1u);
  EXPECT_EQ(net.d().forest()->slot(*one)->tree->evidence_to_propagate, 0u);  // the only state
  ASSERT_EQ(k_node_retract_findings(handle_of(b)), 0);
  EXPECT_EQ(net.d().forest()->slot(*b)->tree->evidence_to_propagate, 0u);
}

}  // namespace
