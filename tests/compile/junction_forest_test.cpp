// The junction forest: its log sections byte for byte, the shape of the
// trees (running intersection, strong roots of CG trees, member order),
// the assignment of potentials and its ties, default tables, the queries of
// the C API, saturated sizes and allocation failures.
#include "compile/junction_forest.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "common/expect_code.h"
#include "common/fail_new.h"
#include "compile/fixtures.h"
#include "compile/forest_log.h"
#include "table/table.h"

namespace kelva {

namespace test {

// The cliques holding `table`.
static bool holds(const Clique& clique, const Table& table) {
  for (Node* n : table.nodes())
    if (!clique.members.contains(n)) return false;
  return true;
}

// The cliques holding a node are connected and lie in one tree, separators
// are the intersections, and clique tables lead with the parent separator.
void check_forest_records(const Domain& domain) {
  const Forest& forest = *domain.forest();
  for (const auto& c : forest.cliques) {
    const Clique& clique = *c;
    // Discrete members first; the number order puts parents first.
    for (std::size_t i = 0; i < clique.members.size(); ++i)
      EXPECT_EQ(clique.members[i]->is_discrete(), i < clique.discrete_members);
    EXPECT_EQ(clique.tree->cliques.contains(&clique), true);
    if (clique.parent == nullptr) {
      EXPECT_EQ(clique.tree->root, &clique);
      continue;
    }
    EXPECT_LT(clique.parent->number, clique.number);
    EXPECT_EQ(clique.parent->tree, clique.tree);
    const Separator& sep = *clique.links[0].separator;
    EXPECT_EQ(sep.child, &clique);
    std::vector<Node*> shared;
    for (Node* n : clique.parent->members)
      if (clique.members.contains(n)) shared.push_back(n);
    EXPECT_EQ(std::vector<Node*>(sep.members.begin(), sep.members.end()), shared);
    EXPECT_FALSE(shared.empty());
    // The separator's discrete members lead the clique table, in order.
    std::size_t lead = 0;
    for (Node* n : shared)
      if (n->is_discrete()) {
        EXPECT_EQ(clique.members[lead++], n);
      }
    bool separator_discrete = true;
    bool residual_continuous = true;
    for (Node* n : clique.members) {
      if (sep.members.contains(n)) separator_discrete &= n->is_discrete();
      else residual_continuous &= n->is_continuous();
    }
    EXPECT_TRUE(separator_discrete || residual_continuous) << "clique " << clique.number;
  }
  for (const NodeSlot& slot : forest.nodes) {
    const Node& node = *slot.node;
    ASSERT_NE(slot.tree, nullptr) << node.name();
    if (node.kind() != K_KIND_OTHER) {
      std::size_t tops = 0;  // cliques holding the node whose parent does not
      for (const auto& c : forest.cliques)
        if (c->members.contains(slot.node)) {
          EXPECT_EQ(c->tree, slot.home->tree);
          tops += c->parent == nullptr || !c->parent->members.contains(slot.node);
          EXPECT_GE(c->discrete_size, slot.home->discrete_size);
        }
      EXPECT_EQ(tops, 1u) << node.name();
    }
    const Table* table = node.table();
    if (table == nullptr) {
      EXPECT_EQ(slot.assigned, nullptr);
      continue;
    }
    ASSERT_NE(slot.assigned, nullptr) << node.name();
    EXPECT_TRUE(holds(*slot.assigned, *table));
    EXPECT_EQ(slot.assigned_plan.large_size(), slot.assigned->table->size());
    EXPECT_EQ(slot.assigned_plan.small_size(), table->size());
    if (node.is_continuous()) {
      const Clique* parent = slot.assigned->parent;
      EXPECT_TRUE(parent == nullptr || !holds(*parent, *table)) << node.name();
      continue;
    }
    // No clique that holds the table is better, nor as good and earlier.
    for (const auto& c : forest.cliques) {
      if (!holds(*c, *table) || (node.is_discrete() && !c->members.contains(slot.node))) continue;
      const bool earlier = c->number < slot.assigned->number;
      const auto key = std::make_pair(c->discrete_size, c->cg_entries);
      const auto mine = std::make_pair(slot.assigned->discrete_size, slot.assigned->cg_entries);
      EXPECT_TRUE(key > mine || (key == mine && !earlier)) << node.name();
    }
  }
}

}  // namespace test

namespace {

using test::build_forest;
using test::eliminate;
using test::eliminate_greedily;
using test::LogCapture;
using test::named;
using test::NetDomain;

std::vector<std::string> names(const NodeList& nodes) {
  std::vector<std::string> result;
  for (Node* n : nodes) result.push_back(n->name());
  return result;
}

std::vector<std::string> names(k_node_t* list) {
  std::vector<std::string> result;
  for (; list != nullptr && *list != nullptr; ++list)
    result.push_back(reinterpret_cast<Node*>(*list)->name());
  return result;
}

// A -> B, A -> C (3 states each) and D alone, without a table.
constexpr const char* kTwoParts = R"(
node A { states = ("a0" "a1"); }
node B { states = ("b0" "b1" "b2"); }
node C { states = ("c0" "c1" "c2"); }
node D { states = ("d0" "d1"); }
potential (A) { data = (0.4 0.6); }
potential (B | A) { data = ((0.1 0.2 0.7) (0.3 0.3 0.4)); }
potential (C | A) { data = ((0.5 0.25 0.25) (0.2 0.2 0.6)); }
)";

TEST(JunctionForest, TwoPartsLogTreesAndTies) {
  NetDomain net(kTwoParts);
  Domain& domain = net.domain();
  ASSERT_EQ(named(domain, "D")->table(), nullptr);
  const Triangulation t = eliminate(domain, named(domain, {"B", "C", "A", "D"}));
  LogCapture log;
  ASSERT_EQ(build_forest(domain, t, log.file()), 0) << k_error_name(k_error_code());

  // The smallest clique starts; {B, A} comes before {C, A} in triangulation
  // order; A's table fits both cliques of size 6 and goes to the first.
  EXPECT_EQ(log.text(),
            "\n\nCliques:\n"
            "\nClique 0, 1 member, table size = 2:\n    D\n"
            "\nClique 1, 2 members, table size = 6:\n    B A\n"
            "\nClique 2, 2 members, table size = 6:\n    A C\n"
            "\nTotal clique table size: 14\n"
            "\n\nThe junction forest:\n"
            "\nCreating junction tree with clique 0 as root ...\n"
            "\nCreating junction tree with clique 1 as root ...\n"
            "\nCliques 2 and 1 linked, separator has 1 member and table size = 2:\n    A\n"
            "\n\nChecking tables for all nodes:\n\n"
            "    Warning: Node `D' has no table\n"
            "\n\nAssignment of potentials to cliques:\n\n"
            "    Node D assigned to clique 0\n"
            "    Node C assigned to clique 2\n"
            "    Node B assigned to clique 1\n"
            "    Node A assigned to clique 1\n");

  // D got its default table, all 0, over itself.
  const Table* d_table = named(domain, "D")->table();
  ASSERT_NE(d_table, nullptr);
  EXPECT_EQ(names(d_table->nodes()), std::vector<std::string>{"D"});
  EXPECT_EQ(d_table->data()[0] + d_table->data()[1], 0.0);

  const Forest& forest = *domain.forest();
  ASSERT_EQ(forest.trees.size(), 2u);
  const JunctionTree& big = *forest.trees[1];
  EXPECT_EQ(big.root, forest.cliques[1].get());
  EXPECT_EQ(big.cliques.size(), 2u);
  EXPECT_EQ(names(big.nodes), (std::vector<std::string>{"C", "B", "A"}));
  EXPECT_EQ(names(forest.trees[0]->nodes), std::vector<std::string>{"D"});

  const Clique& c1 = *forest.cliques[1];
  const Clique& c2 = *forest.cliques[2];
  EXPECT_EQ(c2.parent, &c1);
  ASSERT_EQ(c1.links.size(), 1u);
  ASSERT_EQ(c2.links.size(), 1u);
  const Separator& sep = *c2.links[0].separator;
  EXPECT_EQ(c1.links[0].separator, &sep);
  EXPECT_EQ(sep.parent, &c1);
  EXPECT_EQ(sep.child, &c2);
  EXPECT_EQ(sep.scratch.size(), 2u);
  // Table data wait for the first propagation: triangulating allocates no entries.
  EXPECT_FALSE(c1.table->has_data() || c2.table->has_data() || sep.table->has_data());
  EXPECT_EQ(sep.parent_plan.large_size(), 6u);
  EXPECT_EQ(sep.parent_plan.small_size(), 2u);

  // Node records: B's family is its home; C's plan reads C's own order.
  const NodeSlot& a = forest.nodes[named(domain, "A")->forest_slot];
  EXPECT_EQ(a.assigned, &c1);
  EXPECT_EQ(a.home, &c1);
  EXPECT_EQ(a.tree, &big);
  EXPECT_EQ(a.marginal.size(), 2u);
  EXPECT_EQ(a.home_plan.large_size(), 6u);
  EXPECT_EQ(a.home_plan.small_size(), 2u);
  const NodeSlot& c = forest.nodes[named(domain, "C")->forest_slot];
  EXPECT_EQ(c.assigned, &c2);
  EXPECT_EQ(c.assigned_plan.small_size(), 6u);
  EXPECT_EQ(names(forest.elimination_order), (std::vector<std::string>{"B", "C", "A", "D"}));

  // Uncompiling frees the forest and forgets every slot.
  EXPECT_EQ(k_domain_uncompile(net.handle()), 0);
  for (Node* n = domain.first_node(); n != nullptr; n = n->next)
    EXPECT_EQ(n->forest_slot, Node::kNoSlot);
}

// The link line of an empty separator ends after its size; a one-member
// separator says "member".  Cliques of a connected part always share nodes,
// so the empty case is written through the log function itself.
TEST(JunctionForest, SeparatorLines) {
  NetDomain net("node A { states = (\"a0\" \"a1\" \"a2\"); }\n");
  Domain& domain = net.domain();
  Clique parent, child;
  parent.number = 3;
  child.number = 7;
  Separator empty, one;
  for (Separator* s : {&empty, &one}) {
    s->parent = &parent;
    s->child = &child;
  }
  empty.table.reset(new Table(domain, {}, TableRole::potential, nullptr));
  one.table.reset(new Table(domain, {named(domain, "A")}, TableRole::potential, nullptr));
  one.members.push_back(named(domain, "A"));
  LogCapture log;
  CompileLog compile_log(log.file());
  write_link(compile_log, empty);
  write_link(compile_log, one);
  EXPECT_EQ(log.text(),
            "\nCliques 7 and 3 linked, separator has 0 members and table size = 1\n"
            "\nCliques 7 and 3 linked, separator has 1 member and table size = 3:\n    A\n");
}

// A -> X, X -> Y, B -> Y with A, B discrete and X, Y continuous.  The
// clique {Y, X, B} is the smaller and comes first, but it cannot be the
// root: below it, {X, A, B} would number the discrete A after the
// continuous X.  The strong root is {X, A, B}.
constexpr const char* kMixed = R"(
node A { states = ("a0" "a1"); }
node B { states = ("b0" "b1"); }
continuous node X {}
continuous node Y {}
potential (A) { data = (0.5 0.5); }
potential (B) { data = (0.3 0.7); }
potential (X | A) { data = (normal (0, 1) normal (1, 1)); }
potential (Y | B X) { data = (normal (X, 1) normal (2 * X, 1)); }
)";

TEST(JunctionForest, StrongRootOfCgTree) {
  NetDomain net(kMixed);
  Domain& domain = net.domain();
  const Triangulation t = eliminate(domain, named(domain, {"Y", "X", "B", "A"}));
  ASSERT_EQ(t.cliques.size(), 2u);
  LogCapture log;
  ASSERT_EQ(build_forest(domain, t, log.file()), 0) << k_error_name(k_error_code());
  EXPECT_EQ(log.text(),
            "\n\nCliques:\n"
            "\nClique 0, 3 members, table size = 4 + 8:\n    B A X\n"
            "\nClique 1, 3 members, table size = 2 + 10:\n    B X Y\n"
            "\nTotal clique table size: 6 + 18\n"
            "\n\nThe junction forest:\n"
            "\nCreating junction tree with clique 0 as root ...\n"
            "\nCliques 1 and 0 linked, separator has 2 members and table size = 2 + 4:\n"
            "    B X\n"
            "\n\nAssignment of potentials to cliques:\n\n"
            "    Node Y assigned to clique 1\n"
            "    Node X assigned to clique 0\n"
            "    Node B assigned to clique 1\n"
            "    Node A assigned to clique 0\n");
  const Forest& forest = *domain.forest();
  EXPECT_EQ(forest.cliques[0]->cg_entries, 2u);
  EXPECT_EQ(forest.cliques[1]->cg_entries, 5u);
  EXPECT_EQ(k_jt_get_total_size(k_domain_get_first_junction_tree(net.handle())), 6u);
  EXPECT_EQ(k_jt_get_total_cg_size(k_domain_get_first_junction_tree(net.handle())), 18u);
  // Y's home is the smaller clique, X's the first of two of equal size.
  EXPECT_EQ(forest.nodes[named(domain, "Y")->forest_slot].home, forest.cliques[1].get());
  EXPECT_EQ(forest.nodes[named(domain, "X")->forest_slot].home, forest.cliques[1].get());
  EXPECT_EQ(forest.nodes[named(domain, "A")->forest_slot].home, forest.cliques[0].get());
}

// A random network, each node with up to three parents among the older
// ones (discrete nodes only discrete parents), some without tables: discrete
// and continuous chance nodes and discrete function nodes, or, without
// continuous nodes, discrete chance, function, decision and utility nodes.
k_domain_t random_domain(std::mt19937& rng, bool continuous) {
  k_domain_t d = k_new_domain();
  std::vector<k_node_t> nodes;
  const int n = 4 + static_cast<int>(rng() % 14);
  for (int i = 0; i < n; ++i) {
    const unsigned roll = rng() % 10;
    k_category_t category = K_CATEGORY_CHANCE;
    k_kind_t kind = K_KIND_DISCRETE;
    if (continuous && roll < 4) kind = K_KIND_CONTINUOUS;
    else if (roll == 7) category = K_CATEGORY_FUNCTION;
    else if (!continuous && roll == 8) category = K_CATEGORY_DECISION;
    else if (!continuous && roll == 9) category = K_CATEGORY_UTILITY, kind = K_KIND_OTHER;
    k_node_t node = k_domain_new_node(d, category, kind, K_SUBTYPE_LABEL);
    EXPECT_NE(node, nullptr) << k_error_name(k_error_code());
    if (kind == K_KIND_DISCRETE) k_node_set_number_of_states(node, 2 + rng() % 3);
    const int parents = static_cast<int>(rng() % 4);
    for (int p = 0; p < parents && !nodes.empty(); ++p) {
      k_node_t parent = nodes[rng() % nodes.size()];
      if (k_node_get_kind(parent) == K_KIND_CONTINUOUS && kind == K_KIND_DISCRETE) continue;
      k_node_add_parent(node, parent);  // repeated or cyclic ones are refused
    }
    if (category != K_CATEGORY_DECISION && rng() % 3 != 0) k_node_get_table(node);
    if (category != K_CATEGORY_UTILITY) nodes.push_back(node);
  }
  return d;
}

TEST(JunctionForest, RandomNetworksHaveValidTrees) {
  std::mt19937 rng(20261122);
  for (int round = 0; round < 300; ++round) {
    const bool continuous = round % 2 == 1;
    k_domain_t d = random_domain(rng, continuous);
    Domain& domain = *reinterpret_cast<Domain*>(d);
    const k_triangulation_method_t methods[] = {K_TM_CLIQUE_SIZE, K_TM_CLIQUE_WEIGHT,
                                                K_TM_FILL_IN_SIZE, K_TM_FILL_IN_WEIGHT,
                                                K_TM_BEST_GREEDY};
    ASSERT_EQ(k_domain_triangulate(d, methods[round % 5]), 0)
        << "round " << round << ": " << k_error_name(k_error_code());
    test::check_forest_records(domain);
    // Every node now has a table (a decision's is its policy).
    for (Node* n = domain.first_node(); n != nullptr; n = n->next) EXPECT_NE(n->table(), nullptr);
    k_domain_delete(d);
    if (testing::Test::HasFailure()) FAIL() << "round " << round;
  }
}

// A chain-graph component, a decision and a utility node.
constexpr const char* kChainAndUtility = R"(
node P { states = ("p0" "p1"); }
node M1 { states = ("x" "y"); }
node M2 { states = ("x" "y"); }
decision D { states = ("d0" "d1" "d2"); }
utility U {}
potential (P) { data = (0.5 0.5); }
potential (M1 M2 | P) { data = (((1 2) (3 4)) ((5 6) (7 8))); }
potential (D | M1) {}
potential (U | D M2) { data = ((1 2) (3 4) (5 6)); }
)";

TEST(JunctionForest, ChainComponentsAndUtilities) {
  NetDomain net(kChainAndUtility);
  Domain& domain = net.domain();
  const Triangulation t = eliminate(domain, named(domain, {"P", "D", "M1", "M2"}));
  LogCapture log;
  ASSERT_EQ(build_forest(domain, t, log.file()), 0) << k_error_name(k_error_code());
  const std::string text = log.text();
  const std::string assignment = text.substr(text.find("\n\nAssignment"));
  EXPECT_EQ(assignment,
            "\n\nAssignment of potentials to cliques:\n\n"
            "    Node U assigned to clique 1\n"
            "    Node D assigned to clique 1\n"
            "    Node P assigned to clique 0\n"
            "    Chain graph component (M1, M2):\n\tParents assigned to clique 0\n"
            "    Potential (P, M1, M2) assigned to clique 0\n");
  EXPECT_EQ(text.find("Checking tables"), std::string::npos);
  const Forest& forest = *domain.forest();
  ASSERT_EQ(forest.components.size(), 1u);
  EXPECT_EQ(forest.components[0].assigned_plan.small_size(), 8u);
  // The members have no table to assign but a home.
  EXPECT_NE(forest.nodes[named(domain, "D")->forest_slot].assigned, nullptr);
  for (const char* name : {"M1", "M2"}) {
    const NodeSlot& slot = forest.nodes[named(domain, name)->forest_slot];
    EXPECT_EQ(slot.assigned, nullptr);
    EXPECT_NE(slot.home, nullptr);
  }
  test::check_forest_records(domain);
}

TEST(JunctionForest, Queries) {
  NetDomain net(kTwoParts);
  Domain& domain = net.domain();
  const k_node_t a = reinterpret_cast<k_node_t>(named(domain, "A"));

  // Null handles are usage; an untriangulated domain has no trees.
  auto usage = [](bool neutral) { return neutral && k_error_code() == K_ERROR_USAGE; };
  EXPECT_TRUE(usage(k_domain_get_first_junction_tree(nullptr) == nullptr));
  EXPECT_TRUE(usage(k_jt_get_next(nullptr) == nullptr));
  EXPECT_TRUE(usage(k_jt_get_root(nullptr) == nullptr));
  EXPECT_TRUE(usage(k_jt_get_cliques(nullptr) == nullptr));
  EXPECT_TRUE(usage(k_jt_get_total_size(nullptr) == K_SIZE_ERROR));
  EXPECT_TRUE(usage(k_jt_get_total_cg_size(nullptr) == K_SIZE_ERROR));
  EXPECT_TRUE(usage(k_clique_get_members(nullptr) == nullptr));
  EXPECT_TRUE(usage(k_clique_get_neighbors(nullptr) == nullptr));
  EXPECT_TRUE(usage(k_clique_get_junction_tree(nullptr) == nullptr));
  EXPECT_TRUE(usage(k_node_get_junction_tree(nullptr) == nullptr));
  // A handle of the wrong sort is refused.
  EXPECT_TRUE(usage(k_jt_get_root(reinterpret_cast<k_junction_tree_t>(net.handle())) == nullptr));
  EXPECT_NULL_WITH(k_domain_get_first_junction_tree(net.handle()), K_ERROR_NONE);
  EXPECT_NULL_WITH(k_node_get_junction_tree(a), K_ERROR_NOT_COMPILED);

  ASSERT_EQ(build_forest(domain, eliminate(domain, named(domain, {"B", "C", "A", "D"}))), 0);
  k_junction_tree_t first = k_domain_get_first_junction_tree(net.handle());
  ASSERT_NE(first, nullptr);
  k_junction_tree_t second = k_jt_get_next(first);
  ASSERT_NE(second, nullptr);
  EXPECT_NULL_WITH(k_jt_get_next(second), K_ERROR_NONE);
  EXPECT_EQ(k_jt_get_total_size(first), 2u);
  EXPECT_EQ(k_jt_get_total_size(second), 12u);
  EXPECT_EQ(k_jt_get_total_cg_size(second), 0u);

  k_clique_t* cliques = k_jt_get_cliques(second);
  ASSERT_NE(cliques, nullptr);
  ASSERT_NE(cliques[0], nullptr);
  ASSERT_NE(cliques[1], nullptr);
  EXPECT_EQ(cliques[2], nullptr);
  EXPECT_EQ(k_jt_get_root(second), cliques[0]);
  EXPECT_EQ(names(k_clique_get_members(cliques[0])), (std::vector<std::string>{"B", "A"}));
  EXPECT_EQ(names(k_clique_get_members(cliques[1])), (std::vector<std::string>{"A", "C"}));
  k_clique_t* neighbours = k_clique_get_neighbors(cliques[0]);
  ASSERT_NE(neighbours, nullptr);
  EXPECT_EQ(neighbours[0], cliques[1]);
  EXPECT_EQ(neighbours[1], nullptr);
  EXPECT_EQ(k_clique_get_junction_tree(cliques[1]), second);
  EXPECT_EQ(k_node_get_junction_tree(a), second);
  EXPECT_EQ(k_node_get_junction_tree(reinterpret_cast<k_node_t>(named(domain, "D"))), first);
}

// A clique too large to store: its size saturates in the log, the forest
// cannot be allocated, and nothing is left behind.
TEST(JunctionForest, SaturatedSizesRunOutOfMemory) {
  k_domain_t d = k_new_domain();
  Domain& domain = *reinterpret_cast<Domain*>(d);
  std::vector<k_node_t> nodes;
  for (const char* name : {"W", "X", "Y", "Z"}) {
    k_node_t n = k_domain_new_node(d, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL);
    ASSERT_EQ(k_node_set_name(n, name), 0);
    ASSERT_EQ(k_node_set_number_of_states(n, 100000), 0);
    for (k_node_t p : nodes) ASSERT_EQ(k_node_add_parent(n, p), 0);
    nodes.push_back(n);
  }
  LogCapture log;
  EXPECT_FAILS(build_forest(domain, eliminate_greedily(domain), log.file()), K_ERROR_NO_MEMORY);
  const std::string text = log.text();
  EXPECT_NE(text.find("\nClique 0, 4 members, table size = 18446744073709551615:\n"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("\nTotal clique table size: 18446744073709551615\n"), std::string::npos);
  EXPECT_EQ(domain.forest(), nullptr);
  for (Node* n = domain.first_node(); n != nullptr; n = n->next)
    EXPECT_EQ(n->forest_slot, Node::kNoSlot);
  k_domain_delete(d);
}

// Triangulations that are not triangulations fail with the internal error.
TEST(JunctionForest, UncoveredLinksAreInternalErrors) {
  NetDomain net(kTwoParts);
  Domain& domain = net.domain();
  Triangulation t = eliminate(domain, named(domain, {"B", "C", "A", "D"}));
  Triangulation bad_link = t;
  bad_link.links.emplace_back(named(domain, "B"), named(domain, "C"));
  EXPECT_FAILS(build_forest(domain, bad_link), K_ERROR_ERROR);
  Triangulation missing_node = t;
  missing_node.cliques.erase(missing_node.cliques.begin() + 2);
  EXPECT_FAILS(build_forest(domain, missing_node), K_ERROR_ERROR);
  EXPECT_EQ(domain.forest(), nullptr);
  EXPECT_EQ(build_forest(domain, t), 0);
}

// Every allocation of the construction may fail: each failure is no_memory
// and leaves no forest and no slot behind.
TEST(JunctionForest, AllocationFailures) {
  for (const char* text : {kMixed, kChainAndUtility}) {
    NetDomain net(text);
    Domain& domain = net.domain();
    const Triangulation t = eliminate_greedily(domain);
    for (long n = 0;; ++n) {
      LogCapture log;
      test::fail_allocation_after(n);
      const k_status_t status = build_forest(domain, t, log.file());
      test::fail_allocation_after(-1);
      if (status == 0) break;
      ASSERT_EQ(k_error_code(), K_ERROR_NO_MEMORY) << n;
      ASSERT_EQ(domain.forest(), nullptr);
      for (Node* node = domain.first_node(); node != nullptr; node = node->next)
        ASSERT_EQ(node->forest_slot, Node::kNoSlot) << n;
    }
    test::check_forest_records(domain);
  }
}

}  // namespace
}  // namespace kelva
