// Random graphs (moral graphs of random DAGs, mixed ones included, and
// arbitrary undirected graphs) triangulated by every method and by random
// user orders, checked against a brute-force reading of the result.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "compile/elimination.h"
#include "compile/graph_fixtures.h"
#include "compile/triangulate.h"

namespace kelva {
namespace {

using test::NetDomain;
using Matrix = std::vector<std::vector<bool>>;

Matrix matrix_of(const MoralGraph& g) {
  Matrix m(g.size(), std::vector<bool>(g.size(), false));
  for (std::size_t v = 0; v < g.size(); ++v)
    for (std::uint32_t w : g.neighbours[v]) m[v][w] = m[w][v] = true;
  return m;
}

// Chordal iff simplicial vertices can be removed one by one until none is
// left.
bool chordal(const Matrix& m) {
  const std::size_t n = m.size();
  std::vector<bool> gone(n, false);
  for (std::size_t removed = 0; removed < n; ++removed) {
    bool found = false;
    for (std::size_t v = 0; v < n && !found; ++v) {
      if (gone[v]) continue;
      bool simplicial = true;
      for (std::size_t a = 0; a < n && simplicial; ++a)
        for (std::size_t b = a + 1; b < n && simplicial; ++b)
          if (!gone[a] && !gone[b] && a != v && b != v && m[v][a] && m[v][b] && !m[a][b])
            simplicial = false;
      if (simplicial) {
        gone[v] = true;
        found = true;
      }
    }
    if (!found) return false;
  }
  return true;
}

bool complete(const Matrix& m, const std::vector<std::size_t>& set) {
  for (std::size_t i = 0; i < set.size(); ++i)
    for (std::size_t j = i + 1; j < set.size(); ++j)
      if (!m[set[i]][set[j]]) return false;
  return true;
}

// Every maximal clique of a small graph, as sorted sets.
std::set<std::vector<std::size_t>> maximal_cliques(const Matrix& m) {
  const std::size_t n = m.size();
  std::set<std::vector<std::size_t>> result;
  for (std::uint32_t bits = 1; bits < (1u << n); ++bits) {
    std::vector<std::size_t> set;
    for (std::size_t v = 0; v < n; ++v)
      if (bits & (1u << v)) set.push_back(v);
    if (!complete(m, set)) continue;
    bool maximal = true;
    for (std::size_t v = 0; v < n && maximal; ++v) {
      if (bits & (1u << v)) continue;
      bool all = true;
      for (std::size_t w : set) all = all && m[v][w];
      maximal = !all;
    }
    if (maximal) result.insert(set);
  }
  return result;
}

// Checks one triangulation of `graph`; `minimal` for the greedy methods.
void check(const MoralGraph& graph, const Triangulation& t, bool minimal, const std::string& what) {
  SCOPED_TRACE(what);
  const std::size_t n = graph.size();
  const Matrix g = matrix_of(graph);
  Matrix h(n, std::vector<bool>(n, false));
  std::set<std::pair<std::size_t, std::size_t>> seen;
  for (auto [a, b] : t.links) {
    const std::size_t i = graph.position.at(a), j = graph.position.at(b);
    ASSERT_NE(i, j);
    ASSERT_TRUE(seen.insert({std::min(i, j), std::max(i, j)}).second) << "link twice";
    h[i][j] = h[j][i] = true;
  }
  for (std::size_t i = 0; i < n; ++i)
    for (std::size_t j = 0; j < n; ++j)
      if (g[i][j]) {
        ASSERT_TRUE(h[i][j]) << "moral link lost";
      }
  ASSERT_TRUE(chordal(h));

  // The order is a perfect elimination ordering, continuous vertices first.
  ASSERT_EQ(t.elimination_order.size(), n);
  std::vector<std::size_t> at(n, n);
  for (std::size_t k = 0; k < n; ++k) {
    const std::size_t v = graph.position.at(t.elimination_order[k]);
    ASSERT_EQ(at[v], n) << "vertex twice in the order";
    at[v] = k;
  }
  bool discrete_seen = false;
  for (std::size_t k = 0; k < n; ++k) {
    Node* node = t.elimination_order[k];
    if (node->is_discrete()) discrete_seen = true;
    ASSERT_FALSE(discrete_seen && node->is_continuous()) << "continuous after discrete";
    std::vector<std::size_t> later;
    const std::size_t v = graph.position.at(node);
    for (std::size_t w = 0; w < n; ++w)
      if (h[v][w] && at[w] > k) later.push_back(w);
    ASSERT_TRUE(complete(h, later)) << "not a perfect elimination ordering at " << node->name();
  }

  // The cliques are exactly the maximal cliques, each once; the cost is
  // their weight.
  std::set<std::vector<std::size_t>> found;
  double cost = 0.0;
  for (const auto& clique : t.cliques) {
    std::vector<std::size_t> set;
    for (Node* node : clique) set.push_back(graph.position.at(node));
    std::sort(set.begin(), set.end());
    ASSERT_TRUE(found.insert(set).second) << "clique twice";
    cost += node_set_weight(clique);
  }
  EXPECT_EQ(found, maximal_cliques(h));
  EXPECT_DOUBLE_EQ(t.cost, cost);

  if (!minimal) return;
  for (std::size_t i = 0; i < n; ++i)
    for (std::size_t j = i + 1; j < n; ++j)
      if (h[i][j] && !g[i][j]) {
        h[i][j] = h[j][i] = false;
        EXPECT_FALSE(chordal(h)) << "fill-in " << graph.vertices[i]->name() << "-"
                                 << graph.vertices[j]->name() << " is redundant";
        h[i][j] = h[j][i] = true;
      }
}

// A random network of `n` nodes: some continuous (only with continuous
// children), the rest discrete with 1 to 4 states.
std::string random_dag(std::mt19937& rng, int n, bool mixed, double density) {
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  std::vector<bool> continuous(n);
  std::string text;
  for (int i = 0; i < n; ++i) {
    // Continuous nodes come last, so that no discrete node gets a continuous
    // parent.
    continuous[i] = mixed && i >= n / 2 && unit(rng) < 0.7;
    const std::string name = std::string("N") + std::to_string(i);
    if (continuous[i]) {
      text += "continuous node " + name + " { }\n";
    } else {
      text += "node " + name + " { states = (";
      const int states = 1 + static_cast<int>(rng() % 4);
      for (int s = 0; s < states; ++s) text += std::string(" \"s") + std::to_string(s) + "\"";
      text += " ); }\n";
    }
  }
  for (int i = 0; i < n; ++i) {
    std::string discrete_parents, continuous_parents;
    for (int j = 0; j < i; ++j) {
      if (unit(rng) >= density || (continuous[j] && !continuous[i])) continue;
      (continuous[j] ? continuous_parents : discrete_parents) +=
          std::string(" N") + std::to_string(j);
    }
    text += std::string("potential (N") + std::to_string(i) + " |" + discrete_parents +
            continuous_parents + ") { }\n";
  }
  return text;
}

void check_all_methods(const MoralGraph& graph, std::mt19937& rng, const std::string& what) {
  for (k_triangulation_method_t method : {K_TM_CLIQUE_SIZE, K_TM_CLIQUE_WEIGHT, K_TM_FILL_IN_SIZE,
                                          K_TM_FILL_IN_WEIGHT, K_TM_BEST_GREEDY}) {
    CompileLog silent(nullptr);
    check(graph, triangulate(graph, method, silent), true,
          what + " method " + std::to_string(method));
  }
  // A random user order, continuous nodes first.
  std::vector<Node*> order = graph.vertices;
  std::shuffle(order.begin(), order.end(), rng);
  std::partition(order.begin(), order.end(), [](Node* x) { return x->is_continuous(); });
  CompileLog silent(nullptr);
  const Triangulation t = triangulate_by_order(graph, order, silent);
  check(graph, t, false, what + " user order");
  EXPECT_EQ(t.elimination_order, order);

  // The same order thinned: random orders leave many redundant fill-ins.
  EliminationInput input{graph.vertices, graph.neighbours};
  for (auto& list : input.adjacency) std::sort(list.begin(), list.end());
  std::vector<std::uint32_t> positions, rank(graph.size());
  for (Node* node : order) positions.push_back(graph.position.at(node));
  EliminationResult thinned = eliminate_in_order(input, positions, silent, [](std::size_t) {});
  remove_redundant_fill_ins(input, thinned, silent);
  Triangulation as_result;
  auto adjacency = input.adjacency;
  for (auto [a, b] : thinned.fill_ins) {
    adjacency[a].push_back(b);
    adjacency[b].push_back(a);
  }
  std::vector<bool> discrete(graph.size());
  for (std::uint32_t v = 0; v < graph.size(); ++v) {
    std::sort(adjacency[v].begin(), adjacency[v].end());
    for (std::uint32_t w : adjacency[v])
      if (w > v) as_result.links.emplace_back(graph.vertices[v], graph.vertices[w]);
    discrete[v] = graph.vertices[v]->is_discrete();
    rank[positions[v]] = v;
  }
  for (const auto& clique : thinned.cliques) {
    as_result.cliques.emplace_back();
    for (std::uint32_t v : clique) as_result.cliques.back().push_back(graph.vertices[v]);
  }
  as_result.cost = cliques_cost(graph.vertices, thinned.cliques);
  for (std::uint32_t v : chordal_elimination_order(adjacency, discrete, rank))
    as_result.elimination_order.push_back(graph.vertices[v]);
  check(graph, as_result, true, what + " user order thinned");
}

TEST(TriangulationProperty, RandomNetworksAndGraphs) {
  std::mt19937 rng(20261122);
  for (int round = 0; round < 150; ++round) {
    const int n = 2 + static_cast<int>(rng() % 10);
    const bool mixed = round % 3 == 0;
    const double density = 0.15 + 0.1 * (round % 5);
    NetDomain net(random_dag(rng, n, mixed, density));
    MoralGraph graph;
    CompileLog silent(nullptr);
    graph = build_moral_graph(net.domain(), silent);
    check_all_methods(graph, rng, std::string("DAG round ") + std::to_string(round));
    if (HasFatalFailure()) return;
  }
  // Arbitrary undirected graphs over discrete nodes with mixed state counts.
  for (int round = 0; round < 150; ++round) {
    const int n = 3 + static_cast<int>(rng() % 10);
    std::string text;
    std::vector<std::string> names;
    for (int i = 0; i < n; ++i) {
      names.push_back(std::string("V") + std::to_string(i));
      text += test::discrete_nodes({names.back()}, 1 + static_cast<int>(rng() % 3));
    }
    NetDomain net(text);
    std::vector<std::pair<std::string, std::string>> links;
    const double density = 0.2 + 0.1 * (round % 5);
    for (int i = 0; i < n; ++i)
      for (int j = i + 1; j < n; ++j)
        if (std::uniform_real_distribution<double>(0, 1)(rng) < density)
          links.emplace_back(names[i], names[j]);
    const MoralGraph graph = test::graph_with_links(net.domain(), links);
    check_all_methods(graph, rng, std::string("graph round ") + std::to_string(round));
    if (HasFatalFailure()) return;
  }
}

}  // namespace
}  // namespace kelva
