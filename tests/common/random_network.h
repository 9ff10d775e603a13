#pragma once
// Small random networks of discrete chance nodes, random evidence, and the
// answers by enumeration of the joint: the oracle of the propagation tests.

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

#include "kelva/kelva.h"

namespace kelva::test {

/// A random network: its nodes in creation order.
struct RandomNetwork {
  k_domain_t domain = nullptr;
  std::vector<k_node_t> nodes;
};

/// Builds a random DAG of `count` discrete chance nodes with 2..4 states and
/// up to three parents each; table entries are uniform with about one in six
/// set to 0, and each row sums to 1, or with `raw` to a random weight in
/// [0.5, 2) (P(e) is then the plain sum over the product of the tables, not a
/// probability).  The same seed gives the same network.
inline RandomNetwork random_network(unsigned seed, std::size_t count, bool raw = false) {
  std::mt19937 rng(seed);
  RandomNetwork net;
  net.domain = k_new_domain();
  for (std::size_t i = 0; i < count; ++i) {
    k_node_t node =
        k_domain_new_node(net.domain, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL);
    k_node_set_number_of_states(node, 2 + rng() % 3);
    const std::size_t parents = i == 0 ? 0 : rng() % std::min<std::size_t>(i + 1, 4);
    std::vector<std::size_t> picked;
    while (picked.size() < parents) {
      const std::size_t p = rng() % i;
      if (std::find(picked.begin(), picked.end(), p) == picked.end()) picked.push_back(p);
    }
    for (std::size_t p : picked) k_node_add_parent(node, net.nodes[p]);
    net.nodes.push_back(node);
  }
  std::uniform_real_distribution<double> uniform(0.0, 1.0);
  for (k_node_t node : net.nodes) {
    k_table_t table = k_node_get_table(node);
    const std::size_t size = k_table_get_size(table);
    const std::size_t states = k_node_get_number_of_states(node);
    std::vector<double> data(size);
    for (double& v : data) v = rng() % 6 == 0 ? 0.0 : uniform(rng);
    // The node is the table's last dimension, so a row is `states` entries.
    for (std::size_t row = 0; row < size; row += states) {
      double sum = 0.0;
      for (std::size_t s = 0; s < states; ++s) sum += data[row + s];
      if (sum == 0.0) data[row] = sum = 1.0;
      const double weight = raw ? 0.5 + 1.5 * uniform(rng) : 1.0;
      for (std::size_t s = 0; s < states; ++s) data[row + s] *= weight / sum;
    }
    k_table_set_data(table, data.data(), size, 0, size);
  }
  return net;
}

/// Evidence on one node: the finding of each state (all 1 for none).
using Finding = std::vector<double>;

/// No evidence on any node.
inline std::vector<Finding> no_evidence(const RandomNetwork& net) {
  std::vector<Finding> evidence;
  for (k_node_t node : net.nodes) evidence.emplace_back(k_node_get_number_of_states(node), 1.0);
  return evidence;
}

/// Draws evidence for some nodes: a selected state, a set of possible states
/// (0s and 1s), or a likelihood (with zeros too); empty findings elsewhere.
inline std::vector<Finding> random_evidence(std::mt19937& rng, const RandomNetwork& net,
                                            double share) {
  std::vector<Finding> evidence;
  std::uniform_real_distribution<double> uniform(0.0, 1.0);
  for (k_node_t node : net.nodes) {
    const std::size_t states = k_node_get_number_of_states(node);
    Finding f(states, 1.0);
    if (uniform(rng) < share) {
      switch (rng() % 3) {
        case 0:
          std::fill(f.begin(), f.end(), 0.0);
          f[rng() % states] = 1.0;
          break;
        case 1:
          f[rng() % states] = 0.0;
          break;
        default:
          for (double& v : f) v = rng() % 4 == 0 ? 0.0 : 0.1 + 2.0 * uniform(rng);
      }
    }
    evidence.push_back(f);
  }
  return evidence;
}

/// Enters `evidence` on the nodes: a vector with one 1 and zeros by
/// selecting the state, anything else entry by entry; all ones retracts.
inline void enter(const RandomNetwork& net, const std::vector<Finding>& evidence) {
  for (std::size_t i = 0; i < net.nodes.size(); ++i) {
    const Finding& f = evidence[i];
    k_node_retract_findings(net.nodes[i]);
    const auto ones = std::count(f.begin(), f.end(), 1.0);
    const auto zeros = std::count(f.begin(), f.end(), 0.0);
    if (ones == 1 && zeros + 1 == static_cast<long>(f.size())) {
      k_node_select_state(net.nodes[i], std::find(f.begin(), f.end(), 1.0) - f.begin());
    } else if (ones != static_cast<long>(f.size())) {
      for (std::size_t s = 0; s < f.size(); ++s) k_node_enter_finding(net.nodes[i], s, f[s]);
    }
  }
}

/// The entry of table `t` for a configuration of the network's nodes (one
/// state per node, by position).
inline std::size_t entry(const RandomNetwork& net, k_table_t t,
                         const std::vector<std::size_t>& config) {
  std::size_t index = 0;
  for (k_node_t* n = k_table_get_nodes(t); *n; ++n) {
    const auto at = std::find(net.nodes.begin(), net.nodes.end(), *n) - net.nodes.begin();
    index = index * k_node_get_number_of_states(*n) + config[at];
  }
  return index;
}

/// The states of configuration `c` of the nodes, the last node fastest.
inline std::vector<std::size_t> configuration(const RandomNetwork& net, std::size_t c) {
  std::vector<std::size_t> config(net.nodes.size());
  for (std::size_t i = config.size(); i-- > 0;) {
    const std::size_t states = k_node_get_number_of_states(net.nodes[i]);
    config[i] = c % states;
    c /= states;
  }
  return config;
}

/// P(x, e) of every configuration x of the nodes in the order of
/// `configuration`, not normalised: the product of the tables and the
/// findings.  Keep the state space small (a few hundred thousand cells).
inline std::vector<double> joint(const RandomNetwork& net, const std::vector<Finding>& evidence) {
  std::vector<std::vector<double>> data;
  std::size_t cells = 1;
  for (k_node_t node : net.nodes) {
    k_table_t t = k_node_get_table(node);
    data.emplace_back(k_table_get_size(t));
    k_table_get_data(t, data.back().data(), data.back().size(), 0, data.back().size());
    cells *= k_node_get_number_of_states(node);
  }
  std::vector<double> p(cells);
  for (std::size_t c = 0; c < cells; ++c) {
    const std::vector<std::size_t> config = configuration(net, c);
    p[c] = 1.0;
    for (std::size_t i = 0; i < net.nodes.size() && p[c] != 0.0; ++i)
      p[c] *= evidence[i][config[i]] * data[i][entry(net, k_node_get_table(net.nodes[i]), config)];
  }
  return p;
}

/// What enumeration of the joint gives: P(e), the beliefs and the
/// max-marginals (the largest joint value with the node in each state).
struct Answers {
  double evidence = 0.0;
  std::vector<std::vector<double>> beliefs;
  std::vector<std::vector<double>> max_marginals;
};

inline Answers enumerate(const RandomNetwork& net, const std::vector<Finding>& evidence) {
  Answers a;
  for (k_node_t node : net.nodes) a.beliefs.emplace_back(k_node_get_number_of_states(node), 0.0);
  a.max_marginals = a.beliefs;
  const std::vector<double> p = joint(net, evidence);
  for (std::size_t c = 0; c < p.size(); ++c) {
    const std::vector<std::size_t> config = configuration(net, c);
    a.evidence += p[c];
    for (std::size_t i = 0; i < config.size(); ++i) {
      a.beliefs[i][config[i]] += p[c];
      a.max_marginals[i][config[i]] = std::max(a.max_marginals[i][config[i]], p[c]);
    }
  }
  for (auto& b : a.beliefs)
    for (double& v : b) v /= a.evidence;
  return a;
}

}  // namespace kelva::test
