// Triangulation texts and results: prime components, the greedy methods,
// best greedy, redundant fill-ins, mixed networks and user orders.
#include "compile/triangulate.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "common/fail_new.h"
#include "compile/elimination.h"
#include "compile/fixtures.h"

namespace kelva {
namespace {

using test::capture;
using test::discrete_nodes;
using test::graph_with_links;
using test::NetDomain;
using Links = std::vector<std::pair<std::string, std::string>>;

// The cliques as "A B C | D E", members in node-list order.
std::string describe(const std::vector<std::vector<Node*>>& cliques) {
  std::string text;
  for (const auto& clique : cliques) {
    if (!text.empty()) text += " | ";
    for (std::size_t i = 0; i < clique.size(); ++i) text += (i ? " " : "") + clique[i]->name();
  }
  return text;
}

std::string names(const std::vector<Node*>& nodes) {
  std::string text;
  for (Node* node : nodes) text += (text.empty() ? "" : " ") + node->name();
  return text;
}

std::string run(const MoralGraph& graph, k_triangulation_method_t method,
                Triangulation* out = nullptr) {
  return capture([&](CompileLog& log) {
    Triangulation t = triangulate(graph, method, log);
    if (out != nullptr) *out = std::move(t);
  });
}

// Moral links C-D-F-E-C with the married D-E are chordal: every clique is
// its own prime component, triangulated without any fill-in.
constexpr const char* kChordal =
    "potential (C | A B) { }\npotential (D | C) { }\npotential (E | C) { }\n"
    "potential (F | D E) { }\n";

TEST(Triangulate, ChordalNetworkIsSplitIntoItsCliques) {
  NetDomain net(discrete_nodes({"A", "B", "C", "D", "E", "F"}) + kChordal);
  Triangulation t;
  const std::string log = capture([&](CompileLog& l) {
    const MoralGraph graph = build_moral_graph(net.domain(), l);
    t = triangulate(graph, K_TM_BEST_GREEDY, l);
  });
  EXPECT_EQ(log,
            "\n\nMoral links:\n\n"
            "    Marrying D and E\n"
            "    Marrying A and B\n"
            "\n"
            "\nTriangulating prime component with 3 members:\n"
            "    F E D\n"
            "\nThis component is a clique of cost 8\n"
            "\nTriangulating prime component with 3 members:\n"
            "    E D C\n"
            "\nThis component is a clique of cost 8\n"
            "\nTriangulating prime component with 3 members:\n"
            "    C B A\n"
            "\nThis component is a clique of cost 8\n"
            "\n\nTotal cost of triangulation for all prime components is 24"
            "\n\nElimination sequence:\n\n"
            "    F\n    E\n    D\n    C\n    B\n    A\n");
  EXPECT_EQ(describe(t.cliques), "F E D | E D C | C B A");
  EXPECT_EQ(t.links.size(), 8u);
  EXPECT_EQ(t.cost, 24.0);

  CompileLog silent(nullptr);
  const MoralGraph graph = build_moral_graph(net.domain(), silent);
  EXPECT_THROW(triangulate(graph, K_TM_TOTAL_WEIGHT, silent), Error);
}

// A four-cycle D-C-B-A with a tail D-E-F.
Links cycle_with_tail() {
  return {{"A", "B"}, {"B", "C"}, {"C", "D"}, {"D", "A"}, {"D", "E"}, {"E", "F"}};
}

TEST(Triangulate, CycleNeedsOneFillIn) {
  NetDomain net(discrete_nodes({"A", "B", "C", "D", "E", "F"}));
  const MoralGraph graph = graph_with_links(net.domain(), cycle_with_tail());
  Triangulation t;
  EXPECT_EQ(run(graph, K_TM_CLIQUE_SIZE, &t),
            "\n"
            "\nTriangulating prime component with 2 members:\n    F E\n"
            "\nThis component is a clique of cost 4\n"
            "\nTriangulating prime component with 2 members:\n    E D\n"
            "\nThis component is a clique of cost 4\n"
            "\nTriangulating prime component with 4 members:\n    D C B A\n"
            "\n    Using minimum clique size heuristic for triangulation:\n\n"
            "\tEliminating D\n"
            "\tCreating fill-in between C and A\n"
            "\tEliminating B\n"  // C and A are covered by B's clique
            "\tEliminating C\n"
            "\tEliminating A\n"
            "\nFound triangulation of prime component of cost 16\n"
            "\n\nTotal cost of triangulation for all prime components is 24"
            "\n\nElimination sequence:\n\n"
            "    F\n    E\n    D\n    B\n    C\n    A\n");
  EXPECT_EQ(describe(t.cliques), "F E | E D | D C A | C B A");
  EXPECT_EQ(names(t.elimination_order), "F E D B C A");
  EXPECT_EQ(t.links.size(), 7u);
  EXPECT_NE(std::find(t.links.begin(), t.links.end(), std::make_pair(net.node("C"), net.node("A"))),
            t.links.end());
  EXPECT_NE(run(graph, K_TM_FILL_IN_WEIGHT).find("Using minimum fill-in weight heuristic"),
            std::string::npos);
}

TEST(Triangulate, RedundantFillInIsRemoved) {
  // Two four-cycles joined through V.  Decomposition would split them at V,
  // so the elimination is run on the whole graph: V goes first (every
  // vertex ties) and its fill-in A-B is redundant once the cycles are
  // triangulated.
  NetDomain net(discrete_nodes({"A", "P", "Q", "R", "B", "X", "Y", "Z", "V"}));
  const MoralGraph graph = graph_with_links(net.domain(), {{"A", "P"},
                                                           {"P", "Q"},
                                                           {"Q", "R"},
                                                           {"R", "A"},
                                                           {"B", "X"},
                                                           {"X", "Y"},
                                                           {"Y", "Z"},
                                                           {"Z", "B"},
                                                           {"V", "A"},
                                                           {"V", "B"}});
  EliminationInput input;
  input.nodes = graph.vertices;
  for (const auto& list : graph.neighbours) {
    input.adjacency.push_back(list);
    std::sort(input.adjacency.back().begin(), input.adjacency.back().end());
  }
  EliminationResult result;
  EXPECT_EQ(capture([&](CompileLog& l) { result = eliminate_greedy(input, K_TM_CLIQUE_SIZE, l); }),
            "\tEliminating V\n"
            "\tCreating fill-in between B and A\n"
            "\tEliminating Z\n"
            "\tCreating fill-in between Y and B\n"
            "\tEliminating X\n"
            "\tEliminating Y\n"
            "\tEliminating B\n"
            "\tEliminating P\n"
            "\tCreating fill-in between Q and A\n"
            "\tEliminating R\n"
            "\tEliminating Q\n"
            "\tEliminating A\n"
            "\tRemoving redundant fill-in between B and A\n");
  std::vector<std::vector<Node*>> cliques;
  for (const auto& clique : result.cliques) {
    cliques.emplace_back();
    for (std::uint32_t v : clique) cliques.back().push_back(input.nodes[v]);
  }
  // V's clique {V, B, A} is split in two.
  EXPECT_EQ(describe(cliques), "V B | V A | Z Y B | Y X B | Q P A | R Q A");
  EXPECT_EQ(result.fill_ins.size(), 2u);
  EXPECT_EQ(result.cost, 40.0);
}

TEST(Triangulate, MixedNetworkEliminatesContinuousNodesFirst) {
  NetDomain net(R"(
    node D1 { states = ("a" "b"); }
    node D2 { states = ("a" "b" "c"); }
    continuous node X1 { }
    continuous node X2 { }
    node D3 { states = ("a" "b"); }
    continuous node X3 { }
    potential (X1 | D1) { }
    potential (X2 | D2 X1) { }
    potential (D3 | D1 D2) { }
    potential (X3 | D3 X2) { }
  )");
  Triangulation t;
  const std::string log = capture([&](CompileLog& l) {
    const MoralGraph graph = build_moral_graph(net.domain(), l);
    t = triangulate(graph, K_TM_CLIQUE_SIZE, l);
  });
  // X2 and X1 tie; X2 goes first and links D3 to X1.  Clique weights count
  // the CG entries: {D3 X2 X1 D2} is 2 * 3 * 6 = 36.
  EXPECT_EQ(log,
            "\n\nMoral links:\n\n"
            "    Marrying X2 and D3\n"
            "    Marrying D2 and X1\n"
            "    Marrying D1 and D2\n"
            "\n\nNecessary fill-ins:\n\n"
            "\n"
            "\nTriangulating prime component with 3 members:\n    X3 D3 X2\n"
            "\nThis component is a clique of cost 12\n"
            "\nTriangulating prime component with 5 members:\n    D3 X2 X1 D2 D1\n"
            "\n    Using minimum clique size heuristic for triangulation:\n\n"
            "\tEliminating X2\n"
            "\tCreating fill-in between D3 and X1\n"
            "\tEliminating X1\n"
            "\tEliminating D3\n"
            "\tEliminating D2\n"
            "\tEliminating D1\n"
            "\nFound triangulation of prime component of cost 72\n"
            "\n\nTotal cost of triangulation for all prime components is 84"
            "\n\nElimination sequence:\n\n"
            "    X3\n    X2\n    X1\n    D3\n    D2\n    D1\n");
  EXPECT_EQ(describe(t.cliques), "X3 D3 X2 | D3 X2 X1 D2 | D3 X1 D2 D1");
}

TEST(Triangulate, SingleNodesCliquesAndHugeCosts) {
  NetDomain net(discrete_nodes({"S"}, 3) + discrete_nodes({"T", "U"}, 300000) +
                discrete_nodes({"W"}, 200000));
  const MoralGraph graph = graph_with_links(net.domain(), {{"T", "U"}, {"U", "W"}, {"W", "T"}});
  Triangulation t;
  EXPECT_EQ(run(graph, K_TM_BEST_GREEDY, &t),
            "\n"
            "\nTriangulating prime component with 3 members:\n    W U T\n"
            "\nThis component is a clique of cost HUGE\n"
            "\nTriangulating prime component with 1 member:\n    S\n"
            "\nThis component is a clique of cost 3\n"
            "\n\nTotal cost of triangulation for all prime components is HUGE"
            "\n\nElimination sequence:\n\n"
            "    W\n    U\n    T\n    S\n");
  EXPECT_EQ(describe(t.cliques), "W U T | S");
  EXPECT_EQ(t.cost, 1.8e16 + 3);
  EXPECT_EQ(CompileLog::cost_text(9007199254740991.0), "9007199254740991");
  EXPECT_EQ(CompileLog::cost_text(9007199254740992.0), "HUGE");
  EXPECT_EQ(node_set_weight({net.node("S"), net.node("S")}), 9.0);
}

std::vector<std::pair<k_triangulation_method_t, double>> runs;
void record_run(k_triangulation_method_t method, double cost) { runs.emplace_back(method, cost); }

struct ObserveRuns {
  ObserveRuns() {
    runs.clear();
    greedy_run_observer = record_run;
  }
  ~ObserveRuns() { greedy_run_observer = nullptr; }
};

TEST(Triangulate, BestGreedyKeepsTheFirstCheapestRun) {
  ObserveRuns observe;
  using Runs = std::vector<std::pair<k_triangulation_method_t, double>>;
  // A four-cycle with different state counts: the unweighted methods
  // eliminate D (the first vertex) and link A-B (cost 24 + 36); the
  // weighted ones eliminate B, the lightest, and link C-D (18 + 24).
  NetDomain weighted(discrete_nodes({"A"}, 4) + discrete_nodes({"B", "C"}, 3) +
                     discrete_nodes({"D"}, 2));
  const MoralGraph cycle =
      graph_with_links(weighted.domain(), {{"A", "C"}, {"C", "B"}, {"B", "D"}, {"D", "A"}});
  Triangulation t;
  EXPECT_EQ(run(cycle, K_TM_BEST_GREEDY, &t),
            "\n"
            "\nTriangulating prime component with 4 members:\n    D C B A\n"
            "\n    Using the best greedy heuristic for triangulation\n\n"
            "\n\nTotal cost of triangulation for all prime components is 42"
            "\n\nElimination sequence:\n\n"
            "    B\n    A\n    D\n    C\n");
  EXPECT_EQ(runs, (Runs{{K_TM_CLIQUE_SIZE, 60},
                        {K_TM_CLIQUE_WEIGHT, 42},
                        {K_TM_FILL_IN_SIZE, 60},
                        {K_TM_FILL_IN_WEIGHT, 42}}));
  EXPECT_EQ(describe(t.cliques), "D C B | D C A");

  // Equal weights: the weighted methods are not run.
  runs.clear();
  NetDomain uniform(discrete_nodes({"A", "B", "C", "D"}, 3));
  run(graph_with_links(uniform.domain(), {{"A", "C"}, {"C", "B"}, {"B", "D"}, {"D", "A"}}),
      K_TM_BEST_GREEDY);
  EXPECT_EQ(runs, (Runs{{K_TM_CLIQUE_SIZE, 54}, {K_TM_FILL_IN_SIZE, 54}}));

  // Clique size and fill-in size find different triangulations of equal
  // cost here; the first run's is kept.
  runs.clear();
  NetDomain equal(discrete_nodes({"A", "B", "C", "D", "E", "F", "G", "H"}));
  const MoralGraph graph = graph_with_links(equal.domain(), {{"A", "B"},
                                                             {"A", "D"},
                                                             {"A", "E"},
                                                             {"A", "H"},
                                                             {"B", "C"},
                                                             {"B", "H"},
                                                             {"C", "E"},
                                                             {"C", "G"},
                                                             {"D", "E"},
                                                             {"D", "F"},
                                                             {"D", "G"},
                                                             {"E", "G"},
                                                             {"E", "H"},
                                                             {"F", "H"},
                                                             {"G", "H"}});
  Triangulation best, by_size, by_fill;
  run(graph, K_TM_BEST_GREEDY, &best);
  ASSERT_EQ(runs.size(), 2u);
  EXPECT_EQ(runs[0].second, runs[1].second);
  run(graph, K_TM_CLIQUE_SIZE, &by_size);
  run(graph, K_TM_FILL_IN_SIZE, &by_fill);
  EXPECT_NE(describe(by_size.cliques), describe(by_fill.cliques));
  EXPECT_EQ(describe(best.cliques), describe(by_size.cliques));
}

TEST(Triangulate, UserOrderNumbersNodesAndKeepsEveryFillIn) {
  NetDomain net(discrete_nodes({"A", "B", "C", "D", "E", "F"}));
  const MoralGraph graph = graph_with_links(net.domain(), cycle_with_tail());
  // E first links D and F, which is not needed; D then links C and A.
  const std::vector<Node*> order{net.node("E"), net.node("D"), net.node("F"),
                                 net.node("A"), net.node("B"), net.node("C")};
  Triangulation t;
  EXPECT_EQ(capture([&](CompileLog& l) { t = triangulate_by_order(graph, order, l); }),
            "\n\nUser specified triangulation -- Fill-in links and node numbering:\n\n"
            "    6 E\n"
            "\tCreating fill-in between F and D\n"
            "    5 D\n"
            "\tCreating fill-in between F and C\n"
            "\tCreating fill-in between F and A\n"
            "\tCreating fill-in between C and A\n"
            "    4 F\n"
            "    3 A\n"
            "    2 B\n"
            "    1 C\n");
  EXPECT_EQ(describe(t.cliques), "F E D | F D C A | C B A");
  EXPECT_EQ(t.elimination_order, order);
  EXPECT_EQ(t.links.size(), 10u);
  EXPECT_EQ(t.cost, 8.0 + 16.0 + 8.0);
}

// IJT nodes lie in one clique whatever the method or order, the joint is
// unchanged, and a refused set leaves the one in place.
TEST(Triangulate, IjtNodesShareOneCliqueUnderEveryMethod) {
  NetDomain net(discrete_nodes({"A", "B", "C", "D", "E"}) +
                "potential (A) { data = (0.3 0.7); }\n"
                "potential (B | A) { data = ((0.9 0.1) (0.2 0.8)); }\n"
                "potential (C | B) { data = ((0.6 0.4) (0.1 0.9)); }\n"
                "potential (D | C) { data = ((0.5 0.5) (0.7 0.3)); }\n"
                "potential (E | D) { data = ((0.4 0.6) (0.8 0.2)); }\n");
  NetDomain other(discrete_nodes({"A"}));
  k_domain_t d = net.handle();
  auto handle = [&](const char* name) { return k_domain_get_node_by_name(d, name); };
  auto belief_of_e = [&] {
    if (k_domain_compile(d) != 0 || k_node_enter_finding(handle("A"), 1, 1.0) != 0 ||
        k_domain_propagate(d, K_EQUILIBRIUM_SUM, K_MODE_NORMAL) != 0)
      return -1.0;
    return k_node_get_belief(handle("E"), 0);
  };
  auto shared_clique = [&](std::vector<k_node_t> set) {
    for (k_clique_t* c = k_jt_get_cliques(k_domain_get_first_junction_tree(d)); *c; ++c) {
      std::size_t found = 0;
      for (k_node_t* m = k_clique_get_members(*c); *m; ++m)
        found += static_cast<std::size_t>(std::count(set.begin(), set.end(), *m));
      if (found == set.size()) return true;
    }
    return false;
  };
  const double plain = belief_of_e();
  ASSERT_GT(plain, 0.0);
  ASSERT_FALSE(shared_clique({handle("A"), handle("E")}));

  std::vector<k_node_t> set{handle("E"), handle("A"), handle("C"), nullptr};
  ASSERT_EQ(k_domain_set_ijt_nodes(d, set.data()), 0);
  set.pop_back();
  for (k_triangulation_method_t method :
       {K_TM_CLIQUE_SIZE, K_TM_CLIQUE_WEIGHT, K_TM_FILL_IN_SIZE, K_TM_FILL_IN_WEIGHT,
        K_TM_TOTAL_WEIGHT, K_TM_BEST_GREEDY}) {
    ASSERT_EQ(k_domain_uncompile(d), 0);
    ASSERT_EQ(k_domain_triangulate(d, method), 0) << method;
    EXPECT_TRUE(shared_clique(set)) << method;
    EXPECT_NEAR(belief_of_e(), plain, 1e-15) << method;
  }
  std::vector<k_node_t> order{handle("A"), handle("B"), handle("C"),
                              handle("D"), handle("E"), nullptr};
  ASSERT_EQ(k_domain_uncompile(d), 0);
  ASSERT_EQ(k_domain_triangulate_with_order(d, order.data()), 0);
  EXPECT_TRUE(shared_clique(set));

  // Refusals: twice, another domain's node; the set in place stays.
  for (std::vector<k_node_t> bad :
       {std::vector<k_node_t>{handle("B"), handle("B"), nullptr},
        {handle("B"), k_domain_get_node_by_name(other.handle(), "A"), nullptr}}) {
    EXPECT_NE(k_domain_set_ijt_nodes(d, bad.data()), 0);
    EXPECT_EQ(k_error_code(), K_ERROR_ENUMERATION);
  }
  ASSERT_EQ(k_domain_uncompile(d), 0);
  ASSERT_EQ(k_domain_compile(d), 0);
  EXPECT_TRUE(shared_clique(set));
  // A deleted node leaves the set; null clears it.
  ASSERT_EQ(k_node_delete(handle("C")), 0);
  ASSERT_EQ(k_domain_compile(d), 0);
  EXPECT_TRUE(shared_clique({handle("A"), handle("E")}));
  ASSERT_EQ(k_domain_set_ijt_nodes(d, nullptr), 0);
  ASSERT_EQ(k_domain_uncompile(d), 0);
  ASSERT_EQ(k_domain_compile(d), 0);
  EXPECT_FALSE(shared_clique({handle("A"), handle("E")}));
}

TEST(Triangulate, AllocationFailuresThrowBadAlloc) {
  // The cycle with tail under best greedy; names exist before the loop.
  NetDomain net(discrete_nodes({"A", "B", "C", "D", "E", "F"}));
  const MoralGraph graph = graph_with_links(net.domain(), cycle_with_tail());
  const std::string expected = run(graph, K_TM_BEST_GREEDY);
  for (long n = 0;; ++n) {
    try {
      const std::string text = capture([&](CompileLog& l) {
        test::fail_allocation_after(n);
        triangulate(graph, K_TM_BEST_GREEDY, l);
        test::fail_allocation_after(-1);
      });
      EXPECT_EQ(text, expected);
      EXPECT_GT(n, 20);
      break;
    } catch (const std::bad_alloc&) {
      test::fail_allocation_after(-1);
    }
  }
}

}  // namespace
}  // namespace kelva
