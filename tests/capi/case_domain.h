#pragma once
// A domain with a node of every sort that stored cases can hold, for the
// tests of cases, case files and data set rows added as cases.

#include <gtest/gtest.h>

#include <vector>

#include "kelva/kelva.h"

namespace kelva::test {

/// L labelled (low, "mid dle", high), B boolean, N numbered (1, 2.5, 10),
/// I interval ([0, 1), [1, 5)), X continuous, F a discrete function node
/// with two unlabelled states; and R, a real-valued function node, which
/// holds no cases.
struct CaseDomain : ::testing::Test {
  k_domain_t d = k_new_domain();
  k_node_t level, flag, number, interval, x, function, real;

  CaseDomain() {
    level = discrete("L", K_CATEGORY_CHANCE, K_SUBTYPE_LABEL, 3);
    for (k_size_t i = 0; i < 3; ++i) {
      const char* labels[] = {"low", "mid dle", "high"};
      k_node_set_state_label(level, i, labels[i]);
    }
    k_node_set_label(level, "The \"level\"");
    flag = discrete("B", K_CATEGORY_CHANCE, K_SUBTYPE_BOOLEAN, 0);
    number = discrete("N", K_CATEGORY_CHANCE, K_SUBTYPE_NUMBER, 3);
    const double values[] = {1, 2.5, 10};
    for (k_size_t i = 0; i < 3; ++i) k_node_set_state_value(number, i, values[i]);
    interval = discrete("I", K_CATEGORY_CHANCE, K_SUBTYPE_INTERVAL, 2);
    const double bounds[] = {0, 1, 5};
    for (k_size_t i = 0; i < 3; ++i) k_node_set_state_value(interval, i, bounds[i]);
    x = k_domain_new_node(d, K_CATEGORY_CHANCE, K_KIND_CONTINUOUS, K_SUBTYPE_LABEL);
    k_node_set_name(x, "X");
    function = discrete("F", K_CATEGORY_FUNCTION, K_SUBTYPE_LABEL, 2);
    real = k_domain_new_node(d, K_CATEGORY_FUNCTION, K_KIND_OTHER, K_SUBTYPE_LABEL);
    k_node_set_name(real, "R");
  }
  CaseDomain(const CaseDomain&) = delete;
  CaseDomain& operator=(const CaseDomain&) = delete;
  ~CaseDomain() override { k_domain_delete(d); }

  k_node_t discrete(const char* name, k_category_t category, k_subtype_t subtype, k_size_t states) {
    k_node_t n = k_domain_new_node(d, category, K_KIND_DISCRETE, subtype);
    EXPECT_EQ(k_node_set_name(n, name), 0);
    if (states > 0) {
      EXPECT_EQ(k_node_set_number_of_states(n, states), 0);
    }
    return n;
  }
  /// The nodes that hold cases.
  std::vector<k_node_t> all() const { return {level, flag, number, interval, x, function}; }
};

}  // namespace kelva::test
