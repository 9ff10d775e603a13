#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "common/expect_code.h"
#include "common/fail_new.h"
#include "common/shared_nets.h"
#include "compile/junction_forest.h"
#include "inference/net_builder.h"
#include "inference/propagate.h"
#include "table/table.h"

namespace kelva::test {
namespace {

// Beliefs, normalization constant and (for sum) expected utilities agree
// with enumeration of the joint.
void expect_matches(const TestNet& net, bool max, const char* what) {
  SCOPED_TRACE(what);
  const Oracle o = enumerate(net, max);
  // A decision taken by hand drops its policy from the constant, and its
  // options' values are those of taking them (limid_test checks both).
  const bool decisions = net.d().count(K_CATEGORY_DECISION) > 0;
  const double c = k_domain_get_normalization_constant(net.domain);
  if (!decisions) {
    EXPECT_NEAR(c, o.total, 1e-12 * o.total);
    EXPECT_NEAR(k_domain_get_log_normalization_constant(net.domain), std::log(o.total), 1e-12);
  }
  std::size_t u = 0;
  for (std::size_t i = 0; i < net.nodes.size(); ++i) {
    Node* n = net.nodes[i];
    if (n->category() == K_CATEGORY_UTILITY) {
      EXPECT_NEAR(k_node_get_expected_utility(h(n), 0), o.utilities[u++], 1e-12);
      continue;
    }
    for (std::size_t s = 0; s < n->state_count(); ++s) {
      EXPECT_NEAR(k_node_get_belief(h(n), s), o.marginals[i][s], 1e-12) << "node " << i;
      if (!o.utilities.empty() && n->category() != K_CATEGORY_DECISION) {
        EXPECT_NEAR(k_node_get_expected_utility(h(n), s), o.state_utilities[i][s], 1e-12)
            << "node " << i << " state " << s;
      }
    }
  }
}

TEST(Propagation, AnyRootAndUnconnectedPartsGiveTheSameBeliefs) {
  std::mt19937 rng(77);
  TestNet net;
  random_network(net, rng, 6, 2);
  // A second part, not linked to the first.
  Node* x = net.add(K_CATEGORY_CHANCE, 3, {});
  Node* y = net.add(K_CATEGORY_CHANCE, 2, {x});
  net.randomize(x, rng);
  net.randomize(y, rng);
  ASSERT_EQ(compile_for_test(net.d()), 0);
  ASSERT_GE(net.d().forest()->trees.size(), 2u);
  select_state(*y, 1);
  select_state(*net.nodes[2], 0);
  for (auto& c : net.d().forest()->cliques) {
    ASSERT_EQ(k_domain_initialize(net.domain), 0);
    for (auto& t : net.d().forest()->trees)
      if (t.get() != c->tree) {
        ASSERT_EQ(k_jt_propagate(reinterpret_cast<k_junction_tree_t>(t.get()), K_EQUILIBRIUM_SUM,
                                 K_MODE_NORMAL),
                  0);
      }
    ASSERT_EQ(
        k_clique_propagate(reinterpret_cast<k_clique_t>(c.get()), K_EQUILIBRIUM_SUM, K_MODE_NORMAL),
        0);
    expect_matches(net, false, "clique as root");
    EXPECT_EQ(k_node_get_conflict_clique(h(y)) == reinterpret_cast<k_clique_t>(c.get()),
              c->tree == net.d().forest()->slot(*y)->tree);
  }
}

TEST(Propagation, InfluenceDiagramExpectedUtilities) {
  std::mt19937 rng(5);
  TestNet net;
  Node* weather = net.add(K_CATEGORY_CHANCE, 3, {});
  Node* forecast = net.add(K_CATEGORY_CHANCE, 2, {weather});
  Node* act = net.add(K_CATEGORY_DECISION, 2, {forecast});
  Node* gain = net.add(K_CATEGORY_UTILITY, 0, {act, weather});
  Node* cost = net.add(K_CATEGORY_UTILITY, 0, {act});
  Node* season = net.add(K_CATEGORY_CHANCE, 2, {weather});
  Node* crowd = net.add(K_CATEGORY_CHANCE, 3, {season, act});
  Node* queue = net.add(K_CATEGORY_UTILITY, 0, {crowd});
  // The decision keeps its uniform policy.
  for (Node* n : {weather, forecast, season, crowd}) net.randomize(n, rng);
  net.randomize(gain, rng, false);
  net.randomize(cost, rng, false);
  net.randomize(queue, rng, false);
  ASSERT_EQ(compile_for_test(net.d()), 0);
  expect_matches(net, false, "no evidence");
  select_state(*forecast, 1);
  select_state(*act, 0);
  ASSERT_EQ(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
  expect_matches(net, false, "decision taken");
  // A finding on a decision is refused; so are other pairs than sum/normal.
  enter_vector(*act, {1.0, 0.0});
  enter_vector(*act, {0.5, 1.0});
  EXPECT_FAILS(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL),
               K_ERROR_INVALID_EVIDENCE);
  select_state(*act, 1);
  EXPECT_FAILS(k_domain_propagate(net.domain, K_EQUILIBRIUM_MAX, K_MODE_NORMAL), K_ERROR_USAGE);
  EXPECT_FAILS(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_FAST_RETRACTION),
               K_ERROR_USAGE);
  ASSERT_EQ(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
  expect_matches(net, false, "decision changed");
  // Conflicts are not defined with decisions.
  EXPECT_CODE(k_domain_get_conflict(net.domain), -1.0, K_ERROR_USAGE);
  EXPECT_CODE(k_node_get_expected_utility(h(weather), 3), -1.0, K_ERROR_USAGE);
}

TEST(Propagation, ContinuousNodesLeaveDiscreteBeliefsExact) {
  std::mt19937 rng(31);
  TestNet net;
  Node* a = net.add(K_CATEGORY_CHANCE, 2, {});
  Node* b = net.add(K_CATEGORY_CHANCE, 3, {a});
  Node* y = net.add_continuous({a});
  net.add_continuous({b, y});
  net.randomize(a, rng);
  net.randomize(b, rng);
  ASSERT_EQ(compile_for_test(net.d()), 0);
  expect_matches(net, false, "no evidence");
  select_state(*b, 2);
  ASSERT_EQ(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
  expect_matches(net, false, "discrete evidence");
  // Only sum equilibrium with continuous nodes; a continuous value entered
  // and retracted leaves the discrete beliefs as they were.
  EXPECT_FAILS(k_domain_propagate(net.domain, K_EQUILIBRIUM_MAX, K_MODE_NORMAL), K_ERROR_USAGE);
  ASSERT_EQ(k_node_enter_value(h(y), 1.5), 0);
  ASSERT_EQ(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
  ASSERT_EQ(k_node_retract_findings(h(y)), 0);
  ASSERT_EQ(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
  expect_matches(net, false, "continuous evidence retracted");

  // The shared CG networks.
  const std::string dir = (shared_dir() / "nets/").string();
  for (const char* name : {"rats-deal.net", "ksl-deal.net"}) {
    SCOPED_TRACE(name);
    k_domain_t d = k_net_parse_domain((dir + name).c_str(), nullptr, nullptr);
    if (d == nullptr) {
      std::printf("skipped %s: no shared networks at %s\n", name, dir.c_str());
      continue;
    }
    EXPECT_EQ(compile_for_test(*reinterpret_cast<Domain*>(d)), 0);
    for (k_node_t n = k_domain_get_first_node(d); n != nullptr; n = k_node_get_next(n)) {
      if (k_node_get_kind(n) != K_KIND_DISCRETE) continue;
      double sum = 0;
      for (k_size_t s = 0; s < k_node_get_number_of_states(n); ++s) sum += k_node_get_belief(n, s);
      EXPECT_NEAR(sum, 1.0, 1e-12);
    }
    k_domain_delete(d);
  }
}

// A two-state node whose table is {first, 1 - first}, compiled.
struct Coin {
  TestNet net;
  Node* node;
  k_status_t compiled;
  explicit Coin(double first, double second) {
    node = net.add(K_CATEGORY_CHANCE, 2, {});
    node->table()->data()[0] = first;
    node->table()->data()[1] = second;
    compiled = compile_for_test(net.d());
  }
  k_status_t propagate() {
    return k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL);
  }
};

TEST(Propagation, RootTotalValidity) {
  {
    Coin coin(DBL_MIN, 1.0);
    select_state(*coin.node, 0);
    EXPECT_EQ(coin.propagate(), 0);
    EXPECT_EQ(k_domain_get_normalization_constant(coin.net.domain), DBL_MIN);
    EXPECT_EQ(k_node_get_belief(h(coin.node), 0), 1.0);
  }
  {
    Coin coin(DBL_MIN / 2, 1.0);
    select_state(*coin.node, 0);
    EXPECT_FAILS(coin.propagate(), K_ERROR_INCONSISTENCY_OR_UNDERFLOW);
  }
  {
    Coin coin(std::nan(""), 0.5);
    EXPECT_FAILS(coin.compiled, K_ERROR_OVERFLOW);
    EXPECT_FAILS(coin.propagate(), K_ERROR_OVERFLOW);
  }
  {
    Coin coin(DBL_MAX, DBL_MAX);
    EXPECT_FAILS(coin.compiled, K_ERROR_OVERFLOW);
    coin.node->table()->data()[0] = 0.5;
    coin.node->table()->data()[1] = 0.5;
    coin.node->table()->notify_changed();
    EXPECT_EQ(coin.propagate(), 0);
    select_state(*coin.node, 0);
    coin.node->table()->data()[0] = -1.0;
    coin.node->table()->notify_changed();
    // A negative total with no code set passes, as documented.
    EXPECT_EQ(coin.propagate(), 0);
  }
}

TEST(Propagation, InconsistentEvidenceFailsAndLeavesEvidenceEntered) {
  std::mt19937 rng(3);
  TestNet net;
  random_network(net, rng, 5, 2);
  ASSERT_EQ(compile_for_test(net.d()), 0);
  Node* n = net.nodes[2];
  select_state(*n, 1);
  ASSERT_EQ(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
  std::vector<double> v(n->state_count(), 0.0);
  v[0] = 1.0;
  if (v.size() > 2) v[2] = 0.5;
  enter_vector(*n, {0.0, 0.0, 0.0});
  enter_vector(*n, std::vector<double>(n->state_count(), 0.0));
  EXPECT_FAILS(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL),
               K_ERROR_INCONSISTENCY_OR_UNDERFLOW);
  EXPECT_EQ(net.d().forest()->trees[0]->equilibrium, K_EQUILIBRIUM_NONE);
  EXPECT_CODE(k_node_get_belief(h(n), 0), -1.0, K_ERROR_NO_EQUILIBRIUM);
  EXPECT_CODE(k_domain_get_normalization_constant(net.domain), -1.0, K_ERROR_NO_EQUILIBRIUM);
  EXPECT_TRUE(net.d().is_compiled());
  EXPECT_EQ(n->evidence.entered_code, Evidence::kVector);
  // The next propagation starts from the node tables.
  enter_vector(*n, v);
  ASSERT_EQ(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
  expect_matches(net, false, "after failure");
}

TEST(Propagation, NothingChangedMeansNoWork) {
  std::mt19937 rng(11);
  TestNet net;
  random_network(net, rng, 6, 2);
  ASSERT_EQ(compile_for_test(net.d()), 0);
  select_state(*net.nodes[1], 0);
  ASSERT_EQ(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
  const double c = k_domain_get_normalization_constant(net.domain);
  // A clique entry spoiled behind propagation's back stays spoiled: the
  // second propagation touches nothing.
  Clique& clique = *net.d().forest()->cliques.back();
  clique.table->data()[0] = 42.0;
  ASSERT_EQ(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
  EXPECT_EQ(clique.table->data()[0], 42.0);
  EXPECT_EQ(k_domain_get_normalization_constant(net.domain), c);
  // A changed node table is noticed.
  Node* n = net.nodes[4];
  n->table()->data()[0] *= 0.5;
  n->table()->notify_changed();
  ASSERT_EQ(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
  expect_matches(net, false, "table changed");
}

TEST(Propagation, ConflictValues) {
  std::mt19937 rng(21);
  TestNet net;
  random_network(net, rng, 6, 2);
  ASSERT_EQ(compile_for_test(net.d()), 0);
  EXPECT_NEAR(k_domain_get_conflict(net.domain), 1.0, 1e-12);
  Node* a = net.nodes[1];
  Node* b = net.nodes[4];
  const Oracle prior = enumerate(net, false);
  select_state(*a, 1);
  enter_vector(*b, std::vector<double>(b->state_count(), 0.0));
  b->evidence.entered_vector[0] = 0.3;
  b->evidence.entered_vector[1] = 1.0;
  ASSERT_EQ(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_FAST_RETRACTION), 0);
  const Oracle post = enumerate(net, false);
  // Fast retraction: the product of the evidence factors against the prior
  // marginals, over the probability of all the evidence.
  const double pa = prior.marginals[1][1];
  const double pb = prior.marginals[4][0] * 0.3 + prior.marginals[4][1];
  EXPECT_NEAR(k_domain_get_conflict(net.domain), pa * pb / post.total, 1e-12);
  const k_clique_t root = k_node_get_conflict_clique(h(a));
  ASSERT_NE(root, nullptr);
  EXPECT_NEAR(k_clique_get_conflict(root), pa * pb / post.total, 1e-12);
  // Normal mode from scratch: one over the probability of the evidence.
  ASSERT_EQ(k_domain_initialize(net.domain), 0);
  ASSERT_EQ(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
  EXPECT_NEAR(k_domain_get_conflict(net.domain), 1.0 / post.total, 1e-9);
  ASSERT_EQ(k_domain_propagate(net.domain, K_EQUILIBRIUM_MAX, K_MODE_NORMAL), 0);
  EXPECT_CODE(k_domain_get_conflict(net.domain), -1.0, K_ERROR_USAGE);
}

TEST(Propagation, ThreadsGiveTheSameResultsBitForBit) {
  std::vector<std::vector<double>> results[2];
  for (int threaded = 0; threaded < 2; ++threaded) {
    std::mt19937 rng(99);
    TestNet net;
    random_network(net, rng, 14, 4);
    // Results may depend on the grain, never on the threads.
    k_domain_set_grain_size(net.domain, 1);
    if (threaded) k_domain_set_concurrency_level(net.domain, 4);
    ASSERT_EQ(compile_for_test(net.d()), 0);
    select_state(*net.nodes[3], 1);
    select_state(*net.nodes[9], 0);
    ASSERT_EQ(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
    for (auto& c : net.d().forest()->cliques)
      results[threaded].emplace_back(c->table->data(), c->table->data() + c->table->size());
    results[threaded].push_back({k_domain_get_normalization_constant(net.domain)});
  }
  EXPECT_EQ(results[0], results[1]);
}

// Every shared network, split between two threads down to small trees:
// beliefs, constants and errors are those of one thread to the last bit, in
// sum and max propagation, scaled or not.
TEST(Propagation, TwoThreadsGiveTheBitsOfOneOnSharedNetworks) {
  for (const auto& file : shared_nets_for_sweeps()) {
    SCOPED_TRACE(file.filename().string());
    DomainHandle domain(parse_net_quietly(file));
    if (!domain || k_domain_compile(domain.get()) != 0) continue;
    k_domain_set_grain_size(domain.get(), 16);
    std::vector<k_node_t> nodes;
    for (k_node_t n = k_domain_get_first_node(domain.get()); n; n = k_node_get_next(n))
      if (k_node_get_kind(n) == K_KIND_DISCRETE && k_node_get_category(n) == K_CATEGORY_CHANCE)
        nodes.push_back(n);
    for (std::size_t i = 0; i < nodes.size(); i += 9) k_node_select_state(nodes[i], 0);
    for (int round = 0; round < 3; ++round) {
      const k_equilibrium_t eq = round == 1 ? K_EQUILIBRIUM_MAX : K_EQUILIBRIUM_SUM;
      k_domain_set_scaled_propagation(domain.get(), round == 2 ? 1 : 0);
      std::vector<double> seen[2];
      for (int threads = 1; threads <= 2; ++threads) {
        k_domain_set_concurrency_level(domain.get(), threads);
        ASSERT_EQ(k_domain_initialize(domain.get()), 0);
        if (k_domain_propagate(domain.get(), eq, K_MODE_NORMAL) != 0) {
          seen[threads - 1].push_back(-static_cast<double>(k_error_code()));
          continue;
        }
        seen[threads - 1].push_back(k_domain_get_log_normalization_constant(domain.get()));
        for (k_node_t n : nodes)
          for (std::size_t s = 0; s < k_node_get_number_of_states(n); ++s)
            seen[threads - 1].push_back(k_node_get_belief(n, s));
      }
      EXPECT_EQ(seen[0], seen[1]) << "round " << round;
    }
  }
}

TEST(Propagation, ApiErrors) {
  std::mt19937 rng(8);
  TestNet net;
  random_network(net, rng, 4, 2);
  Node* n = net.nodes[0];
  EXPECT_FAILS(k_domain_propagate(nullptr, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), K_ERROR_USAGE);
  EXPECT_FAILS(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL),
               K_ERROR_NOT_COMPILED);
  EXPECT_CODE(k_node_get_belief(h(n), 0), -1.0, K_ERROR_NOT_COMPILED);
  EXPECT_CODE(k_domain_get_normalization_constant(net.domain), -1.0, K_ERROR_NOT_COMPILED);
  EXPECT_FAILS(k_domain_initialize(net.domain), K_ERROR_NOT_COMPILED);
  ASSERT_EQ(compile_for_test(net.d()), 0);
  EXPECT_FAILS(k_domain_propagate(net.domain, K_EQUILIBRIUM_NONE, K_MODE_NORMAL), K_ERROR_USAGE);
  EXPECT_NE(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, static_cast<k_evidence_mode_t>(22)),
            0);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  EXPECT_CODE(k_node_get_belief(h(n), n->state_count()), -1.0, K_ERROR_USAGE);
  EXPECT_CODE(k_node_get_belief(nullptr, 0), -1.0, K_ERROR_USAGE);
  // A successful call clears the code.
  EXPECT_GE(k_node_get_belief(h(n), 0), 0.0);
  EXPECT_EQ(k_error_code(), K_ERROR_NONE);
  // Initialise and reset leave entered evidence waiting, and no equilibrium.
  select_state(*n, 1);
  ASSERT_EQ(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
  ASSERT_EQ(k_domain_reset_inference_engine(net.domain), 0);
  EXPECT_EQ(n->evidence.propagated_code, Evidence::kNone);
  EXPECT_CODE(k_node_get_belief(h(n), 0), -1.0, K_ERROR_NO_EQUILIBRIUM);
  ASSERT_EQ(k_domain_propagate(net.domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL), 0);
  expect_matches(net, false, "after reset");

  // Joint marginals of nodes sharing a clique.
  Node* child = nullptr;
  for (Node* m : net.nodes)
    if (!m->parents().empty()) child = m;
  ASSERT_NE(child, nullptr);
  std::vector<k_node_t> family{h(child), h(child->parents()[0]), nullptr};
  k_table_t joint = k_domain_get_marginal(net.domain, family.data());
  ASSERT_NE(joint, nullptr);
  const Table& t = *reinterpret_cast<Table*>(joint);
  const Oracle o = enumerate(net, false);
  const auto ci = std::find(net.nodes.begin(), net.nodes.end(), child) - net.nodes.begin();
  for (std::size_t s = 0; s < child->state_count(); ++s) {
    double sum = 0;
    for (std::size_t p = 0; p < child->parents()[0]->state_count(); ++p)
      sum += t.data()[s * child->parents()[0]->state_count() + p];
    EXPECT_NEAR(sum, o.marginals[ci][s], 1e-12);
  }
  k_table_delete(joint);
  std::vector<k_node_t> twice{h(child), h(child), nullptr};
  EXPECT_NULL_WITH(k_domain_get_marginal(net.domain, twice.data()), K_ERROR_USAGE);
}

// Max propagation fails in the collect where a node's table is all zero:
// with two threads walking the passes, the error is the one thread's, and
// the domain propagates again, without allocating, once the tables are
// restored.
TEST(Propagation, TwoThreadsFailAsOneWhereCliquesAreImpossibleThenAllocateNothing) {
  DomainHandle domain(parse_net_quietly(shared_dir() / "nets" / "hailfinder.net"));
  ASSERT_TRUE(domain && k_domain_compile(domain.get()) == 0);
  k_domain_set_grain_size(domain.get(), 1);
  std::vector<k_table_t> zeroed;
  int count = 0;
  for (k_node_t n = k_domain_get_first_node(domain.get()); n; n = k_node_get_next(n))
    if (++count % 7 == 0) zeroed.push_back(k_node_get_table(n));
  std::vector<std::vector<double>> kept;
  for (k_table_t t : zeroed) {
    kept.emplace_back(k_table_get_size(t));
    k_table_get_data(t, kept.back().data(), kept.back().size(), 0, kept.back().size());
    k_table_set_all_data_items(t, 0.0);
  }
  k_error_t codes[2];
  for (int threads = 1; threads <= 2; ++threads) {
    k_domain_set_concurrency_level(domain.get(), threads);
    EXPECT_NE(k_domain_propagate(domain.get(), K_EQUILIBRIUM_MAX, K_MODE_NORMAL), 0);
    codes[threads - 1] = k_error_code();
  }
  EXPECT_EQ(codes[0], K_ERROR_INCONSISTENCY_OR_UNDERFLOW);
  EXPECT_EQ(codes[1], codes[0]);
  for (std::size_t i = 0; i < zeroed.size(); ++i)
    k_table_set_data(zeroed[i], kept[i].data(), kept[i].size(), 0, kept[i].size());
  EXPECT_EQ(k_domain_propagate(domain.get(), K_EQUILIBRIUM_MAX, K_MODE_NORMAL), 0);
  // The passes allocate nothing once the tree has propagated.
  k_node_select_state(k_domain_get_first_node(domain.get()), 0);
  fail_allocation_after(0);
  const k_status_t again = k_domain_propagate(domain.get(), K_EQUILIBRIUM_SUM, K_MODE_NORMAL);
  fail_allocation_after(-1);
  EXPECT_EQ(again, 0);
}

}  // namespace
}  // namespace kelva::test
