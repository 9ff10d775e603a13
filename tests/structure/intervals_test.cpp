// Doubling and halving the intervals of an interval node, with the tables
// of the node and of its children.

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "kelva/kelva.h"

namespace {

std::vector<double> data_of(k_table_t t) {
  std::vector<double> d(k_table_get_size(t));
  k_table_get_data(t, d.data(), d.size(), 0, d.size());
  return d;
}

std::vector<double> values_of(k_node_t n) {
  std::vector<double> v;
  for (k_size_t i = 0; i <= k_node_get_number_of_states(n); ++i)
    v.push_back(k_node_get_state_value(n, i));
  return v;
}

TEST(Intervals, DoublingSplitsMassAndHalvingRestoresIt) {
  k_domain_t d = k_new_domain();
  k_node_t x = k_domain_new_node(d, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_INTERVAL);
  k_node_t y = k_domain_new_node(d, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL);
  k_node_set_number_of_states(x, 3);
  k_node_set_number_of_states(y, 2);
  const double bounds[] = {-HUGE_VAL, 0.0, 1.0, HUGE_VAL};
  for (int i = 0; i < 4; ++i) k_node_set_state_value(x, i, bounds[i]);
  k_node_set_state_label(x, 0, "low");
  ASSERT_EQ(k_node_add_parent(y, x), 0);
  const std::vector<double> px = {0.2, 0.5, 0.3}, py = {0.1, 0.9, 0.6, 0.4, 0.5, 0.5};
  const std::vector<double> ey = {4, 6, 8}, fy = {0.9, 0.8, 0.7};
  k_table_set_data(k_node_get_table(x), px.data(), 3, 0, 3);
  k_table_set_data(k_node_get_table(y), py.data(), 6, 0, 6);
  k_table_set_data(k_node_get_experience_table(y), ey.data(), 3, 0, 3);
  k_table_set_data(k_node_get_fading_table(y), fy.data(), 3, 0, 3);
  ASSERT_EQ(k_domain_compile(d), 0);

  ASSERT_EQ(k_node_double_number_of_intervals(x), 0);
  EXPECT_EQ(k_domain_is_compiled(d), 0);
  // Unbounded intervals split a neighbour's width from their finite bound.
  EXPECT_EQ(values_of(x), (std::vector<double>{-HUGE_VAL, -1, 0, 0.5, 1, 2, HUGE_VAL}));
  EXPECT_EQ(std::string(k_node_get_state_label(x, 0)), "");
  EXPECT_EQ(data_of(k_node_get_table(x)), (std::vector<double>{0.1, 0.1, 0.25, 0.25, 0.15, 0.15}));
  EXPECT_EQ(data_of(k_node_get_table(y)),
            (std::vector<double>{0.1, 0.9, 0.1, 0.9, 0.6, 0.4, 0.6, 0.4, 0.5, 0.5, 0.5, 0.5}));
  EXPECT_EQ(data_of(k_node_get_experience_table(y)), (std::vector<double>{2, 2, 3, 3, 4, 4}));
  EXPECT_EQ(data_of(k_node_get_fading_table(y)),
            (std::vector<double>{0.9, 0.9, 0.8, 0.8, 0.7, 0.7}));
  ASSERT_EQ(k_domain_compile(d), 0);
  EXPECT_NEAR(k_node_get_belief(y, 0), 0.2 * 0.1 + 0.5 * 0.6 + 0.3 * 0.5, 1e-15);

  ASSERT_EQ(k_node_halve_number_of_intervals(x), 0);
  EXPECT_EQ(values_of(x), (std::vector<double>{-HUGE_VAL, 0, 1, HUGE_VAL}));
  const auto near = [](const std::vector<double>& a, const std::vector<double>& b) {
    ASSERT_EQ(a.size(), b.size());
    for (std::size_t i = 0; i < a.size(); ++i) EXPECT_NEAR(a[i], b[i], 1e-15);
  };
  near(data_of(k_node_get_table(x)), px);
  near(data_of(k_node_get_table(y)), py);
  near(data_of(k_node_get_experience_table(y)), ey);
  near(data_of(k_node_get_fading_table(y)), fy);

  // Refused, and nothing changes: an odd count, a node of another subtype.
  EXPECT_NE(k_node_halve_number_of_intervals(x), 0);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  EXPECT_EQ(k_node_get_number_of_states(x), 3u);
  EXPECT_NE(k_node_double_number_of_intervals(y), 0);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  k_node_set_state_value(x, 2, -5.0);
  EXPECT_NE(k_node_double_number_of_intervals(x), 0);
  EXPECT_EQ(k_error_code(), K_ERROR_INVALID_STATE_VALUES);
  near(data_of(k_node_get_table(y)), py);
  k_domain_delete(d);
}

}  // namespace
