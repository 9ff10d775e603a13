// Ancestors, descendants, moral neighbours and d-separation, checked against
// definitions computed here from the links alone.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <vector>

#include "kelva/kelva.h"

namespace {

using Graph = std::vector<std::vector<int>>;  // parents of each node

std::set<int> closure(const Graph& parents, std::set<int> from) {
  std::vector<int> stack(from.begin(), from.end());
  while (!stack.empty()) {
    const int n = stack.back();
    stack.pop_back();
    for (int p : parents[n])
      if (from.insert(p).second) stack.push_back(p);
  }
  return from;
}

// d-connection by the moralized ancestral graph: x and a source are joined
// in the moral graph of the ancestors of x, the sources and the observed
// nodes once the observed nodes are removed.  A likelihood is an observed
// child of its node.
bool d_connected(Graph parents, int x, const std::set<int>& source, std::set<int> observed,
                 const std::set<int>& soft) {
  for (int l : soft) {
    parents.push_back({l});
    observed.insert(static_cast<int>(parents.size()) - 1);
  }
  if (observed.count(x) != 0) return false;
  std::set<int> keep = source;
  keep.insert(x);
  keep.insert(observed.begin(), observed.end());
  keep = closure(parents, keep);
  std::vector<std::set<int>> adjacent(parents.size());
  for (int c : keep) {
    const std::vector<int>& ps = parents[c];
    for (std::size_t i = 0; i < ps.size(); ++i) {
      adjacent[c].insert(ps[i]);
      adjacent[ps[i]].insert(c);
      for (std::size_t j = 0; j < i; ++j) {
        adjacent[ps[i]].insert(ps[j]);
        adjacent[ps[j]].insert(ps[i]);
      }
    }
  }
  std::set<int> seen;
  std::vector<int> stack;
  for (int s : source)
    if (observed.count(s) == 0 && seen.insert(s).second) stack.push_back(s);
  while (!stack.empty()) {
    const int n = stack.back();
    stack.pop_back();
    if (n == x) return true;
    for (int m : adjacent[n])
      if (observed.count(m) == 0 && seen.insert(m).second) stack.push_back(m);
  }
  return false;
}

std::vector<int> positions(const std::vector<k_node_t>& nodes, const k_node_t* list) {
  std::vector<int> out;
  for (; *list != nullptr; ++list)
    out.push_back(static_cast<int>(std::find(nodes.begin(), nodes.end(), *list) - nodes.begin()));
  return out;
}

std::vector<k_node_t> list_of(const std::vector<k_node_t>& nodes, const std::set<int>& which) {
  std::vector<k_node_t> out;
  for (int i : which) out.push_back(nodes[i]);
  out.push_back(nullptr);
  return out;
}

TEST(GraphQueries, BayesBallAgreesWithTheMoralAncestralGraphOnRandomDags) {
  std::mt19937 rng(7);
  for (int round = 0; round < 1000; ++round) {
    const int n = 2 + static_cast<int>(rng() % 11);
    k_domain_t d = k_new_domain();
    std::vector<k_node_t> nodes;
    Graph parents(n);
    for (int i = 0; i < n; ++i) {
      nodes.push_back(k_domain_new_node(d, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL));
      for (int p = 0; p < i; ++p)
        if (rng() % 4 == 0) {
          ASSERT_EQ(k_node_add_parent(nodes[i], nodes[p]), 0);
          parents[i].push_back(p);
        }
    }
    std::set<int> source, hard, soft;
    for (int i = 0; i < n; ++i) {
      const unsigned r = rng() % 8;
      if (r == 0) source.insert(i);
      else if (r <= 2) hard.insert(i);
      else if (r == 3) soft.insert(i);
    }
    if (source.empty()) source.insert(static_cast<int>(rng() % n));
    auto s = list_of(nodes, source), h = list_of(nodes, hard), l = list_of(nodes, soft);
    const std::vector<int> connected =
        positions(nodes, k_domain_get_d_connected_nodes(d, s.data(), h.data(), l.data()));
    const std::vector<int> separated =
        positions(nodes, k_domain_get_d_separated_nodes(d, s.data(), h.data(), l.data()));
    ASSERT_EQ(connected.size() + separated.size(), static_cast<std::size_t>(n));
    for (int x = 0; x < n; ++x) {
      const bool listed = std::count(connected.begin(), connected.end(), x) == 1;
      ASSERT_EQ(listed, d_connected(parents, x, source, hard, soft)) << "round " << round;
      ASSERT_EQ(listed, std::count(separated.begin(), separated.end(), x) == 0);
    }
    // Graph lists of one node.
    const int x = static_cast<int>(rng() % n);
    std::set<int> children, coparents;
    for (int c = 0; c < n; ++c)
      if (std::count(parents[c].begin(), parents[c].end(), x) != 0) {
        children.insert(c);
        coparents.insert(parents[c].begin(), parents[c].end());
      }
    std::set<int> up = closure(parents, {x}), down;
    up.erase(x);
    for (int c = 0; c < n; ++c)
      if (c != x && closure(parents, {c}).count(x) != 0) down.insert(c);
    std::set<int> moral(parents[x].begin(), parents[x].end());
    moral.insert(children.begin(), children.end());
    moral.insert(coparents.begin(), coparents.end());
    moral.erase(x);
    auto as_set = [&](k_node_t* list) {
      const std::vector<int> v = positions(nodes, list);
      EXPECT_EQ(std::set<int>(v.begin(), v.end()).size(), v.size());
      return std::set<int>(v.begin(), v.end());
    };
    EXPECT_EQ(as_set(k_node_get_ancestors(nodes[x])), up);
    EXPECT_EQ(as_set(k_node_get_descendants(nodes[x])), down);
    EXPECT_EQ(as_set(k_node_get_moral_neighbors(nodes[x])), moral);
    k_domain_delete(d);
  }
  EXPECT_EQ(k_domain_get_d_connected_nodes(nullptr, nullptr, nullptr, nullptr), nullptr);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
}

}  // namespace
