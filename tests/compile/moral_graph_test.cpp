// The moral graph: neighbour sets in collection order, the "Marrying" lines
// (once per new link, from the older endpoint) and the necessary fill-ins
// of mixed networks.
#include "compile/moral_graph.h"

#include <gtest/gtest.h>

#include <string>

#include "compile/fixtures.h"

namespace kelva {
namespace {

using test::capture;
using test::NetDomain;

// "X: a b c" for every vertex, in vertex order.
std::string describe(const MoralGraph& graph) {
  std::string text;
  for (std::size_t v = 0; v < graph.size(); ++v) {
    text += graph.vertices[v]->name() + ":";
    for (std::uint32_t w : graph.neighbours[v]) text += " " + graph.vertices[w]->name();
    text += "\n";
  }
  return text;
}

TEST(MoralGraph, DiscreteNetworkWithDecisionsUtilitiesFunctionsAndChains) {
  // A and B are married through C; B and C are linked already, so D marries
  // nobody; U marries A and E; the function node F gets no links to its own
  // parents but marries A through G; the chain component {K1, K2} marries
  // its parents G and B.  R (real-valued function) takes no part.
  NetDomain net(R"(
    node A { states = ("a" "b"); }
    node B { states = ("a" "b"); }
    node C { states = ("a" "b" "c"); }
    node D { states = ("a" "b"); }
    decision E { states = ("y" "n"); }
    utility U { }
    discrete function F { states = ("a" "b"); }
    node G { states = ("a" "b"); }
    node K1 { states = ("a" "b"); }
    node K2 { states = ("a" "b"); }
    function R { }
    potential (C | A B) { }
    potential (D | C B) { }
    potential (E | D) { }
    potential (U | A E) { }
    potential (F | D B) { }
    potential (G | F A) { }
    potential (K1 K2 | G B) { }
    potential (R | C) { }
  )");
  MoralGraph graph;
  const std::string log =
      capture([&](CompileLog& l) { graph = build_moral_graph(net.domain(), l); });
  EXPECT_EQ(log,
            "\n\nMoral links:\n\n"
            "    Marrying B and G\n"
            "    Marrying A and B\n"
            "    Marrying A and E\n"
            "    Marrying A and F\n");
  EXPECT_EQ(describe(graph),
            "K2: G B K1\n"
            "K1: G B K2\n"
            "G: F A K1 K2 B\n"
            "F: G A\n"
            "E: D A\n"
            "D: C B E\n"
            "C: A B D\n"
            "B: C D K1 K2 A G\n"
            "A: C G B E F\n");
  ASSERT_EQ(graph.position.at(net.node("A")), 8u);
  EXPECT_TRUE(graph.adjacent(graph.position.at(net.node("A")), graph.position.at(net.node("E"))));
  EXPECT_FALSE(graph.adjacent(graph.position.at(net.node("F")), graph.position.at(net.node("D"))));

  // Without a log stream nothing is written, and the graph is the same.
  CompileLog silent(nullptr);
  EXPECT_EQ(describe(build_moral_graph(net.domain(), silent)), describe(graph));
}

TEST(MoralGraph, NecessaryFillInsCompleteTheDiscreteBoundaries) {
  // {X1, X2} has the boundary {D1, D2}, not linked in the moral graph;
  // Y's boundary {D3} needs nothing; an isolated continuous Z is skipped.
  NetDomain net(R"(
    node D1 { states = ("a" "b"); }
    node D2 { states = ("a" "b"); }
    node D3 { states = ("a" "b"); }
    continuous node X1 { }
    continuous node X2 { }
    continuous node Y { }
    continuous node Z { }
    node D4 { states = ("a" "b"); }
    potential (X1 | D1) { }
    potential (X2 | D2 X1) { }
    potential (Y | D3) { }
    potential (D4 | D1) { }
  )");
  MoralGraph graph;
  const std::string log =
      capture([&](CompileLog& l) { graph = build_moral_graph(net.domain(), l); });
  EXPECT_EQ(log,
            "\n\nMoral links:\n\n"
            "    Marrying D2 and X1\n"
            "\n\nNecessary fill-ins:\n\n"
            "    Creating necessary fill-in between D1 and D2\n");
  EXPECT_EQ(describe(graph),
            "D4: D1\n"
            "Z:\n"
            "Y: D3\n"
            "X2: D2 X1\n"
            "X1: D1 X2 D2\n"
            "D3: Y\n"
            "D2: X2 X1 D1\n"
            "D1: X1 D4 D2\n");

  // A discrete-only network writes no fill-in section.
  NetDomain discrete(test::discrete_nodes({"P", "Q"}) + "potential (Q | P) { }");
  EXPECT_EQ(capture([&](CompileLog& l) { build_moral_graph(discrete.domain(), l); }),
            "\n\nMoral links:\n\n");
}

}  // namespace
}  // namespace kelva
