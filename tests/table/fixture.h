#pragma once

// Networks for the table tests, built through the C API, with access to the
// engine objects behind the handles.

#include <gtest/gtest.h>

#include <initializer_list>
#include <vector>

#include "kelva/kelva.h"
#include "network/domain.h"
#include "network/node.h"
#include "table/table.h"

namespace kelva::test {

/// A domain deleted at the end of the test.
struct Net {
  k_domain_t d = k_new_domain();
  Net() = default;
  Net(const Net&) = delete;
  Net& operator=(const Net&) = delete;
  ~Net() { k_domain_delete(d); }

  Domain& domain() const { return *reinterpret_cast<Domain*>(d); }

  /// A discrete chance node with `states` states.
  k_node_t discrete(k_size_t states) {
    k_node_t n = k_domain_new_node(d, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL);
    EXPECT_NE(n, nullptr);
    if (states != 1) {
      EXPECT_EQ(k_node_set_number_of_states(n, states), 0);
    }
    return n;
  }
  /// A continuous chance node.
  k_node_t continuous() {
    k_node_t n = k_domain_new_node(d, K_CATEGORY_CHANCE, K_KIND_CONTINUOUS, K_SUBTYPE_LABEL);
    EXPECT_NE(n, nullptr);
    return n;
  }

  /// A free-standing table over `nodes`.
  k_table_t table(std::initializer_list<k_node_t> nodes) {
    std::vector<k_node_t> list(nodes);
    list.push_back(nullptr);
    k_table_t t = k_domain_new_table(d, list.data());
    EXPECT_NE(t, nullptr) << k_error_name(k_error_code());
    return t;
  }
  /// The same with data `values`.
  k_table_t table(std::initializer_list<k_node_t> nodes, const std::vector<double>& values) {
    k_table_t t = table(nodes);
    EXPECT_EQ(k_table_set_data(t, values.data(), values.size(), 0, values.size()), 0);
    return t;
  }
};

inline Node* node(k_node_t n) { return reinterpret_cast<Node*>(n); }
inline Table& table(k_table_t t) { return *reinterpret_cast<Table*>(t); }

/// All entries of a table.
inline std::vector<double> values(k_table_t t) {
  std::vector<double> v(k_table_get_size(t));
  EXPECT_EQ(k_table_get_data(t, v.data(), v.size(), 0, v.size()), 0);
  return v;
}

}  // namespace kelva::test
