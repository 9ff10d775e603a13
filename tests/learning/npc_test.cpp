// NPC on data whose tests contradict each other: X, Y and Z are copies, so
// each pair is independent given the third and PC unlinks all three.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "kelva/kelva.h"

namespace kelva {
namespace {

using Links = std::vector<std::vector<k_node_t>>;

Links links_of(const std::vector<k_node_t>& v) {
  Links out;
  for (k_node_t n : v) {
    out.emplace_back();
    for (k_node_t* p = k_node_get_parents(n); *p != nullptr; ++p) out.back().push_back(*p);
  }
  return out;
}

std::size_t link_count(const Links& g) {
  std::size_t n = 0;
  for (const auto& p : g) n += p.size();
  return n;
}

// The solutions of a region as lists of node pairs (index of first, second).
std::vector<std::vector<std::pair<int, int>>> solutions(k_ambiguous_region_t r,
                                                        const std::vector<k_node_t>& v) {
  std::vector<std::vector<std::pair<int, int>>> out;
  for (k_solution_t s = k_ambiguous_region_get_first_solution(r); s != nullptr;
       s = k_solution_get_next(s)) {
    out.emplace_back();
    for (k_uncertain_edge_t* e = k_solution_get_edges(s); *e != nullptr; ++e)
      out.back().emplace_back(
          std::find(v.begin(), v.end(), k_uncertain_edge_get_first_node(*e)) - v.begin(),
          std::find(v.begin(), v.end(), k_uncertain_edge_get_second_node(*e)) - v.begin());
  }
  return out;
}

TEST(Npc, ContradictoryTestsGiveARegionWithItsSolutions) {
  k_domain_t d = k_new_domain();
  std::vector<k_node_t> v;  // X, Y, Z, W
  for (int i = 0; i < 4; ++i) {
    v.push_back(k_domain_new_node(d, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL));
    k_node_set_number_of_states(v.back(), 2);
  }
  EXPECT_EQ(k_domain_get_first_ambiguous_region(d), nullptr);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  k_domain_set_number_of_cases(d, 200);
  for (k_size_t c = 0; c < 200; ++c) {
    for (int i = 0; i < 3; ++i) k_node_set_case_state(v[i], c, c % 2);
    k_node_set_case_state(v[3], c, (c / 2) % 2);  // independent of the others
  }
  ASSERT_EQ(k_domain_learn_structure_npc(d), 0);
  k_ambiguous_region_t r = k_domain_get_first_ambiguous_region(d);
  ASSERT_NE(r, nullptr);
  EXPECT_EQ(k_ambiguous_region_get_next(r), nullptr);
  // The first solution keeps all three uncertain edges: a triangle.
  using S = std::vector<std::vector<std::pair<int, int>>>;
  EXPECT_EQ(solutions(r, v), (S{{{0, 1}, {0, 2}, {1, 2}}}));
  EXPECT_EQ(link_count(links_of(v)), 3U);
  EXPECT_TRUE(links_of(v)[3].empty());
  // Any two edges let the third statement hold: three minimal solutions;
  // the first (X-Y, X-Z) is installed, Y and Z separated by X.
  ASSERT_EQ(k_ambiguous_region_find_minimal_solutions(r), 0);
  EXPECT_EQ(solutions(r, v), (S{{{0, 1}, {0, 2}}, {{0, 1}, {1, 2}}, {{0, 2}, {1, 2}}}));
  EXPECT_EQ(link_count(links_of(v)), 2U);
  // X-Y absent: Z must reach both X and Y, so X-Z and Y-Z, a chain.
  k_uncertain_edge_t* e = k_ambiguous_region_get_edges(r);
  ASSERT_EQ(k_uncertain_edge_manual_decision(e[0], 0), 0);
  EXPECT_EQ(solutions(r, v), (S{{{0, 2}, {1, 2}}}));
  const Links chain = links_of(v);
  EXPECT_EQ(link_count(chain), 2U);
  EXPECT_EQ(std::count(chain[0].begin(), chain[0].end(), v[1]) +
                std::count(chain[1].begin(), chain[1].end(), v[0]),
            0);
  // X-Z absent too leaves no solution: refused, nothing changes; deciding
  // X-Y present again gives back two minimal solutions.
  EXPECT_NE(k_uncertain_edge_manual_decision(e[1], 0), 0);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  EXPECT_EQ(links_of(v), chain);
  ASSERT_EQ(k_uncertain_edge_manual_decision(e[0], 1), 0);
  EXPECT_EQ(solutions(r, v), (S{{{0, 1}, {0, 2}}, {{0, 1}, {1, 2}}}));
  // Bad handles, and every call once the links changed by hand.
  EXPECT_EQ(k_ambiguous_region_get_next(reinterpret_cast<k_ambiguous_region_t>(d)), nullptr);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  EXPECT_EQ(k_solution_get_edges(nullptr), nullptr);
  EXPECT_EQ(k_uncertain_edge_get_first_node(reinterpret_cast<k_uncertain_edge_t>(v[0])), nullptr);
  ASSERT_EQ(k_node_add_parent(v[3], v[0]), 0);
  EXPECT_EQ(k_domain_get_first_ambiguous_region(d), nullptr);
  EXPECT_EQ(k_ambiguous_region_get_edges(r), nullptr);
  EXPECT_NE(k_ambiguous_region_find_minimal_solutions(r), 0);
  EXPECT_NE(k_uncertain_edge_manual_decision(e[0], 0), 0);
  EXPECT_EQ(k_uncertain_edge_get_second_node(e[0]), nullptr);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  k_domain_delete(d);
}

TEST(Npc, LargeRegionsAreResolvedEdgeByEdge) {
  // Seven copies: every pair is independent given any third, so all 21
  // pairs are uncertain, one region, too large for the minimal search.
  k_domain_t d = k_new_domain();
  std::vector<k_node_t> v;
  k_domain_set_number_of_cases(d, 40);
  for (int i = 0; i < 7; ++i) {
    v.push_back(k_domain_new_node(d, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL));
    k_node_set_number_of_states(v.back(), 2);
    for (k_size_t c = 0; c < 40; ++c) k_node_set_case_state(v.back(), c, c % 2);
  }
  ASSERT_EQ(k_domain_learn_structure_npc(d), 0);
  k_ambiguous_region_t r = k_domain_get_first_ambiguous_region(d);
  k_uncertain_edge_t* e = k_ambiguous_region_get_edges(r);
  EXPECT_EQ(link_count(links_of(v)), 21U);
  EXPECT_NE(k_ambiguous_region_find_minimal_solutions(r), 0);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  EXPECT_EQ(link_count(links_of(v)), 21U);
  // Absent whenever a solution allows it: what is left is minimal, so no
  // present edge can be made absent afterwards.
  std::vector<k_uncertain_edge_t> kept;
  for (int i = 0; i < 21; ++i)
    if (k_uncertain_edge_manual_decision(e[i], 0) != 0) {
      ASSERT_EQ(k_uncertain_edge_manual_decision(e[i], 1), 0);
      kept.push_back(e[i]);
    }
  EXPECT_EQ(link_count(links_of(v)), kept.size());
  for (k_uncertain_edge_t k : kept) EXPECT_NE(k_uncertain_edge_manual_decision(k, 0), 0);
  // Few enough undecided edges now: the one minimal solution is found.
  ASSERT_EQ(k_ambiguous_region_find_minimal_solutions(r), 0);
  EXPECT_EQ(solutions(r, v).size(), 1U);
  k_domain_delete(d);
}

}  // namespace
}  // namespace kelva
