#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "kelva/kelva.h"
#include "network/domain.h"
#include "network/node.h"

namespace kelva::test {

/// A small network made in a test, and what the enumeration oracle needs.
struct TestNet {
  k_domain_t domain = nullptr;
  std::vector<Node*> nodes;  ///< in creation order
  Domain& d() const { return *reinterpret_cast<Domain*>(domain); }
  TestNet() = default;
  TestNet(const TestNet&) = delete;
  TestNet& operator=(const TestNet&) = delete;
  ~TestNet() {
    if (domain != nullptr) k_domain_delete(domain);
  }

  /// Adds a node with `states` states (0 for a utility node) and `parents`.
  Node* add(k_category_t category, std::size_t states, const std::vector<Node*>& parents);
  /// Adds a continuous chance node with `parents`, mean 1 and variance 2
  /// for every configuration of its discrete parents.
  Node* add_continuous(const std::vector<Node*>& parents);
  /// Fills the node's table with random positive numbers, about `zeros` of
  /// them 0 (never a whole row), normalized per parent configuration when
  /// `normalize`.
  void randomize(Node* node, std::mt19937& rng, bool normalize = true, double zeros = 0.0);
};

/// A random network of `count` discrete chance nodes with 2..3 states and up
/// to `max_parents` parents each, random tables as `randomize` makes them.
void random_network(TestNet& net, std::mt19937& rng, std::size_t count, std::size_t max_parents,
                    bool normalize = true, double zeros = 0.0);

/// Triangulates the domain by fewest fill-ins, builds its junction
/// forest, installs it and marks the domain compiled; then
/// propagates once (sum, normal) and returns k_domain_propagate's status.
k_status_t compile_for_test(Domain& domain);
/// The same without the propagation.
void build_forest_for_test(Domain& domain);

/// The C handle of a node.
inline k_node_t h(Node* n) { return reinterpret_cast<k_node_t>(n); }

/// Evidence entry through the C API.
void select_state(Node& node, std::int64_t state);
void enter_vector(Node& node, const std::vector<double>& vector);
void retract(Node& node);

/// The enumeration oracle: P(e) (sum) or max P(x, e) (max) over the joint
/// of the discrete nodes (continuous nodes integrate to one), with the
/// entered discrete evidence, or else with `findings` (one vector per node);
/// and each node's (max-)marginal normalized by that total.
struct Oracle {
  double total = 0.0;
  std::vector<std::vector<double>> marginals;  ///< per node of the net
  /// Expected utility of each utility node (sum only).
  std::vector<double> utilities;
  /// Per node and state: the sum of the utilities' expectations given the
  /// state (sum only; 0 for a state of probability 0).
  std::vector<std::vector<double>> state_utilities;
};
Oracle enumerate(const TestNet& net, bool max,
                 const std::vector<std::vector<double>>* findings = nullptr);

}  // namespace kelva::test
