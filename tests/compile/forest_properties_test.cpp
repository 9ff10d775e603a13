// Properties of triangulations and junction forests, checked with graph
// algorithms of this file's own.  The forest is checked from the outside:
// the moral graph is rebuilt here from parents and children, the
// triangulated graph is the union of the cliques read back through the C
// API, and chordality, minimality, running intersection and the elimination
// order are tested, over every shared network and a few networks built here
// (function, utility and continuous nodes, disconnected parts).  Random
// graphs (moral graphs of random DAGs, mixed ones included, and arbitrary
// undirected graphs) are triangulated by every method and by random user
// orders, and checked against a brute-force reading of the result.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <unordered_map>
#include <vector>

#include "common/shared_nets.h"
#include "compile/elimination.h"
#include "compile/fixtures.h"
#include "compile/triangulate.h"
#include "kelva/kelva.h"

namespace kelva::test {
namespace {

// An undirected graph over vertices 0..n-1 with bitset rows.
class Graph {
 public:
  explicit Graph(std::size_t n) : n_(n), words_((n + 63) / 64), bits_(n * words_, 0) {}
  std::size_t size() const { return n_; }
  std::size_t words() const { return words_; }
  bool has(std::size_t u, std::size_t v) const { return (row(u)[v / 64] >> (v % 64)) & 1u; }
  void add(std::size_t u, std::size_t v) {
    if (u == v) return;
    bits_[u * words_ + v / 64] |= uint64_t{1} << (v % 64);
    bits_[v * words_ + u / 64] |= uint64_t{1} << (u % 64);
  }
  void remove(std::size_t u, std::size_t v) {
    bits_[u * words_ + v / 64] &= ~(uint64_t{1} << (v % 64));
    bits_[v * words_ + u / 64] &= ~(uint64_t{1} << (u % 64));
  }
  const uint64_t* row(std::size_t u) const { return &bits_[u * words_]; }
  std::vector<std::size_t> neighbours(std::size_t u) const {
    std::vector<std::size_t> out;
    for (std::size_t w = 0; w < words_; ++w)
      for (uint64_t b = row(u)[w]; b; b &= b - 1)
        out.push_back(w * 64 + static_cast<std::size_t>(__builtin_ctzll(b)));
    return out;
  }

 private:
  std::size_t n_, words_;
  std::vector<uint64_t> bits_;
};

using Bits = std::vector<uint64_t>;

bool subset(const Bits& a, const uint64_t* b) {
  for (std::size_t w = 0; w < a.size(); ++w)
    if (a[w] & ~b[w]) return false;
  return true;
}

std::vector<std::size_t> members_of(const Bits& set) {
  std::vector<std::size_t> out;
  for (std::size_t w = 0; w < set.size(); ++w)
    for (uint64_t b = set[w]; b; b &= b - 1)
      out.push_back(w * 64 + static_cast<std::size_t>(__builtin_ctzll(b)));
  return out;
}

// True when `set` is complete in g.
bool complete(const Graph& g, const Bits& set) {
  for (std::size_t v : members_of(set)) {
    Bits rest = set;
    rest[v / 64] &= ~(uint64_t{1} << (v % 64));
    if (!subset(rest, g.row(v))) return false;
  }
  return true;
}

// True when `order` (first eliminated first) is a perfect elimination
// ordering of g: the later neighbours of each vertex form a complete set.  The
// usual linear test: those neighbours minus the earliest of them must all be
// adjacent to that earliest one.
bool perfect_elimination(const Graph& g, const std::vector<std::size_t>& order) {
  std::vector<std::size_t> pos(g.size());
  for (std::size_t i = 0; i < order.size(); ++i) pos[order[i]] = i;
  for (std::size_t v : order) {
    std::size_t first = g.size();
    Bits later(g.words(), 0);
    for (std::size_t u : g.neighbours(v))
      if (pos[u] > pos[v]) {
        later[u / 64] |= uint64_t{1} << (u % 64);
        if (first == g.size() || pos[u] < pos[first]) first = u;
      }
    if (first == g.size()) continue;
    later[first / 64] &= ~(uint64_t{1} << (first % 64));
    if (!subset(later, g.row(first))) return false;
  }
  return true;
}

// Chordality by maximum cardinality search: g is chordal if and only if the
// reverse of the visiting order is a perfect elimination ordering.
bool chordal(const Graph& g) {
  const std::size_t n = g.size();
  std::vector<std::size_t> weight(n, 0), visit;
  std::vector<bool> done(n, false);
  for (std::size_t step = 0; step < n; ++step) {
    std::size_t best = n;
    for (std::size_t v = 0; v < n; ++v)
      if (!done[v] && (best == n || weight[v] > weight[best])) best = v;
    done[best] = true;
    visit.push_back(best);
    for (std::size_t u : g.neighbours(best))
      if (!done[u]) ++weight[u];
  }
  return perfect_elimination(g, std::vector<std::size_t>(visit.rbegin(), visit.rend()));
}

// The vertices of the moral graph and their links, computed from the network.
struct Moral {
  std::vector<k_node_t> vertices;
  std::unordered_map<k_node_t, std::size_t> index;
  Graph graph{0};
  bool vertex(k_node_t n) const { return index.count(n) != 0; }
};

bool in_forest(k_node_t n) {
  const k_kind_t kind = k_node_get_kind(n);
  return k_node_get_category(n) != K_CATEGORY_INSTANCE &&
         (kind == K_KIND_DISCRETE || kind == K_KIND_CONTINUOUS);
}

Moral moral_graph(k_domain_t domain) {
  Moral m;
  for (k_node_t n : domain_nodes(domain))
    if (in_forest(n)) {
      m.index[n] = m.vertices.size();
      m.vertices.push_back(n);
    }
  m.graph = Graph(m.vertices.size());
  for (k_node_t child : domain_nodes(domain)) {
    const k_category_t category = k_node_get_category(child);
    std::vector<std::size_t> parents;
    for (k_node_t p : node_list(k_node_get_parents(child)))
      if (m.vertex(p)) parents.push_back(m.index[p]);
    // A function node is not linked to its parents, nor are they married.
    if (m.vertex(child) && category != K_CATEGORY_FUNCTION)
      for (std::size_t p : parents) m.graph.add(m.index[child], p);
    if (category == K_CATEGORY_CHANCE || category == K_CATEGORY_DECISION ||
        category == K_CATEGORY_UTILITY)
      for (std::size_t a : parents)
        for (std::size_t b : parents) m.graph.add(a, b);
  }
  // The discrete boundary of every connected set of continuous vertices is
  // made complete.
  const std::size_t n = m.vertices.size();
  auto continuous = [&](std::size_t v) {
    return k_node_get_kind(m.vertices[v]) == K_KIND_CONTINUOUS;
  };
  std::vector<bool> seen(n, false);
  std::vector<std::pair<std::size_t, std::size_t>> fill_ins;
  for (std::size_t start = 0; start < n; ++start) {
    if (!continuous(start) || seen[start]) continue;
    std::vector<std::size_t> stack{start}, boundary;
    std::vector<bool> in_boundary(n, false);
    seen[start] = true;
    while (!stack.empty()) {
      const std::size_t v = stack.back();
      stack.pop_back();
      for (std::size_t u : m.graph.neighbours(v)) {
        if (continuous(u)) {
          if (!seen[u]) seen[u] = true, stack.push_back(u);
        } else if (!in_boundary[u]) {
          in_boundary[u] = true;
          boundary.push_back(u);
        }
      }
    }
    for (std::size_t a : boundary)
      for (std::size_t b : boundary) fill_ins.emplace_back(a, b);
  }
  for (auto [a, b] : fill_ins) m.graph.add(a, b);
  return m;
}

// Connected components of g: a component number per vertex.
std::vector<std::size_t> components(const Graph& g, std::size_t& count) {
  std::vector<std::size_t> comp(g.size(), g.size());
  count = 0;
  for (std::size_t s = 0; s < g.size(); ++s) {
    if (comp[s] != g.size()) continue;
    std::vector<std::size_t> stack{s};
    comp[s] = count;
    while (!stack.empty()) {
      const std::size_t v = stack.back();
      stack.pop_back();
      for (std::size_t u : g.neighbours(v))
        if (comp[u] == g.size()) comp[u] = count, stack.push_back(u);
    }
    ++count;
  }
  return comp;
}

const char* name(k_node_t n) { return k_node_get_name(n); }

// Checks every property of the domain's (fresh) triangulation; returns the
// faults found, one per line, at most a few of each kind.
std::string check_forest(k_domain_t domain, bool direct_minimality) {
  std::ostringstream faults;
  const Moral m = moral_graph(domain);
  const std::size_t n = m.vertices.size();
  const std::size_t words = m.graph.words();

  // The cliques, tree by tree.
  struct CliqueInfo {
    std::size_t tree;
    Bits members;
  };
  std::vector<CliqueInfo> cliques;
  std::unordered_map<k_clique_t, std::size_t> clique_index;
  std::vector<std::vector<std::size_t>> tree_cliques;
  std::vector<k_junction_tree_t> trees;
  for (k_junction_tree_t jt = k_domain_get_first_junction_tree(domain); jt;
       jt = k_jt_get_next(jt)) {
    trees.push_back(jt);
    tree_cliques.emplace_back();
    for (k_clique_t* c = k_jt_get_cliques(jt); c && *c; ++c) {
      Bits members(words, 0);
      for (k_node_t x : node_list(k_clique_get_members(*c))) {
        if (!m.vertex(x)) {
          faults << "clique member " << name(x) << " is no vertex of the moral graph\n";
          continue;
        }
        const std::size_t v = m.index.at(x);
        if (members[v / 64] >> (v % 64) & 1u) faults << "clique lists " << name(x) << " twice\n";
        members[v / 64] |= uint64_t{1} << (v % 64);
      }
      clique_index[*c] = cliques.size();
      tree_cliques.back().push_back(cliques.size());
      cliques.push_back({trees.size() - 1, std::move(members)});
    }
    if (tree_cliques.back().empty()) faults << "a junction tree without cliques\n";
  }
  if (!faults.str().empty()) return faults.str();

  // Each tree is a tree over its cliques; count the tree edges over each
  // vertex for the running-intersection test below.
  std::vector<std::size_t> cliques_with(n, 0), edges_with(n, 0), tree_of(n, trees.size());
  for (std::size_t t = 0; t < trees.size(); ++t) {
    const std::vector<std::size_t>& own = tree_cliques[t];
    std::size_t edges = 0;
    std::vector<bool> reached(cliques.size(), false);
    std::vector<std::vector<std::size_t>> adjacent(cliques.size());
    for (k_clique_t* c = k_jt_get_cliques(trees[t]); *c; ++c) {
      const std::size_t a = clique_index[*c];
      if (k_clique_get_junction_tree(*c) != trees[t]) faults << "clique names another tree\n";
      for (k_clique_t* d = k_clique_get_neighbors(*c); d && *d; ++d) {
        auto found = clique_index.find(*d);
        if (found == clique_index.end() || cliques[found->second].tree != t) {
          faults << "a clique's neighbour is outside its tree\n";
          continue;
        }
        adjacent[a].push_back(found->second);
        if (a < found->second) {
          ++edges;
          Bits both = cliques[a].members;
          for (std::size_t w = 0; w < words; ++w) both[w] &= cliques[found->second].members[w];
          for (std::size_t v : members_of(both)) ++edges_with[v];
        }
      }
    }
    for (std::size_t a : own)
      for (std::size_t b : adjacent[a])
        if (std::count(adjacent[b].begin(), adjacent[b].end(), a) != 1)
          faults << "clique links are not symmetric or are repeated\n";
    const std::size_t root = clique_index.count(k_jt_get_root(trees[t]))
                                 ? clique_index[k_jt_get_root(trees[t])]
                                 : cliques.size();
    if (root == cliques.size() || cliques[root].tree != t) {
      faults << "the root is not a clique of its tree\n";
      continue;
    }
    std::vector<std::size_t> stack{root};
    reached[root] = true;
    std::size_t count = 1;
    while (!stack.empty()) {
      const std::size_t a = stack.back();
      stack.pop_back();
      for (std::size_t b : adjacent[a])
        if (!reached[b]) reached[b] = true, ++count, stack.push_back(b);
    }
    if (count != own.size() || edges + 1 != own.size())
      faults << "tree " << t << " with " << own.size() << " cliques has " << edges
             << " links and reaches " << count << " from its root\n";
    for (std::size_t a : own)
      for (std::size_t v : members_of(cliques[a].members)) {
        ++cliques_with[v];
        if (tree_of[v] != trees.size() && tree_of[v] != t)
          faults << name(m.vertices[v]) << " is in two trees\n";
        tree_of[v] = t;
      }
  }
  // Running intersection: the cliques that hold a vertex span a subtree.
  for (std::size_t v = 0; v < n; ++v) {
    if (cliques_with[v] == 0) faults << name(m.vertices[v]) << " is in no clique\n";
    else if (cliques_with[v] != edges_with[v] + 1)
      faults << "the cliques holding " << name(m.vertices[v]) << " are not connected\n";
  }

  // No clique lies within another.
  for (std::size_t a = 0; a < cliques.size(); ++a)
    for (std::size_t b = 0; b < cliques.size(); ++b)
      if (a != b && cliques[a].tree == cliques[b].tree &&
          subset(cliques[a].members, cliques[b].members.data()))
        faults << "clique " << a << " lies within clique " << b << "\n";

  // Every family lies in a clique of the tree that holds the node's table.
  for (k_node_t x : domain_nodes(domain)) {
    const k_category_t category = k_node_get_category(x);
    if (category == K_CATEGORY_FUNCTION || category == K_CATEGORY_INSTANCE) continue;
    if (category != K_CATEGORY_UTILITY && !m.vertex(x)) continue;
    Bits family(words, 0);
    if (m.vertex(x)) family[m.index.at(x) / 64] |= uint64_t{1} << (m.index.at(x) % 64);
    for (k_node_t p : node_list(k_node_get_parents(x)))
      if (m.vertex(p)) family[m.index.at(p) / 64] |= uint64_t{1} << (m.index.at(p) % 64);
    if (members_of(family).empty()) continue;
    const k_junction_tree_t home = k_node_get_junction_tree(x);
    bool covered = false;
    for (const CliqueInfo& c : cliques)
      covered = covered || (trees[c.tree] == home && subset(family, c.members.data()));
    if (!covered) faults << "the family of " << name(x) << " lies in no clique of its tree\n";
  }

  // The triangulated graph: chordal, holding the moral graph, and minimal.
  Graph tri(n);
  for (const CliqueInfo& c : cliques) {
    const std::vector<std::size_t> vs = members_of(c.members);
    for (std::size_t a : vs)
      for (std::size_t b : vs) tri.add(a, b);
  }
  for (std::size_t u = 0; u < n; ++u)
    for (std::size_t v : m.graph.neighbours(u))
      if (!tri.has(u, v))
        faults << "moral link " << name(m.vertices[u]) << " - " << name(m.vertices[v])
               << " lies in no clique\n";
  if (!chordal(tri)) faults << "the triangulated graph is not chordal\n";
  // A link of a chordal graph can go with the graph staying chordal exactly
  // when the common neighbours of its ends are complete.
  std::size_t redundant = 0;
  for (std::size_t u = 0; u < n; ++u)
    for (std::size_t v : tri.neighbours(u)) {
      if (v <= u || m.graph.has(u, v)) continue;
      Bits common(words);
      for (std::size_t w = 0; w < words; ++w) common[w] = tri.row(u)[w] & tri.row(v)[w];
      const bool removable = complete(tri, common);
      if (direct_minimality) {
        Graph without = tri;
        without.remove(u, v);
        if (chordal(without) != removable) faults << "the two minimality tests disagree\n";
      }
      if (removable && ++redundant <= 3)
        faults << "fill-in " << name(m.vertices[u]) << " - " << name(m.vertices[v])
               << " is redundant\n";
    }

  // The elimination order: every vertex once, continuous ones first, and a
  // perfect elimination ordering of the triangulated graph.
  std::vector<std::size_t> order;
  std::vector<bool> listed(n, false);
  bool discrete_seen = false;
  for (k_node_t x : node_list(k_domain_get_elimination_order(domain))) {
    if (!m.vertex(x) || listed[m.index.at(x)]) {
      faults << "the elimination order holds " << name(x) << " wrongly\n";
      continue;
    }
    const std::size_t v = m.index.at(x);
    listed[v] = true;
    order.push_back(v);
    if (k_node_get_kind(x) == K_KIND_CONTINUOUS && discrete_seen)
      faults << "continuous " << name(x) << " is eliminated after a discrete node\n";
    discrete_seen = discrete_seen || k_node_get_kind(x) == K_KIND_DISCRETE;
  }
  if (order.size() != n)
    faults << "the elimination order has " << order.size() << " of " << n << " vertices\n";
  else if (!perfect_elimination(tri, order))
    faults << "the elimination order is no perfect elimination ordering\n";

  // One tree per connected component of the moral graph.
  std::size_t count = 0;
  const std::vector<std::size_t> comp = components(m.graph, count);
  if (count != trees.size()) faults << count << " components but " << trees.size() << " trees\n";
  std::vector<std::size_t> tree_of_comp(count, trees.size());
  for (std::size_t v = 0; v < n; ++v) {
    if (tree_of[v] == trees.size()) continue;
    if (tree_of_comp[comp[v]] == trees.size()) tree_of_comp[comp[v]] = tree_of[v];
    else if (tree_of_comp[comp[v]] != tree_of[v])
      faults << "a connected component is split over two trees\n";
  }
  return faults.str();
}

// The graph tests themselves must see the faults they look for.
TEST(ForestProperties, GraphTestsSeeFaults) {
  Graph square(4);  // 0-1-2-3-0
  for (std::size_t i = 0; i < 4; ++i) square.add(i, (i + 1) % 4);
  EXPECT_FALSE(chordal(square));
  Graph split = square;
  split.add(0, 2);
  EXPECT_TRUE(chordal(split));
  EXPECT_TRUE(perfect_elimination(split, {1, 3, 0, 2}));
  EXPECT_FALSE(perfect_elimination(split, {0, 1, 2, 3}));
  // With both chords of the square, either one is redundant: the common
  // neighbours of its ends are complete.
  Graph both = split;
  both.add(1, 3);
  Bits common(1, both.row(0)[0] & both.row(2)[0]);
  EXPECT_TRUE(complete(both, common));
  common[0] = split.row(0)[0] & split.row(2)[0];
  EXPECT_FALSE(complete(split, common));
}

const k_triangulation_method_t kMethods[] = {
    K_TM_CLIQUE_SIZE, K_TM_CLIQUE_WEIGHT, K_TM_FILL_IN_SIZE, K_TM_FILL_IN_WEIGHT, K_TM_BEST_GREEDY};

// The sum over the cliques of their numbers of discrete configurations.
double clique_cost(k_domain_t domain) {
  double cost = 0.0;
  for (k_junction_tree_t jt = k_domain_get_first_junction_tree(domain); jt; jt = k_jt_get_next(jt))
    for (k_clique_t* c = k_jt_get_cliques(jt); *c; ++c) {
      double size = 1.0;
      for (k_node_t x : node_list(k_clique_get_members(*c)))
        if (k_node_get_kind(x) == K_KIND_DISCRETE)
          size *= static_cast<double>(k_node_get_number_of_states(x));
      cost += size;
    }
  return cost;
}

// Checks the forest of every method; on a discrete network best greedy must
// also cost no more than any single heuristic.
void check_all_methods(k_domain_t domain, const std::string& what, bool direct_minimality) {
  bool discrete = true;
  for (k_node_t n : domain_nodes(domain))
    discrete = discrete && k_node_get_kind(n) != K_KIND_CONTINUOUS;
  double cheapest_single = 0.0, best_greedy = 0.0;
  for (k_triangulation_method_t method : kMethods) {
    SCOPED_TRACE(what + ", method " + std::to_string(method));
    ASSERT_EQ(k_domain_triangulate(domain, method), 0) << k_error_name(k_error_code());
    EXPECT_EQ(check_forest(domain, direct_minimality), "");
    check_forest_records(capi::get(domain));
    const double cost = clique_cost(domain);
    if (method == K_TM_BEST_GREEDY) best_greedy = cost;
    else if (cheapest_single == 0.0 || cost < cheapest_single) cheapest_single = cost;
    ASSERT_EQ(k_domain_uncompile(domain), 0);
  }
  if (discrete) {
    EXPECT_LE(best_greedy, cheapest_single) << what;
  }
}

TEST(ForestProperties, SharedNetworks) {
  const auto nets = shared_nets_for_sweeps();
  if (nets.empty()) GTEST_SKIP() << "no shared networks in " << shared_dir() / "nets";
  std::string refused;
  for (const auto& file : nets) {
    DomainHandle domain(parse_net_quietly(file));
    if (!domain) {
      (refused += ' ') += file.filename().string();
      continue;
    }
    const auto start = std::chrono::steady_clock::now();
    check_all_methods(domain.get(), file.filename().string(),
                      domain_nodes(domain.get()).size() <= 40);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    std::printf("  %-36s %7.3f s\n", file.filename().string().c_str(), took.count());
  }
  std::printf("  refused by the reader:%s\n", refused.c_str());
}

// Small networks of our own that the shared ones lack: a discrete function
// node, a utility node with unlinked parents, continuous nodes whose discrete
// boundary needs linking, two unconnected parts, a lone node.
k_node_t add(k_domain_t d, k_category_t category, k_kind_t kind, const char* node_name,
             std::vector<k_node_t> parents) {
  k_node_t n = k_domain_new_node(d, category, kind,
                                 kind == K_KIND_DISCRETE ? K_SUBTYPE_LABEL : K_SUBTYPE_ERROR);
  EXPECT_NE(n, nullptr) << node_name << ": " << k_error_name(k_error_code());
  if (kind == K_KIND_DISCRETE) k_node_set_number_of_states(n, 2 + std::strlen(node_name) % 2);
  k_node_set_name(n, node_name);
  for (k_node_t p : parents) EXPECT_EQ(k_node_add_parent(n, p), 0) << node_name;
  return n;
}

TEST(ForestProperties, OwnNetworks) {
  {
    DomainHandle d(k_new_domain());
    k_node_t a = add(d.get(), K_CATEGORY_CHANCE, K_KIND_DISCRETE, "A", {});
    k_node_t b = add(d.get(), K_CATEGORY_CHANCE, K_KIND_DISCRETE, "B", {});
    k_node_t c = add(d.get(), K_CATEGORY_CHANCE, K_KIND_DISCRETE, "C", {a});
    k_node_t f = add(d.get(), K_CATEGORY_FUNCTION, K_KIND_DISCRETE, "F", {b, c});
    k_node_t e = add(d.get(), K_CATEGORY_CHANCE, K_KIND_DISCRETE, "E", {f});
    add(d.get(), K_CATEGORY_DECISION, K_KIND_DISCRETE, "D", {e});
    add(d.get(), K_CATEGORY_UTILITY, K_KIND_OTHER, "U", {a, e});
    add(d.get(), K_CATEGORY_CHANCE, K_KIND_DISCRETE, "Lone", {});
    check_all_methods(d.get(), "function and utility nodes", true);
  }
  {
    // D1 - X1 - X2 - D2 with X continuous: D1 and D2 must be linked.
    DomainHandle d(k_new_domain());
    k_node_t d1 = add(d.get(), K_CATEGORY_CHANCE, K_KIND_DISCRETE, "D1", {});
    k_node_t d2 = add(d.get(), K_CATEGORY_CHANCE, K_KIND_DISCRETE, "D2", {});
    k_node_t d3 = add(d.get(), K_CATEGORY_CHANCE, K_KIND_DISCRETE, "D3", {d1});
    k_node_t x1 = add(d.get(), K_CATEGORY_CHANCE, K_KIND_CONTINUOUS, "X1", {d1});
    k_node_t x2 = add(d.get(), K_CATEGORY_CHANCE, K_KIND_CONTINUOUS, "X2", {x1, d2});
    add(d.get(), K_CATEGORY_CHANCE, K_KIND_CONTINUOUS, "X3", {x2, d3});
    add(d.get(), K_CATEGORY_CHANCE, K_KIND_DISCRETE, "Other", {});
    check_all_methods(d.get(), "continuous nodes", true);
  }
}

// The maximal cliques of a graph of at most 32 vertices, as sorted lists.
std::set<std::vector<std::size_t>> maximal_cliques(const Graph& g) {
  std::set<std::vector<std::size_t>> result;
  for (uint64_t bits = 1; bits < (uint64_t{1} << g.size()); ++bits) {
    const Bits set{bits};
    bool maximal = complete(g, set);
    for (std::size_t v = 0; v < g.size() && maximal; ++v)
      maximal = (bits >> v & 1u) || !subset(set, g.row(v));
    if (maximal) result.insert(members_of(set));
  }
  return result;
}

// Checks one triangulation of `graph` (of at most 32 vertices); `minimal`
// for the greedy methods.
void check(const MoralGraph& graph, const Triangulation& t, bool minimal, const std::string& what) {
  SCOPED_TRACE(what);
  const std::size_t n = graph.size();
  Graph g(n), h(n);
  for (std::size_t v = 0; v < n; ++v)
    for (std::uint32_t w : graph.neighbours[v]) g.add(v, w);
  std::set<std::pair<std::size_t, std::size_t>> seen;
  for (auto [a, b] : t.links) {
    const std::size_t i = graph.position.at(a), j = graph.position.at(b);
    ASSERT_NE(i, j);
    ASSERT_TRUE(seen.insert({std::min(i, j), std::max(i, j)}).second) << "link twice";
    h.add(i, j);
  }
  for (std::size_t v = 0; v < n; ++v)
    ASSERT_TRUE(subset(Bits{g.row(v)[0]}, h.row(v))) << "moral link lost";
  ASSERT_TRUE(chordal(h));

  // The order is a perfect elimination ordering, continuous vertices first.
  ASSERT_EQ(t.elimination_order.size(), n);
  std::vector<std::size_t> order;
  bool discrete_seen = false;
  for (Node* node : t.elimination_order) {
    order.push_back(graph.position.at(node));
    ASSERT_EQ(std::count(order.begin(), order.end(), order.back()), 1) << "vertex twice";
    discrete_seen = discrete_seen || node->is_discrete();
    ASSERT_FALSE(discrete_seen && node->is_continuous()) << "continuous after discrete";
  }
  ASSERT_TRUE(perfect_elimination(h, order));

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
    for (std::size_t j : h.neighbours(i))
      if (j > i && !g.has(i, j)) {
        h.remove(i, j);
        EXPECT_FALSE(chordal(h)) << "fill-in " << graph.vertices[i]->name() << "-"
                                 << graph.vertices[j]->name() << " is redundant";
        h.add(i, j);
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

void check_triangulations(const MoralGraph& graph, std::mt19937& rng, const std::string& what) {
  for (k_triangulation_method_t method : kMethods) {
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
    check_triangulations(graph, rng, std::string("DAG round ") + std::to_string(round));
    if (HasFatalFailure()) return;
  }
  // Arbitrary undirected graphs over discrete nodes with mixed state counts.
  for (int round = 0; round < 150; ++round) {
    const int n = 3 + static_cast<int>(rng() % 10);
    std::string text;
    std::vector<std::string> names;
    for (int i = 0; i < n; ++i) {
      names.push_back(std::string("V") + std::to_string(i));
      text += discrete_nodes({names.back()}, 1 + static_cast<int>(rng() % 3));
    }
    NetDomain net(text);
    std::vector<std::pair<std::string, std::string>> links;
    const double density = 0.2 + 0.1 * (round % 5);
    for (int i = 0; i < n; ++i)
      for (int j = i + 1; j < n; ++j)
        if (std::uniform_real_distribution<double>(0, 1)(rng) < density)
          links.emplace_back(names[i], names[j]);
    const MoralGraph graph = graph_with_links(net.domain(), links);
    check_triangulations(graph, rng, std::string("graph round ") + std::to_string(round));
    if (HasFatalFailure()) return;
  }
}

}  // namespace
}  // namespace kelva::test
