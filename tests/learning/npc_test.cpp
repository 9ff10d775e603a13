// NPC on data whose tests contradict each other: copies of one variable are
// independent given any other copy, so PC unlinks them all.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "kelva/kelva.h"

namespace kelva {
namespace {

// Every link as (child, parent) by node index.
std::vector<std::pair<long, long>> links_of(const std::vector<k_node_t>& v) {
  std::vector<std::pair<long, long>> out;
  for (std::size_t n = 0; n < v.size(); ++n)
    for (k_node_t* p = k_node_get_parents(v[n]); *p != nullptr; ++p)
      out.emplace_back(n, std::find(v.begin(), v.end(), *p) - v.begin());
  return out;
}

// The solutions of a region as lists of node pairs (index of first, second).
using Solutions = std::vector<std::vector<std::pair<long, long>>>;
Solutions solutions(k_ambiguous_region_t r, const std::vector<k_node_t>& v) {
  Solutions out;
  auto at = [&](k_node_t n) { return std::find(v.begin(), v.end(), n) - v.begin(); };
  for (k_solution_t s = k_ambiguous_region_get_first_solution(r); s; s = k_solution_get_next(s)) {
    out.emplace_back();
    for (k_uncertain_edge_t* e = k_solution_get_edges(s); *e != nullptr; ++e)
      out.back().emplace_back(at(k_uncertain_edge_get_first_node(*e)),
                              at(k_uncertain_edge_get_second_node(*e)));
  }
  return out;
}

// `copies` copies of one binary variable and one independent of them.
std::vector<k_node_t> copies(k_domain_t d, int copies) {
  std::vector<k_node_t> v;
  k_domain_set_number_of_cases(d, 200);
  for (int i = 0; i <= copies; ++i) {
    v.push_back(k_domain_new_node(d, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL));
    k_node_set_number_of_states(v.back(), 2);
    for (k_size_t c = 0; c < 200; ++c) k_node_set_case_state(v.back(), c, (c >> (i / copies)) % 2);
  }
  return v;
}

TEST(Npc, ContradictoryTestsGiveARegionWithItsSolutions) {
  k_domain_t d = k_new_domain();
  EXPECT_EQ(k_domain_get_first_ambiguous_region(d), nullptr);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  const std::vector<k_node_t> v = copies(d, 3);  // X, Y, Z and W
  ASSERT_EQ(k_domain_learn_structure_npc(d), 0);
  k_ambiguous_region_t r = k_domain_get_first_ambiguous_region(d);
  ASSERT_NE(r, nullptr);
  EXPECT_EQ(k_ambiguous_region_get_next(r), nullptr);
  // The first solution keeps all three uncertain edges: a triangle.
  EXPECT_EQ(solutions(r, v), (Solutions{{{0, 1}, {0, 2}, {1, 2}}}));
  EXPECT_EQ(links_of(v).size(), 3U);
  // Any two edges let the third statement hold: three minimal solutions;
  // the first (X-Y, X-Z) is installed, Y and Z separated by X.
  ASSERT_EQ(k_ambiguous_region_find_minimal_solutions(r), 0);
  EXPECT_EQ(solutions(r, v), (Solutions{{{0, 1}, {0, 2}}, {{0, 1}, {1, 2}}, {{0, 2}, {1, 2}}}));
  EXPECT_EQ(links_of(v).size(), 2U);
  // X-Y absent: Z must reach both X and Y, so X-Z and Y-Z, a chain.
  k_uncertain_edge_t* e = k_ambiguous_region_get_edges(r);
  ASSERT_EQ(k_uncertain_edge_manual_decision(e[0], 0), 0);
  EXPECT_EQ(solutions(r, v), (Solutions{{{0, 2}, {1, 2}}}));
  const auto chain = links_of(v);
  for (auto [child, parent] : chain) EXPECT_TRUE(child == 2 || parent == 2);
  // X-Z absent too leaves no solution: refused, nothing changes; deciding
  // X-Y present again gives back two minimal solutions.
  EXPECT_NE(k_uncertain_edge_manual_decision(e[1], 0), 0);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  EXPECT_EQ(links_of(v), chain);
  ASSERT_EQ(k_uncertain_edge_manual_decision(e[0], 1), 0);
  EXPECT_EQ(solutions(r, v), (Solutions{{{0, 1}, {0, 2}}, {{0, 1}, {1, 2}}}));
  // Bad handles, and every call once the links changed by hand.
  EXPECT_EQ(k_ambiguous_region_get_next(reinterpret_cast<k_ambiguous_region_t>(d)), nullptr);
  EXPECT_EQ(k_solution_get_edges(nullptr), nullptr);
  EXPECT_EQ(k_uncertain_edge_get_first_node(reinterpret_cast<k_uncertain_edge_t>(v[0])), nullptr);
  ASSERT_EQ(k_node_add_parent(v[3], v[0]), 0);
  EXPECT_EQ(k_domain_get_first_ambiguous_region(d), nullptr);
  EXPECT_EQ(k_ambiguous_region_get_edges(r), nullptr);
  EXPECT_NE(
      k_ambiguous_region_find_minimal_solutions(r) + k_uncertain_edge_manual_decision(e[0], 0), 0);
  EXPECT_EQ(k_uncertain_edge_get_second_node(e[0]), nullptr);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  k_domain_delete(d);
}

TEST(Npc, LargeRegionsAreResolvedEdgeByEdge) {
  // Seven copies: 21 uncertain pairs in one region, too many to search.
  k_domain_t d = k_new_domain();
  const std::vector<k_node_t> v = copies(d, 7);
  ASSERT_EQ(k_domain_learn_structure_npc(d), 0);
  k_ambiguous_region_t r = k_domain_get_first_ambiguous_region(d);
  k_uncertain_edge_t* e = k_ambiguous_region_get_edges(r);
  EXPECT_NE(k_ambiguous_region_find_minimal_solutions(r), 0);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  EXPECT_EQ(links_of(v).size(), 21U);
  // Absent whenever a solution allows it: what is left is minimal, so no
  // kept edge can be made absent afterwards, and it is the one solution.
  std::vector<k_uncertain_edge_t> kept;
  for (int i = 0; i < 21; ++i)
    if (k_uncertain_edge_manual_decision(e[i], 0) != 0 &&
        k_uncertain_edge_manual_decision(e[i], 1) == 0)
      kept.push_back(e[i]);
  EXPECT_EQ(links_of(v).size(), kept.size());
  for (k_uncertain_edge_t k : kept) EXPECT_NE(k_uncertain_edge_manual_decision(k, 0), 0);
  ASSERT_EQ(k_ambiguous_region_find_minimal_solutions(r), 0);
  EXPECT_EQ(solutions(r, v).size(), 1U);
  k_domain_delete(d);
}

}  // namespace
}  // namespace kelva
