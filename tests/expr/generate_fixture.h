#pragma once

// Networks, models and logs for the model and generation tests, built
// through the C API.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <initializer_list>
#include <sstream>
#include <string>
#include <vector>

#include "kelva/kelva.h"

namespace kelva::test {

constexpr double kInf = HUGE_VAL;

/// A domain deleted at the end of the test, with a log file of its own.
struct GenNet {
  k_domain_t d = k_new_domain();
  std::string log_path;

  GenNet() = default;
  GenNet(const GenNet&) = delete;
  GenNet& operator=(const GenNet&) = delete;
  ~GenNet() {
    k_domain_delete(d);
    if (!log_path.empty()) std::remove(log_path.c_str());
  }

  /// A node of `category` and `subtype` named `name` with `states` states.
  k_node_t node(const char* name, k_subtype_t subtype, std::size_t states,
                k_category_t category = K_CATEGORY_CHANCE) {
    k_node_t n = k_domain_new_node(d, category, K_KIND_DISCRETE, subtype);
    EXPECT_NE(n, nullptr);
    EXPECT_EQ(k_node_set_name(n, name), 0);
    if (subtype != K_SUBTYPE_BOOLEAN) {
      EXPECT_EQ(k_node_set_number_of_states(n, states), 0);
    }
    return n;
  }
  /// A labelled node with these labels.
  k_node_t labelled(const char* name, std::initializer_list<const char*> labels,
                    k_category_t category = K_CATEGORY_CHANCE) {
    k_node_t n = node(name, K_SUBTYPE_LABEL, labels.size(), category);
    std::size_t i = 0;
    for (const char* l : labels) EXPECT_EQ(k_node_set_state_label(n, i++, l), 0);
    return n;
  }
  /// A numbered node (`values` are its states) or an interval node (`values`
  /// are its bounds, one more than the states); a labelled node takes only
  /// the count, and so does a boolean one.
  k_node_t valued(const char* name, k_subtype_t subtype, const std::vector<double>& values,
                  k_category_t category = K_CATEGORY_CHANCE) {
    const std::size_t states = values.size() - (subtype == K_SUBTYPE_INTERVAL ? 1 : 0);
    k_node_t n = node(name, subtype, states, category);
    if (subtype == K_SUBTYPE_LABEL || subtype == K_SUBTYPE_BOOLEAN) return n;
    for (std::size_t i = 0; i < values.size(); ++i)
      EXPECT_EQ(k_node_set_state_value(n, i, values[i]), 0);
    return n;
  }
  k_node_t numbered(const char* name, const std::vector<double>& values,
                    k_category_t category = K_CATEGORY_CHANCE) {
    return valued(name, K_SUBTYPE_NUMBER, values, category);
  }
  k_node_t interval(const char* name, const std::vector<double>& bounds,
                    k_category_t category = K_CATEGORY_CHANCE) {
    return valued(name, K_SUBTYPE_INTERVAL, bounds, category);
  }

  /// Starts a fresh log file for the domain.
  void open_log() {
    char name[] = "/tmp/kelva_gen_logXXXXXX";
    const int fd = mkstemp(name);
    ASSERT_GE(fd, 0);
    ::close(fd);
    log_path = name;
    ASSERT_EQ(k_domain_set_log_file(d, name, 0), 0);
  }
  /// Everything written to the log so far.
  std::string log() const {
    std::ifstream in(log_path);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
  }
};

/// Adds `parent` as a parent of `child`.
inline void link(k_node_t parent, k_node_t child) {
  ASSERT_EQ(k_node_add_parent(child, parent), 0) << k_error_name(k_error_code());
}

/// A model of `node` over `nodes`.
inline k_model_t model(k_node_t node, std::initializer_list<k_node_t> nodes = {}) {
  std::vector<k_node_t> list(nodes);
  list.push_back(nullptr);
  k_model_t m = k_node_new_model(node, list.data());
  EXPECT_NE(m, nullptr) << k_error_name(k_error_code());
  return m;
}

// Expression builders.
inline k_expression_t num(double v) { return k_number_make_expression(v); }
inline k_expression_t lab(const char* s) { return k_label_make_expression(s); }
inline k_expression_t leaf(k_node_t n) { return k_node_make_expression(n); }
inline k_expression_t op(k_operator_t code, std::initializer_list<k_expression_t> operands) {
  std::vector<k_expression_t> list(operands);
  list.push_back(nullptr);
  k_expression_t e = k_make_composite_expression(code, list.data());
  EXPECT_NE(e, nullptr) << "operator " << code << ": " << k_error_name(k_error_code());
  return e;
}

/// The whole table of `node`.
inline std::vector<double> table_of(k_node_t node) {
  k_table_t t = k_node_get_table(node);
  const k_size_t size = k_table_get_size(t);
  std::vector<double> data(size);
  EXPECT_EQ(k_table_get_data(t, data.data(), size, 0, size), 0);
  return data;
}

/// Sets slot `index` of `m`, expecting success.
inline void set(k_model_t m, k_size_t index, k_expression_t e) {
  ASSERT_EQ(k_model_set_expression(m, index, e), 0) << k_error_name(k_error_code());
}

/// Expects every entry of `actual` within relative error 1e-12 of `expected`
/// (absolute 1e-300 near 0).
inline void expect_close(const std::vector<double>& actual, const std::vector<double>& expected) {
  ASSERT_EQ(actual.size(), expected.size());
  for (std::size_t i = 0; i < actual.size(); ++i)
    EXPECT_NEAR(actual[i], expected[i], 1e-12 * std::fabs(expected[i]) + 1e-300) << "entry " << i;
}

/// The standard normal distribution function.
inline double phi(double x) { return 0.5 * std::erfc(-x / std::sqrt(2.0)); }

}  // namespace kelva::test
