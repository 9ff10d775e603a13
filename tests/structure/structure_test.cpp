// Structure edits and the node tables they reshape.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "common/expect_code.h"
#include "kelva/kelva.h"

namespace {

struct Structure : ::testing::Test {
  k_domain_t d = k_new_domain();
  ~Structure() override { k_domain_delete(d); }

  k_node_t node(const char* name, k_size_t states, k_category_t category = K_CATEGORY_CHANCE) {
    k_node_t n = k_domain_new_node(d, category, K_KIND_DISCRETE, K_SUBTYPE_LABEL);
    EXPECT_NE(n, nullptr);
    EXPECT_EQ(k_node_set_name(n, name), 0);
    EXPECT_EQ(k_node_set_number_of_states(n, states), 0);
    return n;
  }
  k_node_t continuous(const char* name) {
    k_node_t n = k_domain_new_node(d, K_CATEGORY_CHANCE, K_KIND_CONTINUOUS, K_SUBTYPE_LABEL);
    EXPECT_EQ(k_node_set_name(n, name), 0);
    return n;
  }
  static std::vector<double> data(k_table_t t) {
    std::vector<double> v(k_table_get_size(t));
    EXPECT_EQ(k_table_get_data(t, v.data(), v.size(), 0, v.size()), 0);
    return v;
  }
  static void set(k_table_t t, const std::vector<double>& v) {
    ASSERT_EQ(k_table_get_size(t), v.size());
    ASSERT_EQ(k_table_set_data(t, v.data(), v.size(), 0, v.size()), 0);
  }
  static std::vector<std::string> names(k_node_t* list) {
    std::vector<std::string> r;
    for (; *list != nullptr; ++list) r.emplace_back(k_node_get_name(*list));
    return r;
  }
  static std::vector<std::string> table_names(k_table_t t) { return names(k_table_get_nodes(t)); }
};

TEST_F(Structure, AddParentChecksInOrder) {
  k_node_t a = node("a", 2);
  k_node_t b = node("b", 2);
  k_node_t x = continuous("x");
  k_node_t f = k_domain_new_node(d, K_CATEGORY_FUNCTION, K_KIND_OTHER, K_SUBTYPE_LABEL);
  k_domain_t other = k_new_domain();
  k_node_t foreign = k_domain_new_node(other, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL);

  auto refused = [](k_node_t child, k_node_t parent) {
    EXPECT_NE(k_node_add_parent(child, parent), 0);
    return k_error_code();
  };
  EXPECT_EQ(refused(nullptr, a), K_ERROR_USAGE);
  EXPECT_EQ(refused(a, nullptr), K_ERROR_USAGE);
  EXPECT_EQ(refused(a, foreign), K_ERROR_USAGE);
  EXPECT_EQ(refused(b, x), K_ERROR_USAGE);  // discrete child, continuous parent
  EXPECT_EQ(refused(a, a), K_ERROR_CYCLIC_NETWORK);
  ASSERT_EQ(k_node_add_parent(b, a), 0);
  // Already a parent: usage comes before the cycle test.
  EXPECT_EQ(refused(b, a), K_ERROR_USAGE);
  EXPECT_EQ(refused(a, b), K_ERROR_CYCLIC_NETWORK);
  // A continuous child takes a discrete parent; function nodes take anything.
  EXPECT_EQ(k_node_add_parent(x, a), 0);
  EXPECT_EQ(k_node_add_parent(f, x), 0);
  EXPECT_EQ(names(k_node_get_parents(b)), (std::vector<std::string>{"a"}));
  EXPECT_EQ(names(k_node_get_children(a)), (std::vector<std::string>{"b", "x"}));
  k_domain_delete(other);
}

TEST_F(Structure, UtilityParentsAndFunctionalDependencies) {
  k_node_t c = node("c", 2);
  k_node_t dec = node("dec", 2, K_CATEGORY_DECISION);
  k_node_t u = k_domain_new_node(d, K_CATEGORY_UTILITY, K_KIND_OTHER, K_SUBTYPE_LABEL);
  k_node_t f = k_domain_new_node(d, K_CATEGORY_FUNCTION, K_KIND_OTHER, K_SUBTYPE_LABEL);
  k_node_t g = k_domain_new_node(d, K_CATEGORY_FUNCTION, K_KIND_OTHER, K_SUBTYPE_LABEL);
  ASSERT_EQ(k_node_add_parent(u, dec), 0);
  ASSERT_EQ(k_node_add_parent(u, c), 0);
  // A utility node is no parent of chance, decision or utility nodes ...
  EXPECT_FAILS(k_node_add_parent(c, u), K_ERROR_USAGE);
  // ... but function nodes may read it.
  ASSERT_EQ(k_node_add_parent(f, u), 0);
  ASSERT_EQ(k_node_add_parent(g, f), 0);
  // A chance or decision node fed by a utility through function nodes would
  // need the policies to evaluate the policies.
  k_node_t later = node("later", 2);
  EXPECT_FAILS(k_node_add_parent(later, g), K_ERROR_CYCLIC_FUNCTIONAL_DEPENDENCY);
  EXPECT_EQ(k_node_get_parents(later)[0], nullptr);
  // Function nodes fed by chance nodes only are fine as parents.
  k_node_t h = k_domain_new_node(d, K_CATEGORY_FUNCTION, K_KIND_OTHER, K_SUBTYPE_LABEL);
  ASSERT_EQ(k_node_add_parent(h, c), 0);
  EXPECT_EQ(k_node_add_parent(later, h), 0);
}

TEST_F(Structure, AddParentExtendsTheTable) {
  // Child with 3 states and data; parents go to the front, values repeated.
  k_node_t c = node("c", 3);
  k_node_t a = node("a", 2);
  k_node_t b = node("b", 2);
  k_table_t t = k_node_get_table(c);
  set(t, {0.2, 0.3, 0.5});
  ASSERT_EQ(k_node_add_parent(c, a), 0);
  EXPECT_EQ(table_names(t), (std::vector<std::string>{"a", "c"}));
  EXPECT_EQ(data(t), (std::vector<double>{0.2, 0.3, 0.5, 0.2, 0.3, 0.5}));
  set(t, {0.1, 0.2, 0.7, 0.6, 0.3, 0.1});
  ASSERT_EQ(k_node_add_parent(c, b), 0);
  // The most recent parent is the slowest; the parent list is in addition order.
  EXPECT_EQ(table_names(t), (std::vector<std::string>{"b", "a", "c"}));
  EXPECT_EQ(names(k_node_get_parents(c)), (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(data(t), (std::vector<double>{0.1, 0.2, 0.7, 0.6, 0.3, 0.1,  //
                                          0.1, 0.2, 0.7, 0.6, 0.3, 0.1}));

  // A table made after the links has the same layout.
  k_node_t c2 = node("c2", 2);
  ASSERT_EQ(k_node_add_parent(c2, a), 0);
  ASSERT_EQ(k_node_add_parent(c2, b), 0);
  EXPECT_EQ(k_node_has_table(c2), 0);
  EXPECT_EQ(table_names(k_node_get_table(c2)), (std::vector<std::string>{"b", "a", "c2"}));
  EXPECT_EQ(k_node_has_table(c2), 1);

  // Experience and fading tables follow the discrete parents.
  k_table_t e = k_node_get_experience_table(c2);
  k_table_t f = k_node_get_fading_table(c2);
  EXPECT_EQ(table_names(e), (std::vector<std::string>{"b", "a"}));
  EXPECT_EQ(data(f), (std::vector<double>(4, 1.0)));
  set(e, {1, 2, 3, 4});
  k_node_t z = node("z", 3);
  ASSERT_EQ(k_node_add_parent(c2, z), 0);
  EXPECT_EQ(table_names(e), (std::vector<std::string>{"z", "b", "a"}));
  EXPECT_EQ(data(e), (std::vector<double>{1, 2, 3, 4, 1, 2, 3, 4, 1, 2, 3, 4}));
  EXPECT_EQ(k_table_get_size(f), 12u);

  // Nodes without tables.
  k_node_t dec = k_domain_new_node(d, K_CATEGORY_FUNCTION, K_KIND_OTHER, K_SUBTYPE_LABEL);
  EXPECT_NULL_WITH(k_node_get_table(dec), K_ERROR_USAGE);
  EXPECT_EQ(k_node_has_table(dec), 0);
}

TEST_F(Structure, ContinuousParentsAppendCoefficients) {
  k_node_t a = node("a", 2);
  k_node_t x = continuous("x");
  k_node_t y = continuous("y");
  k_table_t t = k_node_get_table(y);
  EXPECT_EQ(k_table_get_size(t), 1u);
  EXPECT_EQ(k_table_get_cg_size(t), 1u);
  ASSERT_EQ(k_node_add_parent(y, x), 0);
  ASSERT_EQ(k_node_add_parent(y, a), 0);
  EXPECT_EQ(table_names(t), (std::vector<std::string>{"a", "y", "x"}));
  EXPECT_EQ(k_table_get_size(t), 2u);
  EXPECT_EQ(k_table_get_cg_size(t), 4u);
}

TEST_F(Structure, FailedExtensionLeavesEverythingAsItWas) {
  // A node with more states than could ever be stored is refused.
  k_node_t c = node("c", 3);
  EXPECT_FAILS(k_node_set_number_of_states(c, k_size_t{1} << 50), K_ERROR_NO_MEMORY);
  EXPECT_EQ(k_node_get_number_of_states(c), 3u);
  // Two parents of 2^20 states each: the second one would make the table
  // 3 * 2^40 entries.
  k_node_t big1 = node("big1", k_size_t{1} << 20);
  k_node_t big2 = node("big2", k_size_t{1} << 20);
  ASSERT_EQ(k_node_add_parent(c, big1), 0);
  k_table_t t = k_node_get_table(c);
  k_table_t e = k_node_get_experience_table(c);
  ASSERT_EQ(k_table_set_data_item(t, 5, 0.25), 0);
  EXPECT_FAILS(k_node_add_parent(c, big2), K_ERROR_NO_MEMORY);
  EXPECT_EQ(table_names(t), (std::vector<std::string>{"big1", "c"}));
  EXPECT_EQ(table_names(e), (std::vector<std::string>{"big1"}));
  EXPECT_EQ(k_table_get_data_item(t, 5), 0.25);
  EXPECT_EQ(names(k_node_get_parents(c)), (std::vector<std::string>{"big1"}));
  EXPECT_EQ(k_node_get_children(big2)[0], nullptr);
}

TEST_F(Structure, RemoveAndSwitchParents) {
  k_node_t a = node("a", 2);
  k_node_t a2 = node("a2", 2);
  k_node_t c = node("c", 2);
  ASSERT_EQ(k_node_add_parent(c, a), 0);
  k_table_t t = k_node_get_table(c);
  set(t, {0.9, 0.1, 0.3, 0.7});
  // Switching keeps the data and the position.
  ASSERT_EQ(k_node_switch_parent(c, a, a2), 0);
  EXPECT_EQ(table_names(t), (std::vector<std::string>{"a2", "c"}));
  EXPECT_EQ(data(t), (std::vector<double>{0.9, 0.1, 0.3, 0.7}));
  EXPECT_EQ(k_node_get_children(a)[0], nullptr);
  EXPECT_EQ(names(k_node_get_children(a2)), (std::vector<std::string>{"c"}));
  k_node_t three = node("three", 3);
  EXPECT_NE(k_node_switch_parent(c, a2, three), 0);  // state counts differ
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  // Removing a discrete parent averages over its states.
  ASSERT_EQ(k_node_remove_parent(c, a2), 0);
  EXPECT_EQ(table_names(t), (std::vector<std::string>{"c"}));
  std::vector<double> v = data(t);
  EXPECT_DOUBLE_EQ(v[0], 0.6);
  EXPECT_DOUBLE_EQ(v[1], 0.4);
  EXPECT_FAILS(k_node_remove_parent(c, a2), K_ERROR_USAGE);
}

// The joint distribution of a small network, by enumeration.
std::map<std::vector<k_size_t>, double> joint(const std::vector<k_node_t>& nodes) {
  std::map<std::vector<k_size_t>, double> result;
  std::vector<k_size_t> s(nodes.size(), 0);
  for (;;) {
    double p = 1.0;
    for (k_node_t n : nodes) {
      k_table_t t = k_node_get_table(n);
      std::vector<k_size_t> config;
      for (k_node_t* m = k_table_get_nodes(t); *m != nullptr; ++m)
        for (std::size_t i = 0; i < nodes.size(); ++i)
          if (nodes[i] == *m) config.push_back(s[i]);
      p *= k_table_get_data_item(t, k_table_get_index_from_configuration(t, config.data()));
    }
    result[s] = p;
    std::size_t k = nodes.size();
    while (k > 0 && ++s[k - 1] == k_node_get_number_of_states(nodes[k - 1])) s[--k] = 0;
    if (k == 0) return result;
  }
}

TEST_F(Structure, ReversingAnEdgeKeepsTheJoint) {
  k_node_t a = node("a", 2);
  k_node_t b = node("b", 3);
  k_node_t c = node("c", 2);
  ASSERT_EQ(k_node_add_parent(b, a), 0);
  ASSERT_EQ(k_node_add_parent(c, a), 0);
  ASSERT_EQ(k_node_add_parent(c, b), 0);
  // Each end of a -> b has a parent of its own, which the other end gets.
  k_node_t d = node("d", 2), e = node("e", 2);
  ASSERT_EQ(k_node_add_parent(b, d), 0);
  ASSERT_EQ(k_node_add_parent(a, e), 0);
  set(k_node_get_table(d), {0.5, 0.5});
  set(k_node_get_table(e), {0.1, 0.9});
  set(k_node_get_table(a), {0.3, 0.7, 0.6, 0.4});
  set(k_node_get_table(b), {0.2, 0.5, 0.3, 0.6, 0.1, 0.3, 0.1, 0.1, 0.8, 0.3, 0.3, 0.4});
  set(k_node_get_table(c), {0.9, 0.1, 0.4, 0.6, 0.5, 0.5, 0.2, 0.8, 0.7, 0.3, 0.1, 0.9});
  const std::vector<k_node_t> all{a, b, c, d, e};
  auto before = joint(all);
  // a -> c cannot be reversed: a -> b -> c would close a cycle.
  EXPECT_FAILS(k_node_reverse_edge(a, c), K_ERROR_CYCLIC_NETWORK);
  ASSERT_EQ(k_node_reverse_edge(a, b), 0);
  EXPECT_EQ(names(k_node_get_parents(a)), (std::vector<std::string>{"e", "d", "b"}));
  EXPECT_EQ(names(k_node_get_parents(b)), (std::vector<std::string>{"d", "e"}));
  auto after = joint(all);
  for (const auto& [config, p] : before) EXPECT_NEAR(after[config], p, 1e-12);
}

TEST_F(Structure, StateCountsAndOrderReshapeEveryTable) {
  k_node_t a = node("a", 2);
  k_node_t c = node("c", 2);
  ASSERT_EQ(k_node_add_parent(c, a), 0);
  ASSERT_EQ(k_node_set_state_label(a, 0, "x"), 0);
  ASSERT_EQ(k_node_set_state_label(a, 1, "y"), 0);
  k_table_t ta = k_node_get_table(a);
  k_table_t tc = k_node_get_table(c);
  set(ta, {0.4, 0.6});
  set(tc, {0.9, 0.1, 0.3, 0.7});
  const char* order[] = {"y", "x", nullptr};
  ASSERT_EQ(k_node_reorder_states(a, order), 0);
  EXPECT_STREQ(k_node_get_state_label(a, 0), "y");
  EXPECT_EQ(data(ta), (std::vector<double>{0.6, 0.4}));
  EXPECT_EQ(data(tc), (std::vector<double>{0.3, 0.7, 0.9, 0.1}));
  const char* bad[] = {"y", "y", nullptr};
  EXPECT_FAILS(k_node_reorder_states(a, bad), K_ERROR_USAGE);
  EXPECT_EQ(data(ta), (std::vector<double>{0.6, 0.4}));

  ASSERT_EQ(k_node_set_number_of_states(a, 3), 0);
  EXPECT_EQ(data(ta), (std::vector<double>{0.6, 0.4, 0.0}));
  EXPECT_EQ(data(tc), (std::vector<double>{0.3, 0.7, 0.9, 0.1, 0.0, 0.0}));
  ASSERT_EQ(k_node_set_number_of_states(a, 1), 0);
  EXPECT_EQ(data(tc), (std::vector<double>{0.3, 0.7}));
}

TEST_F(Structure, DeletingANodeTakesItOutOfItsChildren) {
  k_node_t a = node("a", 2);
  k_node_t c = node("c", 2);
  ASSERT_EQ(k_node_add_parent(c, a), 0);
  k_table_t tc = k_node_get_table(c);
  set(tc, {1.0, 0.0, 0.0, 1.0});
  ASSERT_EQ(k_node_delete(a), 0);
  EXPECT_EQ(k_node_get_parents(c)[0], nullptr);
  EXPECT_EQ(data(tc), (std::vector<double>{0.5, 0.5}));
  EXPECT_EQ(k_domain_get_first_node(d), c);
  EXPECT_EQ(k_domain_get_number_of_chance_nodes(d), 1u);
}

}  // namespace

namespace {

TEST(ChainComponents, FixTheirLinksAndFollowStateChanges) {
  const char* text =
      "node p { states = (\"a\" \"b\"); }\n"
      "node x { states = (\"0\" \"1\"); }\n"
      "node y { states = (\"0\" \"1\"); }\n"
      "potential (p) { data = (0.5 0.5); }\n"
      "potential (x y | p) { data = (((1 2) (3 4)) ((5 6) (7 8))); }\n";
  k_domain_t d = k_net_parse_domain_string(text, nullptr, nullptr);
  ASSERT_NE(d, nullptr) << k_error_name(k_error_code());
  k_node_t p = k_domain_get_node_by_name(d, "p");
  k_node_t x = k_domain_get_node_by_name(d, "x");
  k_node_t y = k_domain_get_node_by_name(d, "y");
  // Members have no table of their own and their links stay as they are.
  EXPECT_NULL_WITH(k_node_get_table(x), K_ERROR_USAGE);
  EXPECT_NE(k_node_remove_parent(x, p), 0);
  EXPECT_NE(k_node_add_parent(
                y, k_domain_new_node(d, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL)),
            0);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  // The component's table follows the states of its nodes.
  ASSERT_EQ(k_node_set_number_of_states(p, 3), 0);
  char* net = k_domain_to_net_string(d);
  ASSERT_NE(net, nullptr);
  const std::string written(net);
  EXPECT_NE(written.find("data = ((( 1 2 )"), std::string::npos) << written;
  EXPECT_NE(written.find("(( 0 0 )\t%  p=<2>  x=0"), std::string::npos) << written;
  std::free(net);
  // Deleting a member takes the component with it.
  ASSERT_EQ(k_node_delete(y), 0);
  EXPECT_EQ(k_node_get_table(x) != nullptr, true);
  k_domain_delete(d);
}

}  // namespace
