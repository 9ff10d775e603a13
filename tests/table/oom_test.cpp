// Out-of-memory behaviour: the Nth allocation fails, for N = 0, 1, ... until
// the operation succeeds; every failure must report "no_memory" and leave the
// domain exactly as it was.
#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <string>

#include "common/fail_new.h"
#include "kelva/kelva.h"

namespace {

// Everything a user can read of a domain whose nodes all have names.
std::string snapshot(k_domain_t d) {
  std::ostringstream out;
  auto table = [&](const char* what, k_table_t t) {
    out << ' ' << what << '[';
    for (k_node_t* m = k_table_get_nodes(t); *m != nullptr; ++m) out << k_node_get_name(*m) << ' ';
    const k_size_t size = k_table_get_size(t);
    for (k_size_t i = 0; i < size; ++i) out << k_table_get_data_item(t, i) << ',';
    out << ']';
  };
  for (k_node_t n = k_domain_get_first_node(d); n != nullptr; n = k_node_get_next(n)) {
    out << k_node_get_name(n) << " states";
    for (k_size_t s = 0; s < k_node_get_number_of_states(n); ++s)
      out << ' ' << k_node_get_state_label(n, s);
    out << " parents";
    for (k_node_t* p = k_node_get_parents(n); *p != nullptr; ++p) out << ' ' << k_node_get_name(*p);
    out << " children";
    for (k_node_t* c = k_node_get_children(n); *c != nullptr; ++c)
      out << ' ' << k_node_get_name(*c);
    if (k_node_has_table(n) == 1) table("table", k_node_get_table(n));
    if (k_node_has_experience_table(n) == 1) table("experience", k_node_get_experience_table(n));
    if (k_node_has_fading_table(n) == 1) table("fading", k_node_get_fading_table(n));
    for (k_attribute_t a = k_node_get_first_attribute(n); a != nullptr; a = k_attribute_get_next(a))
      out << ' ' << k_attribute_get_key(a) << '=' << k_attribute_get_value(a);
    out << '\n';
  }
  return out.str();
}

// Runs `op` with the Nth allocation failing for N = 0, 1, ... and checks
// each failure; returns the number of failing runs.
int fail_each_allocation(k_domain_t d, const std::function<k_status_t()>& op) {
  for (int n = 0;; ++n) {
    const std::string before = snapshot(d);
    kelva::test::fail_allocation_after(n);
    const k_status_t status = op();
    const bool failed = kelva::test::allocations_left() == -1 && status != 0;
    kelva::test::fail_allocation_after(-1);
    if (status == 0) return n;
    EXPECT_TRUE(failed) << "failed without running out of memory at " << n;
    EXPECT_EQ(k_error_code(), K_ERROR_NO_MEMORY) << n;
    EXPECT_EQ(snapshot(d), before) << "changed by a failure at allocation " << n;
    if (::testing::Test::HasFailure()) return n;
  }
}

k_node_t named(k_domain_t d, const char* name, k_size_t states) {
  k_node_t n = k_domain_new_node(d, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL);
  k_node_set_name(n, name);
  k_node_set_number_of_states(n, states);
  return n;
}

void fill(k_table_t t) {
  for (k_size_t i = 0; i < k_table_get_size(t); ++i) k_table_set_data_item(t, i, 0.5 + i);
}

TEST(OutOfMemory, StructureEditsAreAllOrNothing) {
  k_domain_t d = k_new_domain();
  k_node_t a = named(d, "a", 2);
  k_node_t b = named(d, "b", 3);
  k_node_t c = named(d, "c", 2);
  ASSERT_EQ(k_node_add_parent(c, a), 0);
  fill(k_node_get_table(c));
  fill(k_node_get_experience_table(c));
  fill(k_node_get_fading_table(c));
  fill(k_node_get_table(a));
  k_node_set_state_label(a, 0, "x");
  k_node_set_state_label(a, 1, "y");

  // Three tables reshaped by one link: table, experience and fading.
  EXPECT_GT(fail_each_allocation(d, [&] { return k_node_add_parent(c, b); }), 0);
  EXPECT_GT(fail_each_allocation(d, [&] { return k_node_set_number_of_states(a, 4); }), 0);
  k_node_set_state_label(a, 2, "z");
  k_node_set_state_label(a, 3, "w");
  const char* order[] = {"y", "w", "x", "z", nullptr};
  EXPECT_GT(fail_each_allocation(d, [&] { return k_node_reorder_states(a, order); }), 0);
  EXPECT_GT(fail_each_allocation(d, [&] { return k_node_remove_parent(c, a); }), 0);
  EXPECT_GT(fail_each_allocation(d, [&] { return k_node_set_attribute(c, "key", "value"); }), 0);
  EXPECT_GT(
      fail_each_allocation(d, [&] { return k_node_set_name(c, "a_much_longer_name_than_sso"); }),
      0);
  EXPECT_GT(fail_each_allocation(d, [&] { return k_node_reverse_edge(b, c); }), 0);
  EXPECT_GT(fail_each_allocation(d, [&] { return k_node_delete(c); }), 0);
  k_domain_delete(d);
}

}  // namespace
