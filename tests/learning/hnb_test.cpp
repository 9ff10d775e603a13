// Hierarchical naive Bayes against naive Bayes on known models; refusals.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "kelva/kelva.h"

namespace {

using Cases = std::vector<std::vector<int>>;  // by case: class, then attributes

std::vector<k_node_t> make_nodes(k_domain_t d, const std::vector<std::size_t>& states) {
  std::vector<k_node_t> nodes;
  for (std::size_t r : states)
    nodes.push_back(k_domain_create_discrete_node(d, K_CATEGORY_CHANCE, K_SUBTYPE_LABEL, r));
  return nodes;
}

void store(const std::vector<k_node_t>& nodes, const Cases& cases) {
  k_domain_set_number_of_cases(k_node_get_home_domain(nodes[0]), cases.size());
  for (std::size_t c = 0; c < cases.size(); ++c)
    for (std::size_t v = 0; v < nodes.size(); ++v)
      if (cases[c][v] >= 0) k_node_set_case_state(nodes[v], c, cases[c][v]);
}

double accuracy(const std::vector<k_node_t>& nodes, const Cases& test) {
  k_domain_t d = k_node_get_home_domain(nodes[0]);
  for (k_node_t n = k_domain_get_first_node(d); n != nullptr; n = k_node_get_next(n))
    k_node_get_experience_table(n);
  EXPECT_EQ(k_domain_compile(d), 0);
  EXPECT_EQ(k_domain_learn_tables(d), 0);
  std::size_t right = 0;
  for (const auto& c : test) {
    for (std::size_t v = 1; v < nodes.size(); ++v) k_node_select_state(nodes[v], c[v]);
    k_domain_propagate(d, K_EQUILIBRIUM_SUM, K_MODE_NORMAL);
    right += (k_node_get_belief(nodes[0], 1) > 0.5) == (c[0] == 1);
  }
  return static_cast<double>(right) / static_cast<double>(test.size());
}

// Class -> hidden (3 states) -> three near copies of it, class -> one more
// attribute: naive Bayes counts the hidden variable's evidence three times.
// Learned on 3000 cases (some items missing), compared on 2000 more.  With
// a hidden variable of its own for each copy, the data are naive Bayes's:
// then no latent node is made.
TEST(Hnb, BeatsNaiveBayesOnHierarchicalDataAndAddsNothingToNaiveBayesData) {
  for (unsigned seed = 1; seed <= 6; ++seed) {
    const bool naive = seed > 3;
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> u(0, 1);
    auto hidden = [&](int cls) {
      const double r = u(rng);
      return cls ? (r < 0.1 ? 0 : r < 0.4 ? 1 : 2) : (r < 0.6 ? 0 : r < 0.9 ? 1 : 2);
    };
    auto draw = [&](std::size_t n, double hide) {
      Cases out(n);
      for (auto& c : out) {
        const int cls = u(rng) < 0.5, h = hidden(cls);
        c = {cls};
        for (int k = 0; k < 3; ++k) {
          const int hk = naive ? hidden(cls) : h;
          c.push_back(u(rng) < 0.85 ? hk : (hk + 1 + (u(rng) < 0.5)) % 3);
        }
        c.push_back(u(rng) < 0.75 ? cls : 1 - cls);
        for (std::size_t v = 1; v < c.size(); ++v) c[v] = u(rng) < hide ? -1 : c[v];
      }
      return out;
    };
    const Cases train = draw(3000, 0.05), test = draw(2000, 0.0);
    double scores[2];
    for (int hnb = 0; hnb < 2; ++hnb) {
      k_domain_t d = k_new_domain();
      const auto nodes = make_nodes(d, {2, 3, 3, 3, 2});
      store(nodes, train);
      ASSERT_EQ(
          hnb ? k_domain_learn_hnb_structure(d, nodes[0]) : k_domain_learn_features(d, nodes[0], 4),
          0);
      EXPECT_EQ(k_domain_get_number_of_chance_nodes(d) == 5u, naive || !hnb) << seed;
      scores[hnb] = naive ? 0.0 : accuracy(nodes, test);
      k_domain_delete(d);
    }
    EXPECT_GE(scores[1], scores[0]) << "seed " << seed;
  }
}

// Refusals (no class node, a foreign one, a continuous node, no cases, a link required between
// attributes or into the class) are "usage" and leave nodes and links as they were.
TEST(Hnb, RefusalsChangeNothingAndConstraintsHold) {
  for (int setup = 0; setup < 6; ++setup) {
    k_domain_t d = k_new_domain(), other = k_new_domain();
    const auto nodes = make_nodes(d, {2, 2, 2});
    k_node_add_parent(nodes[2], nodes[1]);
    if (setup != 3) store(nodes, {{0, 0, 0}, {1, 1, 1}, {0, 1, 0}});
    k_node_t target = setup == 0 ? nullptr : setup == 1 ? make_nodes(other, {2})[0] : nodes[0];
    if (setup == 2) k_domain_new_node(d, K_CATEGORY_CHANCE, K_KIND_CONTINUOUS, K_SUBTYPE_LABEL);
    if (setup == 4) k_node_set_edge_constraint(nodes[1], nodes[2], K_EDGE_CONSTRAINT_REQUIRED);
    if (setup == 5) k_node_set_edge_constraint(nodes[1], nodes[0], K_EDGE_CONSTRAINT_FORWARD);
    EXPECT_NE(k_domain_learn_hnb_structure(d, target), 0) << setup;
    EXPECT_EQ(k_error_code(), K_ERROR_USAGE) << setup;
    EXPECT_EQ(k_domain_get_number_of_chance_nodes(d), setup == 2 ? 4u : 3u) << setup;
    EXPECT_EQ(k_node_get_parents(nodes[2])[0], nodes[1]) << setup;
    k_domain_delete(d);
    k_domain_delete(other);
  }
  // Forbidden class -> X1 leaves X1 unlinked; required class -> X2 keeps X2
  // a child of the class although X2 and X3 are copies.
  k_domain_t d = k_new_domain();
  const auto nodes = make_nodes(d, {2, 2, 2, 2});
  Cases cases;
  for (int i = 0; i < 400; ++i) cases.push_back({i % 2, (i / 2) % 2, (i / 4) % 2, (i / 4) % 2});
  store(nodes, cases);
  k_node_set_edge_constraint(nodes[0], nodes[1], K_EDGE_CONSTRAINT_FORBIDDEN);
  k_node_set_edge_constraint(nodes[0], nodes[2], K_EDGE_CONSTRAINT_FORWARD);
  ASSERT_EQ(k_domain_learn_hnb_structure(d, nodes[0]), 0);
  EXPECT_EQ(k_node_get_parents(nodes[1])[0], nullptr);
  EXPECT_EQ(k_node_get_parents(nodes[2])[0], nodes[0]);
  k_domain_delete(d);
}

}  // namespace
