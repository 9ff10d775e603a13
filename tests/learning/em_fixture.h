#pragma once
// Networks, cases and a brute-force oracle for the EM tests.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "kelva/kelva.h"
#include "network/domain.h"
#include "network/node.h"
#include "table/table.h"

namespace kelva::test {

/// A domain parsed from NET text, deleted with the fixture object.
struct Net {
  k_domain_t domain = nullptr;
  explicit Net(const std::string& text) {
    domain = k_net_parse_domain_string(text.c_str(), nullptr, nullptr);
    EXPECT_NE(domain, nullptr) << "the test network does not parse";
  }
  ~Net() {
    if (domain != nullptr) k_domain_delete(domain);
  }
  Net(const Net&) = delete;
  Net& operator=(const Net&) = delete;

  Domain& d() const { return *reinterpret_cast<Domain*>(domain); }
  Node& node(const char* name) const {
    Node* n = d().find(name);
    EXPECT_NE(n, nullptr) << name;
    return *n;
  }
  k_node_t h(const char* name) const { return reinterpret_cast<k_node_t>(&node(name)); }
  /// The node's table data in its own configuration order.
  std::vector<double> table(const char* name) const {
    const Table& t = *node(name).table();
    return {t.data(), t.data() + t.size()};
  }
  void set_table(const char* name, const std::vector<double>& data) const {
    Table& t = *node(name).table();
    ASSERT_EQ(t.size(), data.size());
    std::copy(data.begin(), data.end(), t.data());
    t.notify_changed();
  }
  /// Gives every discrete chance node an experience table of zeros.
  void all_experience() const {
    for (Node* n = d().first_node(); n != nullptr; n = n->next)
      if (n->category() == K_CATEGORY_CHANCE && n->is_discrete()) {
        ASSERT_NE(k_node_get_experience_table(reinterpret_cast<k_node_t>(n)), nullptr);
      }
  }
  /// Sets every conditional table to the uniform distribution.
  void uniform() const {
    for (Node* n = d().first_node(); n != nullptr; n = n->next) {
      if (n->category() != K_CATEGORY_CHANCE || !n->is_discrete()) continue;
      Table& t = *n->table();
      std::fill(t.data(), t.data() + t.size(), 1.0 / static_cast<double>(n->state_count()));
      t.notify_changed();
    }
  }
  /// Appends a case: one state per name in `names` (-1 leaves it missing).
  std::size_t add_case(const std::vector<const char*>& names, const std::vector<int>& states,
                       double count = -1.0) const {
    const std::size_t c = d().cases.add();
    for (std::size_t i = 0; i < names.size(); ++i)
      if (states[i] >= 0) node(names[i]).cases.set_state(c, states[i]);
    if (count >= 0.0) d().cases.set_count(c, count);
    return c;
  }
};

/// The index in `table` of the full configuration `state` (by node).
template <class StateOf>
std::uint64_t entry_of(const Table& table, StateOf state_of) {
  std::uint64_t index = 0;
  for (std::size_t i = 0; i < table.discrete_count(); ++i)
    index =
        index * table.state_counts()[i] + static_cast<std::uint64_t>(state_of(table.nodes()[i]));
  return index;
}

/// The discrete chance nodes of a domain in an order where parents come
/// before children.
inline std::vector<Node*> topological(const Domain& d) {
  std::vector<Node*> all;
  for (Node* n = d.first_node(); n != nullptr; n = n->next)
    if (n->category() == K_CATEGORY_CHANCE && n->is_discrete()) all.push_back(n);
  std::vector<Node*> order;
  while (order.size() < all.size())
    for (Node* n : all) {
      if (std::find(order.begin(), order.end(), n) != order.end()) continue;
      bool ready = true;
      for (Node* p : n->parents())
        if (std::find(order.begin(), order.end(), p) == order.end()) ready = false;
      if (ready) order.push_back(n);
    }
  return order;
}

/// Draws `count` cases from `truth` by forward sampling and stores them in
/// `into` (a domain with nodes of the same names), each item hidden with
/// probability `hide`.
inline void sample_cases(const Net& truth, const Net& into, std::size_t count, double hide,
                         std::mt19937_64& rng) {
  const std::vector<Node*> order = topological(truth.d());
  std::vector<int> state(order.size());
  std::uniform_real_distribution<double> u(0.0, 1.0);
  auto state_of = [&](const Node* n) {
    for (std::size_t i = 0; i < order.size(); ++i)
      if (order[i] == n) return state[i];
    return 0;
  };
  for (std::size_t c = 0; c < count; ++c) {
    for (std::size_t i = 0; i < order.size(); ++i) {
      const Table& t = *order[i]->table();
      state[i] = 0;
      const std::uint64_t base = entry_of(t, state_of);
      std::uint64_t stride = 1;
      for (std::size_t j = t.discrete_count(); j-- > 0 && t.nodes()[j] != order[i];)
        stride *= t.state_counts()[j];
      double r = u(rng);
      int s = 0;
      for (; s + 1 < static_cast<int>(order[i]->state_count()); ++s) {
        r -= t.data()[base + static_cast<std::uint64_t>(s) * stride];
        if (r < 0.0) break;
      }
      state[i] = s;
    }
    const std::size_t k = into.d().cases.add();
    for (std::size_t i = 0; i < order.size(); ++i)
      if (u(rng) >= hide) into.node(order[i]->name().c_str()).cases.set_state(k, state[i]);
  }
}

/// Brute force over every configuration of the domain's discrete chance
/// nodes: calls visit(p, state_of) with the joint probability under the
/// current tables.
template <class Visit>
void enumerate(const Domain& d, Visit visit) {
  const std::vector<Node*> nodes = topological(d);
  std::vector<int> state(nodes.size(), 0);
  auto state_of = [&](const Node* n) {
    for (std::size_t i = 0; i < nodes.size(); ++i)
      if (nodes[i] == n) return state[i];
    return 0;
  };
  for (;;) {
    double p = 1.0;
    for (Node* n : nodes) p *= n->table()->data()[entry_of(*n->table(), state_of)];
    visit(p, state_of);
    std::size_t i = 0;
    for (; i < nodes.size(); ++i) {
      if (++state[i] < static_cast<int>(nodes[i]->state_count())) break;
      state[i] = 0;
    }
    if (i == nodes.size()) return;
  }
}

/// Whether the full configuration agrees with stored case `c`.
template <class StateOf>
bool agrees(const Domain& d, std::size_t c, StateOf state_of) {
  for (Node* n = d.first_node(); n != nullptr; n = n->next)
    if (n->is_discrete() && n->cases.state(c) >= 0 && n->cases.state(c) != state_of(n))
      return false;
  return true;
}

/// A six-node network: A -> B, A -> C, (B, C) -> D, D -> E, E -> F.
inline const char* const kSixNodes = R"(
net {}
node A { states = ("a0" "a1"); }
node B { states = ("b0" "b1" "b2"); }
node C { states = ("c0" "c1"); }
node D { states = ("d0" "d1"); }
node E { states = ("e0" "e1" "e2"); }
node F { states = ("f0" "f1"); }
potential (A) { data = (0.35 0.65); }
potential (B | A) { data = ((0.2 0.5 0.3) (0.6 0.1 0.3)); }
potential (C | A) { data = ((0.7 0.3) (0.25 0.75)); }
potential (D | B C) { data = (((0.9 0.1) (0.4 0.6)) ((0.3 0.7) (0.55 0.45)) ((0.15 0.85) (0.8 0.2))); }
potential (E | D) { data = ((0.6 0.3 0.1) (0.1 0.3 0.6)); }
potential (F | E) { data = ((0.8 0.2) (0.5 0.5) (0.05 0.95)); }
)";

}  // namespace kelva::test
