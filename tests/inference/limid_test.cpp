// Policies, expected utilities and option values of influence diagrams
// against the joint: backward induction over all strategies where the
// diagram has perfect recall, best responses where it has not.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>

#include "common/expect_code.h"
#include "inference/net_builder.h"
#include "structure/structure.h"
#include "table/table.h"

namespace kelva::test {
namespace {

struct Diagram {
  TestNet net;
  std::vector<Node*> decisions;               ///< in order
  std::vector<std::vector<Node*>> observed;   ///< chance nodes first seen by each decision
  std::vector<std::vector<double>> findings;  ///< per node, empty for none
};

// A random diagram of `k` decisions with binary chance nodes between them.
// With `recall`, each decision sees the previous one and everything it saw.
void build(Diagram& g, std::mt19937& rng, std::size_t k, bool recall) {
  TestNet& net = g.net;
  auto pick = [&](std::size_t n) {
    return std::uniform_int_distribution<std::size_t>(0, n - 1)(rng);
  };
  std::vector<Node*> seen;
  for (std::size_t stage = 0; stage <= k; ++stage) {
    std::vector<Node*> fresh;
    for (std::size_t c = 1 + pick(2); c-- > 0;) {
      std::vector<Node*> parents;
      for (std::size_t p = pick(3); p-- > 0 && !net.nodes.empty();) {
        Node* q = net.nodes[pick(net.nodes.size())];
        if (q->category() != K_CATEGORY_UTILITY &&
            std::find(parents.begin(), parents.end(), q) == parents.end())
          parents.push_back(q);
      }
      fresh.push_back(net.add(K_CATEGORY_CHANCE, 2, parents));
      net.randomize(fresh.back(), rng);
    }
    if (stage == k) break;
    std::vector<Node*> obs;
    if (pick(3) > 0) obs.push_back(fresh[pick(fresh.size())]);
    std::vector<Node*> parents = obs;
    if (recall) {
      for (Node* n : seen) parents.push_back(n);
      if (!g.decisions.empty()) parents.push_back(g.decisions.back());
      for (Node* n : obs) seen.push_back(n);
    } else if (!g.decisions.empty() && pick(2) == 0) {
      parents.push_back(net.nodes[pick(net.nodes.size())]);
    }
    g.decisions.push_back(net.add(K_CATEGORY_DECISION, 2 + pick(2), parents));
    g.observed.push_back(obs);
  }
  for (std::size_t u = 1 + pick(3); u-- > 0;) {
    std::vector<Node*> parents;
    for (std::size_t p = 1 + pick(3); p-- > 0;) {
      Node* q = net.nodes[pick(net.nodes.size())];
      if (q->category() != K_CATEGORY_UTILITY &&
          std::find(parents.begin(), parents.end(), q) == parents.end())
        parents.push_back(q);
    }
    Node* n = net.add(K_CATEGORY_UTILITY, 0, parents);
    net.randomize(n, rng, false);
    for (std::uint64_t i = 0; i < n->table()->size(); ++i) n->table()->data()[i] -= 0.5;
  }
  g.findings.assign(net.nodes.size(), {});
}

// The entry of `node`'s table in configuration `state` (by node index).
double entry(const TestNet& net, const Node& node, const std::vector<std::size_t>& state) {
  std::uint64_t index = 0;
  for (Node* m : node.table()->nodes()) {
    const auto at = std::find(net.nodes.begin(), net.nodes.end(), m) - net.nodes.begin();
    index = index * m->state_count() + state[static_cast<std::size_t>(at)];
  }
  return node.table()->data()[index];
}

// P(x, e) (policies included) and the total utility of a configuration.
std::pair<double, double> joint(const Diagram& g, const std::vector<std::size_t>& state) {
  double p = 1.0;
  double u = 0.0;
  for (std::size_t i = 0; i < g.net.nodes.size(); ++i) {
    const Node& n = *g.net.nodes[i];
    if (n.category() == K_CATEGORY_UTILITY) u += entry(g.net, n, state);
    else p *= entry(g.net, n, state) * (g.findings[i].empty() ? 1.0 : g.findings[i][state[i]]);
  }
  return {p, u};
}

// Visits every configuration of the discrete nodes.
void each_state(const Diagram& g, const std::function<void(const std::vector<std::size_t>&)>& f) {
  std::vector<std::size_t> state(g.net.nodes.size(), 0);
  for (;;) {
    f(state);
    std::size_t i = state.size();
    while (i-- > 0 && (g.net.nodes[i]->category() == K_CATEGORY_UTILITY ||
                       ++state[i] == g.net.nodes[i]->state_count()))
      state[i] = 0;
    if (i == static_cast<std::size_t>(-1)) return;
  }
}

// E[U | e] and Var[U | e] under the tables as they are: of the total
// utility, or of utility node `only`'s.
std::pair<double, double> moments(const Diagram& g, const Node* only = nullptr) {
  double p = 0.0;
  double pu = 0.0;
  double puu = 0.0;
  each_state(g, [&](const auto& s) {
    auto [q, u] = joint(g, s);
    if (only != nullptr) u = entry(g.net, *only, s);
    p += q;
    pu += q * u;
    puu += q * u * u;
  });
  return {pu / p, puu / p - (pu / p) * (pu / p)};
}

std::size_t index_of(const Diagram& g, const Node* n) {
  return static_cast<std::size_t>(std::find(g.net.nodes.begin(), g.net.nodes.end(), n) -
                                  g.net.nodes.begin());
}

// Sum over the chance nodes each decision observes first, max over the
// decision, innermost sum over the rest, with every policy set to 1: the
// best of all strategies, divided by P(e) (the evidence lies on nodes no
// decision reaches, so P(e) is the same under every strategy).
double maximum_expected_utility(Diagram& g) {
  for (Node* d : g.decisions) std::fill_n(d->table()->data(), d->table()->size(), 1.0);
  std::vector<std::vector<std::size_t>> groups;
  std::vector<bool> grouped(g.net.nodes.size(), false);
  for (std::size_t k = 0; k < g.decisions.size(); ++k) {
    groups.emplace_back();
    for (Node* o : g.observed[k])
      groups.back().push_back(index_of(g, o)), grouped[index_of(g, o)] = true;
    groups.push_back({index_of(g, g.decisions[k])});
    grouped[groups.back()[0]] = true;
  }
  groups.emplace_back();
  for (std::size_t i = 0; i < grouped.size(); ++i)
    if (!grouped[i] && g.net.nodes[i]->is_discrete()) groups.back().push_back(i);
  std::vector<std::size_t> state(g.net.nodes.size(), 0);
  std::function<double(std::size_t, std::size_t)> solve = [&](std::size_t group, std::size_t at) {
    if (group == groups.size()) {
      const auto [p, u] = joint(g, state);
      return p * u;
    }
    if (at == groups[group].size()) return solve(group + 1, 0);
    const std::size_t i = groups[group][at];
    const bool decision = g.net.nodes[i]->category() == K_CATEGORY_DECISION;
    double best = decision ? -INFINITY : 0.0;
    for (state[i] = 0; state[i] < g.net.nodes[i]->state_count(); ++state[i]) {
      const double v = solve(group, at + 1);
      best = decision ? std::max(best, v) : best + v;
    }
    state[i] = 0;
    return best;
  };
  double pe = 0.0;
  each_state(g, [&](const auto& s) {
    bool first = true;
    for (Node* d : g.decisions) first = first && s[index_of(g, d)] == 0;
    if (first) pe += joint(g, s).first;
  });
  return solve(0, 0) / pe;
}

// Checks every option's expected utility against the joint with the
// decision's policy replaced by "always that option"; the policies must be
// best responses to each other (no single entry improves).
void expect_options_and_best_responses(Diagram& g) {
  for (Node* d : g.decisions) {
    Table& policy = *d->table();
    const std::vector<double> kept(policy.data(), policy.data() + policy.size());
    const std::size_t n = d->state_count();
    for (std::size_t o = 0; o < n; ++o) {
      for (std::uint64_t i = 0; i < policy.size(); ++i) policy.data()[i] = i % n == o ? 1.0 : 0.0;
      EXPECT_NEAR(k_node_get_expected_utility(h(d), o), moments(g).first, 1e-9);
      EXPECT_NEAR(k_node_get_variance_of_utility(h(d), o), moments(g).second, 1e-9);
    }
    // Q(f) = sum of P(x, e) U(x) with the family in configuration f.
    std::fill_n(policy.data(), policy.size(), 1.0);
    std::vector<double> q(policy.size(), 0.0);
    each_state(g, [&](const auto& s) {
      const auto [p, u] = joint(g, s);
      std::uint64_t f = 0;
      for (Node* m : policy.nodes()) f = f * m->state_count() + s[index_of(g, m)];
      q[f] += p * u;
    });
    std::copy(kept.begin(), kept.end(), policy.data());
    for (std::size_t row = 0; row < q.size(); row += n)
      for (std::size_t o = 0; o < n; ++o)
        if (kept[row + o] == 1.0) {
          EXPECT_GE(q[row + o], *std::max_element(&q[row], &q[row] + n) - 1e-12);
        }
  }
}

TEST(Limid, PoliciesAgreeWithTheJoint) {
  std::mt19937 rng(2024);
  for (int round = 0; round < 40; ++round) {
    SCOPED_TRACE(round);
    Diagram g;
    const bool recall = round % 4 != 3;
    build(g, rng, 1 + round % 4, recall);
    // Evidence (a selected state, a likelihood) on nodes no decision reaches.
    if (round % 2 == 1) {
      std::vector<Node*> free;
      for (Node* n : g.net.nodes)
        if (n->category() == K_CATEGORY_CHANCE &&
            std::none_of(g.decisions.begin(), g.decisions.end(),
                         [n](Node* d) { return reaches(*d, *n); }))
          free.push_back(n);
      std::shuffle(free.begin(), free.end(), rng);
      for (std::size_t i = 0; i < free.size() && i < 2; ++i) {
        const std::size_t at = index_of(g, free[i]);
        g.findings[at] = i == 0 ? std::vector<double>{0.0, 1.0} : std::vector<double>{0.3, 0.9};
        enter_vector(*free[i], g.findings[at]);
      }
    }
    ASSERT_EQ(compile_for_test(g.net.d()), 0);
    ASSERT_EQ(k_domain_update_policies(g.net.domain), 0);
    const double meu = k_domain_get_expected_utility(g.net.domain);
    EXPECT_NEAR(meu, moments(g).first, 1e-9);
    for (Node* d : g.decisions) {
      const Table& t = *d->table();
      for (std::uint64_t i = 0; i < t.size(); ++i)
        EXPECT_TRUE(t.data()[i] == 0.0 || t.data()[i] == 1.0);
    }
    expect_options_and_best_responses(g);
    for (Node* u : g.net.nodes) {
      if (u->category() != K_CATEGORY_UTILITY) continue;
      EXPECT_NEAR(k_node_get_variance_of_utility(h(u), 0), moments(g, u).second, 1e-9);
    }
    // Utility ranges are a utility node's; option variances a decision's.
    Node* d = g.decisions[0];
    EXPECT_EQ(k_node_get_max_utility(h(d)) + k_node_get_min_utility(h(g.net.nodes[0])), -2.0);
    EXPECT_CODE(k_node_get_variance_of_utility(h(d), d->state_count()), -1.0, K_ERROR_USAGE);
    if (recall) {
      EXPECT_NEAR(meu, maximum_expected_utility(g), 1e-9 * std::max(1.0, std::fabs(meu)));
    }
  }
}

// X and the targets d-separated given `given`, by the moralized graph of
// their ancestors with `given` removed.
bool separated(const std::vector<std::vector<std::size_t>>& parents, std::size_t x,
               const std::vector<std::size_t>& targets, const std::vector<bool>& given) {
  const std::size_t n = parents.size();
  std::vector<bool> keep(n, false);
  std::vector<std::size_t> stack(targets);
  stack.push_back(x);
  for (std::size_t i = 0; i < n; ++i)
    if (given[i]) stack.push_back(i);
  while (!stack.empty()) {
    const std::size_t v = stack.back();
    stack.pop_back();
    if (keep[v]) continue;
    keep[v] = true;
    for (std::size_t p : parents[v]) stack.push_back(p);
  }
  std::vector<std::vector<std::size_t>> moral(n);
  for (std::size_t v = 0; v < n; ++v) {
    if (!keep[v]) continue;
    for (std::size_t a : parents[v]) {
      moral[a].push_back(v), moral[v].push_back(a);
      for (std::size_t b : parents[v]) moral[a].push_back(b);
    }
  }
  std::vector<bool> seen(n, false);
  stack.assign(1, x);
  while (!stack.empty()) {
    const std::size_t v = stack.back();
    stack.pop_back();
    if (seen[v] || (given[v] && v != x)) continue;
    seen[v] = true;
    if (std::find(targets.begin(), targets.end(), v) != targets.end()) return false;
    for (std::size_t w : moral[v]) stack.push_back(w);
  }
  return true;
}

TEST(Limid, RequisiteParentsAndDecisionOrder) {
  std::mt19937 rng(99);
  for (int round = 0; round < 60; ++round) {
    SCOPED_TRACE(round);
    Diagram g;
    build(g, rng, 1 + round % 4, round % 2 == 0);
    const std::size_t n = g.net.nodes.size();
    std::vector<std::vector<std::size_t>> parents(n);
    for (std::size_t i = 0; i < n; ++i)
      for (Node* p : g.net.nodes[i]->parents()) parents[i].push_back(index_of(g, p));
    // Drop one unrequisite link at a time until none is left.
    for (bool changed = true; changed;) {
      changed = false;
      for (std::size_t d = 0; d < n && !changed; ++d) {
        if (g.net.nodes[d]->category() != K_CATEGORY_DECISION) continue;
        std::vector<std::size_t> utilities;
        for (std::size_t u = 0; u < n; ++u) {
          std::vector<std::size_t> stack{u};
          bool below = false;
          while (!stack.empty() && !below) {
            const std::size_t v = stack.back();
            stack.pop_back();
            below = v == d;
            stack.insert(stack.end(), parents[v].begin(), parents[v].end());
          }
          if (below && u != d && g.net.nodes[u]->category() == K_CATEGORY_UTILITY)
            utilities.push_back(u);
        }
        for (std::size_t x : parents[d]) {
          std::vector<bool> given(n, false);
          given[d] = true;
          for (std::size_t p : parents[d]) given[p] = p != x;
          if (!separated(parents, x, utilities, given)) continue;
          std::erase(parents[d], x);
          changed = true;
          break;
        }
      }
    }
    for (Node* d : g.decisions) {
      std::vector<std::size_t> got;
      for (k_node_t* p = k_node_get_requisite_parents(h(d)); *p != nullptr; ++p)
        got.push_back(index_of(g, reinterpret_cast<Node*>(*p)));
      std::vector<std::size_t>& want = parents[index_of(g, d)];
      std::sort(want.begin(), want.end());
      std::sort(got.begin(), got.end());
      EXPECT_EQ(got, want);
      // Its requisite ancestors: the chance and decision nodes above it over
      // the links left, in node order.
      std::vector<bool> above(n, false);
      for (std::vector<std::size_t> stack = want; !stack.empty();) {
        const std::size_t v = stack.back();
        stack.pop_back();
        if (!above[v])
          above[v] = true, stack.insert(stack.end(), parents[v].begin(), parents[v].end());
      }
      want.clear();
      for (Node* m = g.net.d().first_node(); m != nullptr; m = m->next)
        if (above[index_of(g, m)] && m->category() != K_CATEGORY_UTILITY)
          want.push_back(index_of(g, m));
      got.clear();
      for (k_node_t* p = k_node_get_requisite_ancestors(h(d)); *p != nullptr; ++p)
        got.push_back(index_of(g, reinterpret_cast<Node*>(*p)));
      EXPECT_EQ(got, want);
    }
    // With perfect recall the decisions are totally ordered.
    k_node_t* order = k_domain_get_decision_order(g.net.domain);
    if (round % 2 == 0) {
      ASSERT_NE(order, nullptr);
      for (Node* d : g.decisions) EXPECT_EQ(*order++, h(d));
      EXPECT_EQ(*order, nullptr);
    }
  }
  EXPECT_CODE(k_node_get_requisite_parents(nullptr), nullptr, K_ERROR_USAGE);
}

}  // namespace
}  // namespace kelva::test
