// Stored cases through the C API: items and counts, refused arguments, and
// cases that follow edits of their nodes and become evidence.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "capi/case_domain.h"
#include "common/expect_code.h"
#include "kelva/kelva.h"

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

using Cases = kelva::test::CaseDomain;

TEST_F(Cases, NewCasesAreEmptyAndCountOne) {
  k_node_t a = level;
  EXPECT_EQ(k_domain_get_number_of_cases(d), 0u);
  EXPECT_EQ(k_domain_count_cases(d), 0.0);
  EXPECT_EQ(k_domain_new_case(d), 0u);
  EXPECT_EQ(k_domain_new_case(d), 1u);
  EXPECT_EQ(k_domain_get_number_of_cases(d), 2u);
  EXPECT_EQ(k_domain_get_case_count(d, 1), 1.0);
  EXPECT_EQ(k_node_case_is_set(a, 1), 0);
  EXPECT_EQ(k_node_case_is_set(x, 0), 0);
  EXPECT_CODE(k_node_get_case_state(a, 0), K_SIZE_ERROR, K_ERROR_NO_VALUE);
  EXPECT_CODE(k_node_get_case_value(x, 0), -1.0, K_ERROR_NO_VALUE);

  EXPECT_EQ(k_node_set_case_state(a, 1, 2), 0);
  EXPECT_EQ(k_node_set_case_value(x, 0, -2.5), 0);
  EXPECT_EQ(k_node_get_case_state(a, 1), 2u);
  EXPECT_EQ(k_node_get_case_value(x, 0), -2.5);
  EXPECT_EQ(k_node_case_is_set(a, 0), 0);
  EXPECT_EQ(k_node_case_is_set(a, 1), 1);
  EXPECT_EQ(k_node_unset_case(a, 1), 0);
  EXPECT_EQ(k_node_case_is_set(a, 1), 0);
  EXPECT_EQ(k_node_unset_case(a, 1), 0);  // unsetting twice is harmless
}

TEST_F(Cases, CountsAndTotal) {
  k_node_t a = flag;
  EXPECT_EQ(k_domain_set_number_of_cases(d, 3), 0);
  EXPECT_EQ(k_domain_count_cases(d), 3.0);  // no count set yet: the number of cases
  EXPECT_EQ(k_domain_set_case_count(d, 1, 0.5), 0);
  EXPECT_EQ(k_domain_count_cases(d), 2.5);
  EXPECT_EQ(k_domain_set_case_count(d, 2, 0.0), 0);
  EXPECT_EQ(k_domain_count_cases(d), 1.5);

  // Shrinking forgets items and counts; growing adds empty cases of count 1.
  EXPECT_EQ(k_node_set_case_state(a, 2, 1), 0);
  EXPECT_EQ(k_domain_set_number_of_cases(d, 2), 0);
  EXPECT_EQ(k_domain_set_number_of_cases(d, 4), 0);
  EXPECT_EQ(k_node_case_is_set(a, 2), 0);
  EXPECT_EQ(k_domain_get_case_count(d, 3), 1.0);
  EXPECT_EQ(k_domain_count_cases(d), 3.5);
  EXPECT_EQ(k_domain_set_number_of_cases(d, 0), 0);
  EXPECT_EQ(k_domain_count_cases(d), 0.0);
  EXPECT_EQ(k_domain_new_case(d), 0u);
  EXPECT_EQ(k_domain_count_cases(d), 1.0);
}

TEST_F(Cases, BadArgumentsChangeNothing) {
  k_node_t a = flag;
  k_node_t u = real;
  ASSERT_EQ(k_domain_new_case(d), 0u);
  ASSERT_EQ(k_node_set_case_state(a, 0, 1), 0);

  auto usage = [](bool failed) {
    EXPECT_TRUE(failed);
    EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  };
  usage(k_domain_new_case(nullptr) == K_SIZE_ERROR);
  usage(k_domain_get_number_of_cases(nullptr) == K_SIZE_ERROR);
  usage(k_domain_set_number_of_cases(nullptr, 1) != 0);
  usage(k_domain_count_cases(nullptr) == -1.0);
  usage(k_domain_enter_case(nullptr, 0) != 0);
  usage(k_domain_enter_case(d, 1) != 0);
  for (double bad : {-1.0, kNaN, kInf}) usage(k_domain_set_case_count(d, 0, bad) != 0);
  usage(k_domain_set_case_count(d, 1, 1.0) != 0);
  usage(k_domain_get_case_count(d, 1) == -1.0);

  usage(k_node_set_case_state(nullptr, 0, 0) != 0);
  usage(k_node_set_case_state(a, 1, 0) != 0);  // no such case
  usage(k_node_set_case_state(a, 0, 2) != 0);  // no such state
  usage(k_node_set_case_state(x, 0, 0) != 0);  // continuous
  usage(k_node_set_case_state(u, 0, 0) != 0);  // real-valued
  usage(k_node_get_case_state(x, 0) == K_SIZE_ERROR);
  usage(k_node_set_case_value(a, 0, 1.0) != 0);
  for (double bad : {kNaN, kInf, -kInf}) usage(k_node_set_case_value(x, 0, bad) != 0);
  usage(k_node_get_case_value(a, 0) == -1.0);
  usage(k_node_unset_case(u, 0) != 0);
  usage(k_node_unset_case(a, 5) != 0);
  usage(k_node_case_is_set(u, 0) == -1);
  usage(k_node_case_is_set(x, 1) == -1);

  // Above 32767 is too large for a case whatever the node's states; the
  // bad case index is reported first.
  EXPECT_FAILS(k_node_set_case_state(a, 0, 32768), K_ERROR_CASE_STATE_TOO_LARGE);
  usage(k_node_set_case_state(a, 3, 32768) != 0);

  EXPECT_FAILS(k_domain_set_number_of_cases(d, K_SIZE_ERROR), K_ERROR_NO_MEMORY);

  EXPECT_EQ(k_domain_get_number_of_cases(d), 1u);
  EXPECT_EQ(k_node_get_case_state(a, 0), 1u);
  EXPECT_EQ(k_node_case_is_set(x, 0), 0);
  EXPECT_EQ(k_domain_count_cases(d), 1.0);
}

TEST_F(Cases, CaseStatesFollowReorderedAndRemovedStates) {
  k_node_t a = level;
  ASSERT_EQ(k_domain_set_number_of_cases(d, 3), 0);
  for (k_size_t c = 0; c < 3; ++c) ASSERT_EQ(k_node_set_case_state(a, c, c), 0);

  const char* order[] = {"high", "low", "mid dle", nullptr};
  ASSERT_EQ(k_node_reorder_states(a, order), 0);
  EXPECT_EQ(k_node_get_case_state(a, 0), 1u);  // low
  EXPECT_EQ(k_node_get_case_state(a, 1), 2u);  // mid
  EXPECT_EQ(k_node_get_case_state(a, 2), 0u);  // high

  // Dropping the last state ("mid dle") unsets the cases that had it.
  ASSERT_EQ(k_node_set_number_of_states(a, 2), 0);
  EXPECT_EQ(k_node_get_case_state(a, 0), 1u);
  EXPECT_EQ(k_node_case_is_set(a, 1), 0);
  EXPECT_EQ(k_node_get_case_state(a, 2), 0u);
}

TEST_F(Cases, DeletingANodeOrCaseKeepsTheOthersInPlace) {
  k_node_t a = flag;
  k_node_t b = function;
  ASSERT_EQ(k_domain_set_number_of_cases(d, 2), 0);
  ASSERT_EQ(k_node_set_case_state(a, 1, 1), 0);
  ASSERT_EQ(k_node_set_case_state(b, 0, 1), 0);
  ASSERT_EQ(k_node_delete(a), 0);
  EXPECT_EQ(k_domain_get_number_of_cases(d), 2u);
  EXPECT_EQ(k_node_get_case_state(b, 0), 1u);
  EXPECT_EQ(k_node_case_is_set(b, 1), 0);
}

TEST_F(Cases, EnterCaseReplacesAllEvidence) {
  k_node_t a = level;
  k_node_t b = function;
  k_node_t y = k_domain_new_node(d, K_CATEGORY_CHANCE, K_KIND_CONTINUOUS, K_SUBTYPE_LABEL);
  ASSERT_EQ(k_domain_set_number_of_cases(d, 2), 0);
  ASSERT_EQ(k_node_set_case_state(a, 1, 2), 0);
  ASSERT_EQ(k_node_set_case_value(x, 1, 4.25), 0);

  ASSERT_EQ(k_node_select_state(b, 1), 0);
  ASSERT_EQ(k_node_enter_finding(a, 0, 0.5), 0);
  ASSERT_EQ(k_node_enter_value(y, 1.0), 0);

  EXPECT_EQ(k_domain_enter_case(d, 1), 0);
  EXPECT_EQ(k_node_get_selected_state(a), 2);
  EXPECT_EQ(k_node_get_entered_value(x), 4.25);
  EXPECT_EQ(k_node_evidence_is_entered(b), 0);
  EXPECT_EQ(k_node_evidence_is_entered(y), 0);

  EXPECT_EQ(k_domain_enter_case(d, 0), 0);  // an empty case: no evidence
  for (k_node_t n : {a, b, x, y}) EXPECT_EQ(k_node_evidence_is_entered(n), 0);

  // A failed entry leaves the evidence as it was.
  ASSERT_EQ(k_node_select_state(b, 0), 0);
  EXPECT_NE(k_domain_enter_case(d, 2), 0);
  EXPECT_EQ(k_node_get_selected_state(b), 0);
}

}  // namespace
