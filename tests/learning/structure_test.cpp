// Structure learning against oracles: PC with d-separation in place of the
// data test, Chow-Liu against every spanning tree, the greedy scores against
// the engine's own log-likelihood, and refusals that change nothing.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <random>
#include <set>
#include <tuple>
#include <utility>
#include <vector>

#include "common/random_network.h"
#include "kelva/kelva.h"
#include "learning/npc.h"
#include "learning/pdag.h"
#include "network/domain.h"
#include "network/node.h"
#include "structure/graph_queries.h"

namespace kelva {
namespace {

using Parents = std::vector<std::vector<std::size_t>>;

Parents random_dag(std::mt19937& rng, std::size_t n) {
  std::vector<std::size_t> order(n);
  for (std::size_t i = 0; i < n; ++i) order[i] = i;
  std::shuffle(order.begin(), order.end(), rng);
  const double density = 0.2 + 0.1 * static_cast<double>(rng() % 4);
  Parents parents(n);
  for (std::size_t i = 0; i < n; ++i)
    for (std::size_t j = i + 1; j < n; ++j)
      if (std::uniform_real_distribution<double>(0, 1)(rng) < density)
        parents[order[j]].push_back(order[i]);
  return parents;
}

bool acyclic(const Parents& parents) {
  const std::size_t n = parents.size();
  std::vector<int> state(n, 0);
  std::vector<std::size_t> done;
  for (std::size_t round = 0; round < n; ++round)
    for (std::size_t v = 0; v < n; ++v)
      if (state[v] == 0 && std::all_of(parents[v].begin(), parents[v].end(),
                                       [&](std::size_t p) { return state[p] == 1; }))
        state[v] = 1;
  return std::all_of(state.begin(), state.end(), [](int s) { return s == 1; });
}

std::set<std::tuple<std::size_t, std::size_t, std::size_t>> v_structures(const Parents& parents) {
  std::set<std::tuple<std::size_t, std::size_t, std::size_t>> out;
  auto linked = [&](std::size_t a, std::size_t b) {
    return std::count(parents[a].begin(), parents[a].end(), b) +
               std::count(parents[b].begin(), parents[b].end(), a) >
           0;
  };
  for (std::size_t z = 0; z < parents.size(); ++z)
    for (std::size_t x : parents[z])
      for (std::size_t y : parents[z])
        if (x < y && !linked(x, y)) out.insert({x, z, y});
  return out;
}

// The equivalence class by brute force: every orientation of the skeleton
// that is acyclic and has the same v-structures; an edge is directed when
// all of them agree.  Result: head[i][j] as in Pdag.
Pdag cpdag_by_enumeration(const Parents& dag) {
  const std::size_t n = dag.size();
  std::vector<std::pair<std::size_t, std::size_t>> edges;
  for (std::size_t v = 0; v < n; ++v)
    for (std::size_t p : dag[v]) edges.emplace_back(p, v);
  const auto target = v_structures(dag);
  std::vector<int> forward(edges.size(), 0), backward(edges.size(), 0);
  for (std::size_t mask = 0; mask < (std::size_t{1} << edges.size()); ++mask) {
    Parents g(n);
    for (std::size_t e = 0; e < edges.size(); ++e) {
      const auto [a, b] = edges[e];
      if ((mask >> e) & 1) g[a].push_back(b);
      else g[b].push_back(a);
    }
    if (!acyclic(g) || v_structures(g) != target) continue;
    for (std::size_t e = 0; e < edges.size(); ++e) ((mask >> e) & 1 ? backward : forward)[e] = 1;
  }
  Pdag out(n);
  for (std::size_t e = 0; e < edges.size(); ++e) {
    const auto [a, b] = edges[e];
    out.link(a, b);
    if (!backward[e]) out.orient(a, b);
  }
  return out;
}

TEST(StructureLearning, PcWithDSeparationOracleFindsTheEquivalenceClass) {
  std::mt19937 rng(20);
  for (int round = 0; round < 200; ++round) {
    const std::size_t n = 3 + rng() % 5;
    const Parents dag = random_dag(rng, n);
    k_domain_t domain = k_new_domain();
    std::vector<Node*> nodes;
    for (std::size_t i = 0; i < n; ++i)
      nodes.push_back(reinterpret_cast<Node*>(
          k_domain_new_node(domain, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL)));
    for (std::size_t v = 0; v < n; ++v)
      for (std::size_t p : dag[v])
        ASSERT_EQ(k_node_add_parent(reinterpret_cast<k_node_t>(nodes[v]),
                                    reinterpret_cast<k_node_t>(nodes[p])),
                  0);
    const Domain& d = *reinterpret_cast<Domain*>(domain);
    const std::vector<Node*> chain = chain_nodes(d);
    auto separated = [&](std::size_t x, std::size_t y, const std::vector<std::size_t>& s) {
      std::vector<const Node*> given;
      for (std::size_t v : s) given.push_back(nodes[v]);
      const BallMarks marks = bayes_ball(d, {nodes[x]}, given, {});
      const auto at = std::find(chain.begin(), chain.end(), nodes[y]) - chain.begin();
      return !marks.connected[static_cast<std::size_t>(at)];
    };
    const Pdag found = pc_stable(n, separated, EdgeRules(n));
    // Sepsets from a d-separation oracle are minimal, so they meet the
    // necessary path condition: NPC finds nothing uncertain and equals PC.
    const NpcAnalysis npc = npc_analyse(n, separated, EdgeRules(n));
    EXPECT_TRUE(npc.uncertain.empty()) << round;
    const Pdag same = npc_pdag(npc, {}, EdgeRules(n));
    EXPECT_TRUE(same.adj == found.adj && same.head == found.head) << round;
    const Pdag truth = cpdag_by_enumeration(dag);
    EXPECT_EQ(found.adj, truth.adj) << "round " << round;
    for (std::size_t i = 0; i < n; ++i)
      for (std::size_t j = 0; j < n; ++j)
        EXPECT_EQ(found.directed(i, j), truth.directed(i, j)) << round << ": " << i << "->" << j;
    // Every extension is a member of the class.
    const Parents ext = extend_to_dag(found);
    EXPECT_TRUE(acyclic(ext));
    EXPECT_EQ(v_structures(ext), v_structures(dag));
    k_domain_delete(domain);
  }
  // Contradictory edges (a directed cycle) have no extension: the edges go
  // in one by one, each closing no cycle (2 -> 0 is dropped, 3 - 4 turned).
  Pdag odd(6);
  for (auto [i, j] : {std::pair<std::size_t, std::size_t>{0, 1}, {1, 2}, {2, 0}, {4, 5}, {5, 3}}) {
    odd.link(i, j);
    odd.orient(i, j);
  }
  odd.link(3, 4);
  EXPECT_EQ(extend_to_dag(odd), (Parents{{}, {0}, {1}, {5, 4}, {}, {4}}));
}

// Cases drawn from a random network into its own case store; `hide` is the
// share of items left unset.  Returns the items (-1: unset) by node.
std::vector<std::vector<int>> sample_cases(test::RandomNetwork& net, std::size_t cases,
                                           unsigned seed, double hide = 0.0) {
  EXPECT_EQ(k_domain_compile(net.domain), 0);
  k_domain_seed_random(net.domain, seed);
  std::mt19937 rng(seed);
  std::vector<std::vector<int>> items(net.nodes.size(), std::vector<int>(cases, -1));
  k_domain_set_number_of_cases(net.domain, cases);
  for (std::size_t c = 0; c < cases; ++c) {
    EXPECT_EQ(k_domain_simulate(net.domain), 0);
    for (std::size_t v = 0; v < net.nodes.size(); ++v) {
      if (std::uniform_real_distribution<double>(0, 1)(rng) < hide) continue;
      items[v][c] = static_cast<int>(k_node_get_sampled_state(net.nodes[v]));
      k_node_set_case_state(net.nodes[v], c, static_cast<k_size_t>(items[v][c]));
    }
  }
  return items;
}

Parents links(const test::RandomNetwork& net) {
  Parents out(net.nodes.size());
  for (std::size_t v = 0; v < net.nodes.size(); ++v)
    for (k_node_t* p = k_node_get_parents(net.nodes[v]); *p != nullptr; ++p)
      out[v].push_back(static_cast<std::size_t>(std::find(net.nodes.begin(), net.nodes.end(), *p) -
                                                net.nodes.begin()));
  return out;
}

// The score of a network counted straight from the items (complete data).
double direct_score(const std::vector<std::vector<int>>& items, const std::vector<int>& states,
                    const Parents& g, k_score_t kind) {
  const std::size_t cases = items[0].size();
  double total = 0.0;
  for (std::size_t v = 0; v < g.size(); ++v) {
    std::map<std::vector<int>, std::vector<double>> rows;
    for (std::size_t c = 0; c < cases; ++c) {
      std::vector<int> config;
      for (std::size_t p : g[v]) config.push_back(items[p][c]);
      auto& row = rows[config];
      row.resize(static_cast<std::size_t>(states[v]), 0.0);
      row[static_cast<std::size_t>(items[v][c])] += 1.0;
    }
    for (const auto& [config, row] : rows) {
      double n = 0.0;
      for (double x : row) n += x;
      for (double x : row)
        if (x > 0) total += x * std::log(x / n);
    }
    double q = 1.0;
    for (std::size_t p : g[v]) q *= states[p];
    const double params = (states[v] - 1) * q;
    total -= kind == K_SCORE_AIC   ? params
             : kind == K_SCORE_BIC ? 0.5 * params * std::log(cases)
                                   : 0;
  }
  return total;
}

TEST(StructureLearning, GreedyScoresAreExactNeverFallAndEndInALocalOptimum) {
  // Seeds whose networks vary in every node (zero table entries can make
  // a node constant, which learning refuses).
  for (unsigned seed : {1u, 3u, 4u}) {
    test::RandomNetwork net = test::random_network(seed, 6);
    const auto items = sample_cases(net, 1500, seed);
    std::vector<int> states;
    for (k_node_t n : net.nodes) states.push_back(static_cast<int>(k_node_get_number_of_states(n)));
    for (k_score_t kind : {K_SCORE_BIC, K_SCORE_AIC}) {
      // From the current links (the true ones at first) the search never
      // ends below where it started.
      const double at_start = direct_score(items, states, links(net), kind);
      EXPECT_NEAR(k_domain_get_structure_score(net.domain, kind), at_start,
                  1e-8 * std::fabs(at_start));
      ASSERT_EQ(k_domain_learn_greedy_structure(net.domain, kind, 0, 0, 1), 0);
      const Parents found = links(net);
      const double score = direct_score(items, states, found, kind);
      EXPECT_GE(score, at_start - 1e-9 * std::fabs(at_start));
      EXPECT_NEAR(k_domain_get_structure_score(net.domain, kind), score, 1e-8 * std::fabs(score));
      // No single addition, deletion or reversal improves the result.
      for (std::size_t i = 0; i < found.size(); ++i)
        for (std::size_t j = 0; j < found.size(); ++j) {
          if (i == j) continue;
          Parents g = found;
          auto& pj = g[j];
          const auto at = std::find(pj.begin(), pj.end(), i);
          if (at != pj.end()) {
            pj.erase(at);
            EXPECT_LE(direct_score(items, states, g, kind), score + 1e-9 * std::fabs(score));
            g[i].push_back(j);
          } else if (std::count(g[i].begin(), g[i].end(), j) == 0) {
            pj.push_back(i);
          } else {
            continue;
          }
          if (acyclic(g)) {
            EXPECT_LE(direct_score(items, states, g, kind), score + 1e-9 * std::fabs(score));
          }
        }
      // Tabu steps and restarts only add to the first climb's optimum.
      ASSERT_EQ(k_domain_learn_greedy_structure(net.domain, kind, 0, 0, 0), 0);
      const double plain = k_domain_get_structure_score(net.domain, kind);
      ASSERT_EQ(k_domain_learn_greedy_structure(net.domain, kind, 8, 3, 0), 0);
      EXPECT_GE(k_domain_get_structure_score(net.domain, kind), plain - 1e-9 * std::fabs(plain));
    }
    // BIC as the engine computes it from maximum-likelihood tables.
    for (k_node_t n : net.nodes) k_node_get_experience_table(n);
    ASSERT_EQ(k_domain_compile(net.domain), 0);
    k_domain_set_max_number_of_em_iterations(net.domain, 1);
    ASSERT_EQ(k_domain_learn_tables(net.domain), 0);
    EXPECT_NEAR(k_domain_get_bic(net.domain), k_domain_get_structure_score(net.domain, K_SCORE_BIC),
                1e-8 * std::fabs(k_domain_get_bic(net.domain)));
    k_domain_delete(net.domain);
  }
}

// Mutual information of two item columns, counted directly.
double direct_mi(const std::vector<int>& a, const std::vector<int>& b) {
  std::map<std::pair<int, int>, double> joint;
  std::map<int, double> ma, mb;
  for (std::size_t c = 0; c < a.size(); ++c) {
    joint[{a[c], b[c]}] += 1;
    ma[a[c]] += 1;
    mb[b[c]] += 1;
  }
  const double n = static_cast<double>(a.size());
  double mi = 0.0;
  for (const auto& [k, x] : joint) mi += x / n * std::log(x * n / (ma[k.first] * mb[k.second]));
  return mi;
}

TEST(StructureLearning, ChowLiuIsTheMaximumSpanningTreeOfMutualInformation) {
  for (unsigned seed : {4u, 6u, 7u, 8u, 15u}) {
    test::RandomNetwork net = test::random_network(seed, 6);
    const auto items = sample_cases(net, 800, seed);
    const std::size_t n = net.nodes.size();
    ASSERT_EQ(k_domain_learn_tree_structure(net.domain, net.nodes[2], nullptr), 0);
    const Parents tree = links(net);
    double learned = 0.0;
    for (std::size_t v = 0; v < n; ++v) {
      EXPECT_EQ(tree[v].size(), v == 2 ? 0u : 1u);
      for (std::size_t p : tree[v]) learned += direct_mi(items[v], items[p]);
    }
    // Every labelled tree on n nodes, by its Prüfer sequence.
    double best = -1.0;
    std::vector<std::size_t> code(n - 2, 0);
    while (true) {
      std::vector<std::size_t> degree(n, 1);
      for (std::size_t c : code) ++degree[c];
      double w = 0.0;
      for (std::size_t c : code) {
        std::size_t leaf = 0;
        while (degree[leaf] != 1) ++leaf;
        w += direct_mi(items[leaf], items[c]);
        --degree[leaf];
        --degree[c];
      }
      std::vector<std::size_t> last;
      for (std::size_t v = 0; v < n; ++v)
        if (degree[v] == 1) last.push_back(v);
      best = std::max(best, w + direct_mi(items[last[0]], items[last[1]]));
      std::size_t k = 0;
      while (k < code.size() && ++code[k] == n) code[k++] = 0;
      if (k == code.size()) break;
    }
    EXPECT_NEAR(learned, best, 1e-12);
    // The classifier: the target is a parent of every other node, which
    // has at most one more.
    ASSERT_EQ(k_domain_learn_tree_structure(net.domain, net.nodes[0], net.nodes[5]), 0);
    const Parents tan = links(net);
    for (std::size_t v = 0; v < 5; ++v) {
      EXPECT_EQ(std::count(tan[v].begin(), tan[v].end(), 5u), 1);
      EXPECT_EQ(tan[v].size(), v == 0 ? 1u : 2u);
    }
    k_domain_delete(net.domain);
  }
}

TEST(StructureLearning, ConstraintsMissingItemsAndRefusals) {
  test::RandomNetwork net = test::random_network(18, 6);
  const Parents truth = links(net);
  sample_cases(net, 2000, 18, 0.15);
  k_node_t* v = net.nodes.data();
  // A forbidden pair, a required pair and a required direction hold for
  // every learner.
  ASSERT_EQ(k_node_set_edge_constraint(v[0], v[1], K_EDGE_CONSTRAINT_FORBIDDEN), 0);
  ASSERT_EQ(k_node_set_edge_constraint(v[2], v[5], K_EDGE_CONSTRAINT_REQUIRED), 0);
  ASSERT_EQ(k_node_set_edge_constraint(v[4], v[3], K_EDGE_CONSTRAINT_FORWARD), 0);
  EXPECT_EQ(k_node_get_edge_constraint(v[3], v[4]), K_EDGE_CONSTRAINT_BACKWARD);
  EXPECT_EQ(k_node_get_edge_constraint(v[1], v[0]), K_EDGE_CONSTRAINT_FORBIDDEN);
  auto linked = [&](std::size_t a, std::size_t b, const Parents& g) {
    return std::count(g[b].begin(), g[b].end(), a) > 0;
  };
  for (int learner = 0; learner < 4; ++learner) {
    const int status = learner == 0 ? k_domain_learn_structure(net.domain)
                       : learner == 1
                           ? k_domain_learn_greedy_structure(net.domain, K_SCORE_BIC, 3, 1, 0)
                       : learner == 3 ? k_domain_learn_structure_npc(net.domain)
                                      : 0;
    ASSERT_EQ(status, 0) << learner;
    if (learner == 2) {
      ASSERT_EQ(k_node_set_edge_constraint(v[4], v[3], K_EDGE_CONSTRAINT_NONE), 0);
      ASSERT_EQ(k_domain_learn_tree_structure(net.domain, v[2], nullptr), 0);
    }
    const Parents g = links(net);
    EXPECT_TRUE(acyclic(g)) << learner;
    EXPECT_FALSE(linked(0, 1, g) || linked(1, 0, g)) << learner;
    EXPECT_TRUE(linked(2, 5, g) || linked(5, 2, g)) << learner;
    EXPECT_TRUE(learner >= 2 || linked(4, 3, g)) << learner;
  }
  // A classifier with target 0 would need the forbidden link 0 -> 1.
  EXPECT_NE(k_domain_learn_tree_structure(net.domain, v[2], v[0]), 0);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  // PDAG queries agree with the installed links.
  ASSERT_EQ(k_domain_learn_structure(net.domain), 0);
  const Parents g = links(net);
  for (std::size_t x = 0; x < 6; ++x)
    for (k_node_t* p = k_node_get_pdag_parents(v[x]); *p != nullptr; ++p)
      EXPECT_TRUE(std::count(g[x].begin(), g[x].end(), std::find(v, v + 6, *p) - v));
  // Directing an undirected PDAG edge installs that link; the edge is then
  // directed and cannot be turned back.
  bool directed = false;
  for (std::size_t x = 0; x < 6 && !directed; ++x) {
    const k_node_t u = *k_node_get_pdag_neighbors(v[x]);
    if (u == nullptr || k_node_add_pdag_parent(v[x], u) != 0) continue;
    directed = true;
    EXPECT_TRUE(linked(static_cast<std::size_t>(std::find(v, v + 6, u) - v), x, links(net)));
    EXPECT_NE(k_node_add_pdag_parent(u, v[x]), 0);
  }
  EXPECT_TRUE(directed);
  // Refusals change nothing: a decision node, a constant column, one case.
  const Parents before = links(net);
  auto refused = [&](const char* why) {
    EXPECT_NE(k_domain_learn_structure(net.domain), 0) << why;
    EXPECT_EQ(k_error_code(), K_ERROR_USAGE) << why;
    EXPECT_NE(k_domain_learn_greedy_structure(net.domain, K_SCORE_BIC, 0, 0, 0), 0) << why;
    EXPECT_NE(k_domain_learn_structure_npc(net.domain), 0) << why;
    EXPECT_EQ(links(net), before) << why;
  };
  k_node_t decision =
      k_domain_new_node(net.domain, K_CATEGORY_DECISION, K_KIND_DISCRETE, K_SUBTYPE_LABEL);
  refused("decision node");
  k_node_delete(decision);
  k_node_t constant =
      k_domain_new_node(net.domain, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL);
  k_node_set_number_of_states(constant, 2);
  for (k_size_t c = 0; c < 2000; ++c) k_node_set_case_state(constant, c, 1);
  refused("constant column");
  k_node_delete(constant);
  k_domain_set_number_of_cases(net.domain, 1);
  refused("one case");
  k_domain_delete(net.domain);
}

// I((a, b); y) straight from the items (b < 0: I(a; y)), over the cases
// observing all three.
double brute_joint_mi(const std::vector<std::vector<int>>& items, int a, int b, int y) {
  std::map<std::tuple<int, int, int>, double> n;
  for (std::size_t c = 0; c < items[0].size(); ++c)
    if (items[a][c] >= 0 && (b < 0 || items[b][c] >= 0) && items[y][c] >= 0)
      ++n[{items[a][c], b < 0 ? 0 : items[b][c], items[y][c]}];
  std::map<std::pair<int, int>, double> nab, ny;
  double total = 0, sum = 0;
  for (const auto& [k, v] : n)
    nab[{std::get<0>(k), std::get<1>(k)}] += v, ny[{std::get<2>(k), 0}] += v, total += v;
  for (const auto& [k, v] : n)
    sum += v / total *
           std::log(v * total / (nab[{std::get<0>(k), std::get<1>(k)}] * ny[{std::get<2>(k), 0}]));
  return sum;
}

TEST(StructureLearning, JmiEqualsBruteForceAndFeaturesFollowIt) {
  test::RandomNetwork net = test::random_network(31, 7);
  const auto items = sample_cases(net, 1500, 31, 0.1);
  k_node_t* v = net.nodes.data();
  std::vector<k_node_t> chosen{nullptr};
  for (int k : {1, 4, 6}) {
    double expect = chosen.size() == 1 ? brute_joint_mi(items, 2, -1, 0) : 0.0;
    for (std::size_t j = 0; j + 1 < chosen.size(); ++j)
      expect += brute_joint_mi(items, 2, static_cast<int>(std::find(v, v + 7, chosen[j]) - v), 0);
    EXPECT_NEAR(k_node_get_jmi_score(v[2], v[0], chosen.data()), expect, 1e-12) << k;
    chosen.insert(chosen.end() - 1, v[k]);
  }
  // Forward selection: the first feature has the highest I(X; target),
  // each next one the highest JMI given those before it.
  std::vector<k_node_t> greedy{nullptr};
  for (int step = 0; step < 3; ++step) {
    std::pair<double, k_node_t> best{-1.0, nullptr};
    for (std::size_t k = 1; k < 7; ++k)
      if (std::find(greedy.begin(), greedy.end(), v[k]) == greedy.end())
        best = std::max(best, {k_node_get_jmi_score(v[k], v[0], greedy.data()), v[k]});
    greedy.insert(greedy.end() - 1, best.second);
  }
  ASSERT_EQ(k_domain_learn_features(net.domain, v[0], 3), 0);
  std::set<k_node_t> children(k_node_get_children(v[0]), k_node_get_children(v[0]) + 3);
  EXPECT_EQ(children, std::set<k_node_t>(greedy.begin(), greedy.end() - 1));
  // Refusals: the target as feature, a listed feature, count 0 or too many,
  // a required link away from the target.
  const k_node_t listed[] = {v[2], nullptr};
  EXPECT_EQ(k_node_get_jmi_score(v[0], v[0], nullptr), -1.0);
  EXPECT_EQ(k_node_get_jmi_score(v[2], v[0], listed), -1.0);
  EXPECT_NE(k_domain_learn_features(net.domain, v[0], 0), 0);
  ASSERT_EQ(k_node_set_edge_constraint(v[0], v[3], K_EDGE_CONSTRAINT_FORBIDDEN), 0);
  ASSERT_EQ(k_node_set_edge_constraint(v[0], v[4], K_EDGE_CONSTRAINT_REQUIRED), 0);
  ASSERT_EQ(k_domain_learn_features(net.domain, v[0], 1), 0);
  EXPECT_EQ(k_node_get_children(v[0])[0], v[4]);
  ASSERT_EQ(k_domain_learn_features(net.domain, v[0], 5), 0);
  EXPECT_EQ(k_node_get_parents(v[3])[0], nullptr);
  EXPECT_NE(k_domain_learn_features(net.domain, v[0], 6), 0);
  ASSERT_EQ(k_node_set_edge_constraint(v[1], v[2], K_EDGE_CONSTRAINT_REQUIRED), 0);
  EXPECT_NE(k_domain_learn_features(net.domain, v[0], 2), 0);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  k_domain_delete(net.domain);
}

TEST(StructureLearning, IndependenceTestsAndLinkStrength) {
  // Chi-square tails at known quantiles; 0 degrees of freedom is certain
  // independence.
  const double table[][3] = {{3.841458820694124, 1, 0.05},
                             {5.991464547107979, 2, 0.05},
                             {0.0157907740934312, 1, 0.9},
                             {23.20925115704, 10, 0.01},
                             {1.3862943611198906, 2, 0.5},
                             {10.0, 2, 0.006737946999085467},
                             {4.0, 0, 1.0}};
  for (const auto& row : table)
    EXPECT_NEAR(k_compute_probability_of_independence(row[0], static_cast<k_size_t>(row[1])),
                row[2], 1e-6);
  EXPECT_EQ(k_compute_probability_of_independence(NAN, 1), -1.0);
  EXPECT_EQ(k_domain_set_significance_level(nullptr, 0.1), 1);

  test::RandomNetwork net = test::random_network(12, 5);
  const auto items = sample_cases(net, 1000, 12);
  k_node_t* v = net.nodes.data();
  EXPECT_EQ(k_node_get_data_independency(v[0], v[1]), -1.0);
  ASSERT_EQ(k_domain_perform_marginal_independence_tests(net.domain), 0);
  for (std::size_t a = 0; a < 5; ++a)
    for (std::size_t b = 0; b < 5; ++b) {
      if (a == b) continue;
      // G² = 2 N I(a; b) with (ra - 1)(rb - 1) degrees of freedom when every
      // state occurs.
      const double g2 = 2.0 * 1000 * direct_mi(items[a], items[b]);
      auto seen = [&](std::size_t x) {
        return std::set<int>(items[x].begin(), items[x].end()).size() - 1;
      };
      const k_size_t df = seen(a) * seen(b);
      EXPECT_NEAR(k_node_get_data_independency(v[a], v[b]),
                  k_compute_probability_of_independence(g2, df), 1e-9);
    }
  ASSERT_EQ(k_domain_learn_tree_structure(net.domain, v[0], nullptr), 0);
  for (std::size_t x = 1; x < 5; ++x) {
    k_node_t p = k_node_get_parents(v[x])[0];
    const std::size_t pi = static_cast<std::size_t>(std::find(v, v + 5, p) - v);
    EXPECT_NEAR(k_node_get_link_strength(v[x], p), direct_mi(items[x], items[pi]), 1e-12);
  }
  EXPECT_EQ(k_node_get_link_strength(v[0], v[1]), -1.0);
  k_domain_delete(net.domain);
}

}  // namespace
}  // namespace kelva
