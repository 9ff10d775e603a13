// Discrete nodes made with their states, and quantiles of continuous nodes
// checked against the mixture's density integrated numerically.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <tuple>

#include "common/expect_code.h"
#include "common/fail_new.h"
#include "kelva/kelva.h"

namespace {

TEST(CreateDiscreteNode, MakesTheStatesOrNothing) {
  k_domain_t d = k_new_domain();
  k_node_t n = k_domain_create_discrete_node(d, K_CATEGORY_DECISION, K_SUBTYPE_NUMBER, 5);
  ASSERT_NE(n, nullptr);
  EXPECT_EQ(k_node_get_number_of_states(n), 5u);
  EXPECT_EQ(k_node_get_subtype(n), K_SUBTYPE_NUMBER);
  EXPECT_NE(k_domain_create_discrete_node(d, K_CATEGORY_CHANCE, K_SUBTYPE_BOOLEAN, 2), nullptr);
  for (auto [category, subtype, states] : {std::tuple{K_CATEGORY_UTILITY, K_SUBTYPE_LABEL, 2},
                                           {K_CATEGORY_CHANCE, K_SUBTYPE_LABEL, 0},
                                           {K_CATEGORY_CHANCE, K_SUBTYPE_BOOLEAN, 3},
                                           {K_CATEGORY_CHANCE, K_SUBTYPE_ERROR, 2}})
    EXPECT_NULL_WITH(k_domain_create_discrete_node(d, category, subtype, states), K_ERROR_USAGE);
  // Out of memory while adding states: no node stays.
  for (long after = 0;; ++after) {
    kelva::test::fail_allocation_after(after);
    k_node_t m = k_domain_create_discrete_node(d, K_CATEGORY_CHANCE, K_SUBTYPE_LABEL, 1000);
    kelva::test::fail_allocation_after(-1);
    if (m != nullptr) break;
    EXPECT_EQ(k_error_code(), K_ERROR_NO_MEMORY);
    EXPECT_EQ(k_domain_get_number_of_chance_nodes(d), 1u);
  }
  k_domain_delete(d);
}

TEST(Quantile, InvertsTheMixtureAndHitsPointMasses) {
  k_domain_t d = k_net_parse_domain_string(
      "node A { states = (\"a0\" \"a1\"); } continuous node X { }\n"
      "potential (A) { data = (0.3 0.7); }\n"
      "potential (X | A) { data = (normal (0, 1) normal (3, 4)); }\n",
      nullptr, nullptr);
  ASSERT_NE(d, nullptr);
  k_node_t x = k_domain_get_node_by_name(d, "X");
  EXPECT_EQ(k_node_get_quantile(x, 0.5), -1.0);
  EXPECT_EQ(k_error_code(), K_ERROR_NOT_COMPILED);
  ASSERT_EQ(k_domain_compile(d), 0);
  // P(X <= q) by the trapezoid rule over the mixture's density.
  auto f = [](double v) {
    return 0.3 * std::exp(-v * v / 2) / std::sqrt(2 * M_PI) +
           0.7 * std::exp(-(v - 3) * (v - 3) / 8) / std::sqrt(8 * M_PI);
  };
  for (double p : {0.001, 0.3, 0.5, 0.999}) {
    const double q = k_node_get_quantile(x, p), h = (q + 30) / 400000;
    double sum = (f(-30) + f(q)) / 2;
    for (int k = 1; k < 400000; ++k) sum += f(-30 + k * h);
    EXPECT_NEAR(sum * h, p, 1e-7) << p;
  }
  for (double p : {0.0, 1.0, -0.5, std::nan("")}) {
    EXPECT_EQ(k_node_get_quantile(x, p), -1.0);
    EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  }
  EXPECT_EQ(k_node_get_quantile(k_domain_get_node_by_name(d, "A"), 0.5), -1.0);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  ASSERT_EQ(k_node_enter_value(x, 2.5), 0);
  ASSERT_EQ(k_domain_propagate(d, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
  EXPECT_EQ(k_node_get_quantile(x, 0.01), 2.5);
  EXPECT_EQ(k_node_get_quantile(x, 0.99), 2.5);
  k_domain_delete(d);
}

}  // namespace
