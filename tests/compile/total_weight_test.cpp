// Method 19 ("total weight"): optimal against every elimination order on
// small random graphs, never above its initial triangulation, and its
// settings through the C API.
#include <algorithm>
#include <numeric>
#include <random>

#include "common/shared_nets.h"
#include "compile/fixtures.h"

namespace kelva::test {
namespace {

double weight_of(k_domain_t domain) {
  double total = 0.0;
  for (k_junction_tree_t jt = k_domain_get_first_junction_tree(domain); jt; jt = k_jt_get_next(jt))
    for (k_clique_t* c = k_jt_get_cliques(jt); *c; ++c) {
      double size = 1.0;
      for (k_node_t* m = k_clique_get_members(*c); *m; ++m)
        if (k_node_get_kind(*m) == K_KIND_DISCRETE)
          size *= static_cast<double>(k_node_get_number_of_states(*m));
      total += size;
    }
  return total;
}

TEST(TotalWeight, RandomGraphsMatchTheBestEliminationOrder) {
  std::mt19937 random(19);
  for (int round = 0; round < 60; ++round) {
    const int n = 3 + static_cast<int>(random() % 5);
    std::string text;
    std::vector<std::string> names;
    for (int i = 0; i < n; ++i) {
      names.push_back(std::string(1, static_cast<char>('a' + i)));
      text += discrete_nodes({names.back()}, 2 + static_cast<int>(random() % 4));
    }
    std::vector<std::pair<std::string, std::string>> links;
    const double density = 0.2 + 0.1 * static_cast<double>(random() % 6);
    for (int a = 0; a < n; ++a)
      for (int b = a + 1; b < n; ++b)
        if (std::uniform_real_distribution<>(0, 1)(random) < density)
          links.emplace_back(names[a], names[b]);
    NetDomain net(text);
    const MoralGraph graph = graph_with_links(net.domain(), links);
    CompileLog silent(nullptr);
    std::vector<Node*> order = graph.vertices;
    std::sort(order.begin(), order.end());
    double brute = -1.0;
    do {
      const double cost = triangulate_by_order(graph, order, silent).cost;
      if (brute < 0.0 || cost < brute) brute = cost;
    } while (std::next_permutation(order.begin(), order.end()));

    TotalWeightSettings settings;
    const Triangulation found = triangulate(graph, K_TM_TOTAL_WEIGHT, silent, &settings);
    ASSERT_DOUBLE_EQ(found.cost, brute) << "round " << round;
    // The elimination order and the cliques describe one chordal graph.
    ASSERT_EQ(build_forest(net.domain(), found), 0) << "round " << round;
    check_forest_records(net.domain());
  }
}

// Over every shared network: the bounded search (bounds that keep this
// short) never ends above the best greedy triangulation it starts from.
TEST(TotalWeight, SharedNetworksNeverExceedTheInitialTriangulation) {
  for (const auto& file : shared_nets_for_sweeps()) {
    DomainHandle d(parse_net_quietly(file));
    if (!d || k_domain_triangulate(d.get(), K_TM_BEST_GREEDY) != 0) continue;
    const double greedy = weight_of(d.get());
    std::vector<k_node_t> initial = node_list(k_domain_get_elimination_order(d.get()));
    initial.push_back(nullptr);
    ASSERT_EQ(k_domain_uncompile(d.get()), 0);
    ASSERT_EQ(k_domain_set_triangulation_parameters(d.get(), initial.data(), 300, 12), 0);
    ASSERT_EQ(k_domain_triangulate(d.get(), K_TM_TOTAL_WEIGHT), 0) << file;
    EXPECT_LE(weight_of(d.get()), greedy) << file;
  }
}

// The cycle A-B-D-C needs a chord: B-C costs 18 + 27, A-D (A has two
// states) 18 + 18; the component {C, D, E} adds 27.  Eliminating D first
// gives the chord B-C.
TEST(TotalWeight, SearchBeatsItsStartAndChecksItsSettings) {
  NetDomain net(discrete_nodes({"A"}, 2) + discrete_nodes({"B", "C", "D", "E"}, 3) +
                "potential (B | A) { }\npotential (C | A) { }\npotential (D | B) { }\n"
                "potential (E | C D) { }\n");
  const k_domain_t d = net.handle();
  EXPECT_EQ(k_domain_get_max_number_of_separators(d), 0);
  EXPECT_EQ(k_domain_get_max_separator_size(nullptr), -1);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  // A bounded search without an initial triangulation is refused.
  ASSERT_EQ(k_domain_set_max_number_of_separators(d, 5), 0);
  EXPECT_EQ(k_domain_get_max_number_of_separators(d), 5);
  EXPECT_NE(k_domain_triangulate(d, K_TM_TOTAL_WEIGHT), 0);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  EXPECT_EQ(k_domain_is_triangulated(d), 0);
  // An incomplete order is refused and changes nothing.
  std::vector<k_node_t> order;
  for (const char* name : {"D", "A", "B", "C", "E"})
    order.push_back(k_domain_get_node_by_name(d, name));
  order.push_back(nullptr);
  std::vector<k_node_t> partial = {order[0], order[1], nullptr};
  EXPECT_NE(k_domain_set_triangulation_parameters(d, partial.data(), 1, 2), 0);
  EXPECT_EQ(k_error_code(), K_ERROR_ENUMERATION);
  EXPECT_EQ(k_domain_get_max_separator_size(d), 0);
  ASSERT_EQ(k_domain_set_initial_triangulation(d, order.data()), 0);

  TotalWeightSettings settings{capi::node_list(order.data()), {5, 0}};
  CompileLog silent(nullptr);
  const MoralGraph graph = build_moral_graph(net.domain(), silent);
  const std::string log = capture([&](CompileLog& l) {
    EXPECT_DOUBLE_EQ(triangulate(graph, K_TM_TOTAL_WEIGHT, l, &settings).cost, 63.0);
  });
  EXPECT_NE(log.find("Initial triangulation has cost 45\n"), std::string::npos) << log;
  EXPECT_NE(log.find("Found 2 minimal separators\n"), std::string::npos) << log;
  // Too few separators allowed: the initial triangulation stands.
  settings.limits.max_separators = 1;
  EXPECT_DOUBLE_EQ(triangulate(graph, K_TM_TOTAL_WEIGHT, silent, &settings).cost, 72.0);

  ASSERT_EQ(k_domain_triangulate(d, K_TM_TOTAL_WEIGHT), 0);
  EXPECT_DOUBLE_EQ(weight_of(d), 63.0);
  // Creating a node forgets the initial triangulation.
  ASSERT_EQ(k_domain_uncompile(d), 0);
  ASSERT_NE(k_domain_new_node(d, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL), nullptr);
  EXPECT_NE(k_domain_triangulate(d, K_TM_TOTAL_WEIGHT), 0);
  ASSERT_EQ(k_domain_set_max_number_of_separators(d, 0), 0);
  EXPECT_EQ(k_domain_triangulate_default(d), 0);
}

}  // namespace
}  // namespace kelva::test
