// The large shared networks triangulate quickly and soundly by every
// greedy method.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "compile/elimination.h"
#include "compile/graph_fixtures.h"
#include "compile/triangulate.h"

namespace kelva {
namespace {

std::string shared_dir() {
  const char* dir = std::getenv("KELVA_SHARED_DIR");
  return dir != nullptr ? dir : KELVA_DEFAULT_SHARED_DIR;
}

TEST(SharedNetworks, LargeNetworksTriangulateQuickly) {
  for (const char* name : {"munin2", "munin3", "link", "pigs", "andes", "diabetes", "munin1",
                           "barley", "pathfinder", "hailfinder"}) {
    std::ifstream file(shared_dir() + "/nets/" + name + ".net");
    if (!file) GTEST_SKIP() << "shared networks not found in " << shared_dir();
    std::stringstream text;
    text << file.rdbuf();
    test::NetDomain net(text.str());
    CompileLog silent(nullptr);
    const MoralGraph graph = build_moral_graph(net.domain(), silent);
    for (k_triangulation_method_t method : {K_TM_CLIQUE_SIZE, K_TM_BEST_GREEDY}) {
      const auto start = std::chrono::steady_clock::now();
      const Triangulation t = triangulate(graph, method, silent);
      const double seconds =
          std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
      std::printf("%-10s method %d: %zu nodes, %zu links, %zu cliques, cost %s, %.3f s\n", name,
                  method, graph.size(), t.links.size(), t.cliques.size(),
                  CompileLog::cost_text(t.cost).c_str(), seconds);
      // The order is a perfect elimination ordering of the links.
      std::vector<std::vector<std::uint32_t>> adjacency(graph.size());
      for (auto [a, b] : t.links) {
        adjacency[graph.position.at(a)].push_back(graph.position.at(b));
        adjacency[graph.position.at(b)].push_back(graph.position.at(a));
      }
      for (auto& list : adjacency) std::sort(list.begin(), list.end());
      std::vector<std::uint32_t> order;
      for (Node* node : t.elimination_order) order.push_back(graph.position.at(node));
      EXPECT_TRUE(is_perfect_elimination_order(adjacency, order)) << name;
    }
  }
}

}  // namespace
}  // namespace kelva
