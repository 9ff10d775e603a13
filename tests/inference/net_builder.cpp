#include "inference/net_builder.h"

#include <algorithm>

#include "compile/compile.h"
#include "compile/junction_forest.h"
#include "inference/propagate.h"
#include "structure/structure.h"
#include "table/table.h"

namespace kelva::test {

Node* TestNet::add(k_category_t category, std::size_t states, const std::vector<Node*>& parents) {
  if (domain == nullptr) domain = k_new_domain();
  const k_kind_t kind = category == K_CATEGORY_UTILITY ? K_KIND_OTHER : K_KIND_DISCRETE;
  const k_subtype_t subtype = kind == K_KIND_DISCRETE ? K_SUBTYPE_LABEL : K_SUBTYPE_ERROR;
  auto h = k_domain_new_node(domain, category, kind, subtype);
  if (kind == K_KIND_DISCRETE) k_node_set_number_of_states(h, states);
  for (Node* p : parents) k_node_add_parent(h, reinterpret_cast<k_node_t>(p));
  Node* n = reinterpret_cast<Node*>(h);
  nodes.push_back(n);
  node_table(*n);
  return n;
}

Node* TestNet::add_continuous(const std::vector<Node*>& parents) {
  if (domain == nullptr) domain = k_new_domain();
  auto h = k_domain_new_node(domain, K_CATEGORY_CHANCE, K_KIND_CONTINUOUS, K_SUBTYPE_ERROR);
  for (Node* p : parents) k_node_add_parent(h, reinterpret_cast<k_node_t>(p));
  Node* n = reinterpret_cast<Node*>(h);
  nodes.push_back(n);
  Table& t = node_table(*n);
  const std::size_t self = t.nodes().index_of(n) - t.discrete_count();
  for (std::uint64_t c = 0; c < t.size(); ++c) {
    t.set_mean(c, self, 1.0);
    t.set_covariance(c, self, self, 2.0);
  }
  return n;
}

void TestNet::randomize(Node* node, std::mt19937& rng, bool normalize, double zeros) {
  Table& t = node_table(*node);
  double* data = t.data();
  std::uniform_real_distribution<double> u(0.05, 1.0);
  for (std::uint64_t i = 0; i < t.size(); ++i) data[i] = u(rng);
  if (!node->is_discrete()) return;
  const std::size_t n = node->state_count();
  std::bernoulli_distribution zero(zeros);
  for (std::uint64_t i = 0; i < t.size(); i += n) {
    double s = 0;
    for (std::size_t k = 0; k < n; ++k) {
      if (zeros > 0.0 && zero(rng)) data[i + k] = 0.0;
      s += data[i + k];
    }
    if (s == 0.0) data[i] = s = 1.0;
    for (std::size_t k = 0; k < n && normalize; ++k) data[i + k] /= s;
  }
}

void random_network(TestNet& net, std::mt19937& rng, std::size_t count, std::size_t max_parents,
                    bool normalize, double zeros) {
  for (std::size_t i = 0; i < count; ++i) {
    std::vector<Node*> parents;
    if (i > 0) {
      const std::size_t want = std::uniform_int_distribution<std::size_t>(0, max_parents)(rng);
      for (std::size_t k = 0; k < want; ++k) {
        Node* p = net.nodes[std::uniform_int_distribution<std::size_t>(0, i - 1)(rng)];
        if (std::find(parents.begin(), parents.end(), p) == parents.end()) parents.push_back(p);
      }
    }
    Node* n =
        net.add(K_CATEGORY_CHANCE, std::uniform_int_distribution<std::size_t>(2, 3)(rng), parents);
    net.randomize(n, rng, normalize, zeros);
  }
}

void build_forest_for_test(Domain& domain) {
  triangulate_domain(domain, K_TM_FILL_IN_SIZE);
  domain.set_compiled(true);
}

k_status_t compile_for_test(Domain& domain) {
  build_forest_for_test(domain);
  return k_domain_propagate(reinterpret_cast<k_domain_t>(&domain), K_EQUILIBRIUM_SUM,
                            K_MODE_NORMAL);
}

void select_state(Node& node, std::int64_t state) {
  k_node_select_state(reinterpret_cast<k_node_t>(&node), static_cast<k_size_t>(state));
}

void enter_vector(Node& node, const std::vector<double>& vector) {
  for (std::size_t i = 0; i < vector.size(); ++i)
    k_node_enter_finding(reinterpret_cast<k_node_t>(&node), i, vector[i]);
}

void retract(Node& node) { k_node_retract_findings(reinterpret_cast<k_node_t>(&node)); }

Oracle enumerate(const TestNet& net, bool max, const std::vector<std::vector<double>>* findings) {
  Oracle o;
  std::vector<double> eu_sum;
  // Per node with a discrete table: the positions of its discrete nodes.
  std::vector<std::vector<std::size_t>> dims(net.nodes.size());
  for (std::size_t i = 0; i < net.nodes.size(); ++i) {
    Node* n = net.nodes[i];
    o.marginals.emplace_back(n->is_discrete() ? n->state_count() : 0, 0.0);
    if (n->category() == K_CATEGORY_UTILITY) eu_sum.push_back(0.0);
    // Continuous densities integrate to one; decisions have no table.
    if (n->table() == nullptr || n->is_continuous()) continue;
    for (Node* m : n->table()->nodes())
      if (m->is_discrete())
        dims[i].push_back(std::find(net.nodes.begin(), net.nodes.end(), m) - net.nodes.begin());
  }
  o.state_utilities = o.marginals;
  std::vector<std::size_t> state(net.nodes.size(), 0);
  for (;;) {
    double p = 1.0;
    std::size_t u = 0;
    std::vector<double> utilities;
    for (std::size_t i = 0; i < net.nodes.size(); ++i) {
      Node* n = net.nodes[i];
      if (n->table() == nullptr || n->is_continuous()) continue;
      std::uint64_t index = 0;
      for (std::size_t d : dims[i]) index = index * net.nodes[d]->state_count() + state[d];
      const double v = n->table()->data()[index];
      if (n->category() == K_CATEGORY_UTILITY) utilities.push_back(v);
      else p *= v;
    }
    for (std::size_t i = 0; i < net.nodes.size(); ++i) {
      const Evidence& e = net.nodes[i]->evidence;
      if (findings != nullptr) p *= (*findings)[i].empty() ? 1.0 : (*findings)[i][state[i]];
      else if (e.entered_code >= 0)
        p *= state[i] == static_cast<std::size_t>(e.entered_code) ? 1 : 0;
      else if (e.entered_code == Evidence::kVector) p *= e.entered_vector[state[i]];
    }
    double all = 0.0;
    for (double v : utilities) eu_sum[u++] += p * v, all += v;
    for (std::size_t i = 0; i < net.nodes.size(); ++i)
      if (net.nodes[i]->is_discrete()) o.state_utilities[i][state[i]] += p * all;
    o.total = max ? std::max(o.total, p) : o.total + p;
    for (std::size_t i = 0; i < net.nodes.size(); ++i) {
      if (!net.nodes[i]->is_discrete()) continue;
      double& m = o.marginals[i][state[i]];
      m = max ? std::max(m, p) : m + p;
    }
    std::size_t i = net.nodes.size();
    while (i-- > 0) {
      if (!net.nodes[i]->is_discrete()) continue;
      if (++state[i] < net.nodes[i]->state_count()) break;
      state[i] = 0;
    }
    if (i == static_cast<std::size_t>(-1)) break;
  }
  for (std::size_t i = 0; i < o.marginals.size(); ++i)
    for (std::size_t k = 0; k < o.marginals[i].size(); ++k) {
      double& eu = o.state_utilities[i][k];
      eu = o.marginals[i][k] > 0.0 ? eu / o.marginals[i][k] : 0.0;
      o.marginals[i][k] /= o.total;
    }
  for (double s : eu_sum) o.utilities.push_back(s / o.total);
  return o;
}

}  // namespace kelva::test
