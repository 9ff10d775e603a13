// Structure learning on a domain: its constraints, installing a learned
// structure, PC with the G² test, the marginal tests and the PDAG queries.
#include "learning/structure_learning.h"

#include <algorithm>
#include <cmath>

#include "learning/independence.h"
#include "network/domain.h"
#include "network/error.h"
#include "network/node.h"
#include "structure/structure.h"
#include "table/table.h"

namespace kelva {

StructureResults::StructureResults() {
  Destroy<StructureResults>::registered = [](StructureResults* r) noexcept { delete r; };
}

namespace {

StructureResults& results(Domain& domain) {
  if (!domain.structure_results) domain.structure_results.reset(new StructureResults);
  return *domain.structure_results;
}

std::pair<std::uint64_t, std::uint64_t> key(const Node& a, const Node& b) {
  return {std::min(a.serial(), b.serial()), std::max(a.serial(), b.serial())};
}

// Constraints are stored from the smaller serial's side; seen from the other
// side the two directed ones swap.
int flipped(int c) {
  if (c == K_EDGE_CONSTRAINT_FORWARD) return K_EDGE_CONSTRAINT_BACKWARD;
  if (c == K_EDGE_CONSTRAINT_BACKWARD) return K_EDGE_CONSTRAINT_FORWARD;
  return c;
}

std::size_t position(const std::vector<std::uint64_t>& serials, const Node& node) {
  const auto it = std::find(serials.begin(), serials.end(), node.serial());
  return it == serials.end() ? LearningData::npos : static_cast<std::size_t>(it - serials.begin());
}

Node* node_of(const Domain& domain, std::uint64_t serial) {
  for (Node* n = domain.first_node(); n != nullptr; n = n->next)
    if (n->serial() == serial) return n;
  return nullptr;
}

// Layers by longest path from a root; within a layer, nodes sit in the order
// of their parents' mean position, which keeps most links short.
void lay_out(const std::vector<Node*>& nodes,
             const std::vector<std::vector<std::size_t>>& parents) {
  const std::size_t n = nodes.size();
  std::vector<std::size_t> depth(n, 0);
  for (std::size_t round = 0; round < n; ++round)
    for (std::size_t v = 0; v < n; ++v)
      for (std::size_t p : parents[v]) depth[v] = std::max(depth[v], depth[p] + 1);
  std::vector<double> slot(n, 0.0);
  const std::size_t layers = n == 0 ? 0 : *std::max_element(depth.begin(), depth.end()) + 1;
  for (std::size_t layer = 0; layer < layers; ++layer) {
    std::vector<std::pair<double, std::size_t>> row;
    for (std::size_t v = 0; v < n; ++v) {
      if (depth[v] != layer) continue;
      double mean = static_cast<double>(v);
      if (!parents[v].empty()) {
        mean = 0.0;
        for (std::size_t p : parents[v]) mean += slot[p];
        mean /= static_cast<double>(parents[v].size());
      }
      row.emplace_back(mean, v);
    }
    std::stable_sort(row.begin(), row.end());
    for (std::size_t i = 0; i < row.size(); ++i) {
      slot[row[i].second] = static_cast<double>(i);
      nodes[row[i].second]->x = 80 + 150 * static_cast<int>(i);
      nodes[row[i].second]->y = 60 + 110 * static_cast<int>(layer);
    }
  }
}

}  // namespace

EdgeRules edge_rules(const Domain& domain, const LearningData& data) {
  EdgeRules rules(data.variables());
  const std::size_t n = data.variables();
  for (std::size_t i = 0; i < n; ++i)
    for (std::size_t j = 0; j < n; ++j) {
      if (i == j) continue;
      const int c = static_cast<int>(edge_constraint(*data.nodes[i], *data.nodes[j]));
      if (c == K_EDGE_CONSTRAINT_FORBIDDEN) rules.forbid[i * n + j] = 1;
      if (c != K_EDGE_CONSTRAINT_NONE && c != K_EDGE_CONSTRAINT_FORBIDDEN)
        rules.need[i * n + j] = 1;
      if (c == K_EDGE_CONSTRAINT_BACKWARD) rules.forbid[i * n + j] = 1;
      if (c == K_EDGE_CONSTRAINT_FORWARD) rules.forbid[j * n + i] = 1;
    }
  (void)domain;
  return rules;
}

void install_structure(Domain& domain, const LearningData& data,
                       const std::vector<std::vector<std::size_t>>& parents) {
  struct Link {
    Node* child;
    Node* parent;
  };
  std::vector<Link> old_links, new_links;
  for (Node* n : data.nodes)
    for (Node* p : n->parents()) old_links.push_back({n, p});
  for (std::size_t v = 0; v < parents.size(); ++v)
    for (std::size_t p : parents[v]) new_links.push_back({data.nodes[v], data.nodes[p]});
  auto clear = [&] {
    for (Node* n : data.nodes)
      while (!n->parents().empty()) remove_parent(*n, *n->parents()[0]);
  };
  try {
    clear();
    for (const Link& l : new_links) add_parent(*l.child, *l.parent);
  } catch (...) {
    clear();
    for (const Link& l : old_links) add_parent(*l.child, *l.parent);
    throw;
  }
  for (Node* n : data.nodes) {
    Table& t = node_table(*n);
    std::fill(t.data(), t.data() + t.size(), 1.0 / static_cast<double>(n->state_count()));
    t.notify_changed();
  }
  lay_out(data.nodes, parents);
  domain.forget_graph_queries();
}

void learn_structure_pc(Domain& domain) {
  const LearningData data = learning_data(domain);
  const EdgeRules rules = edge_rules(domain, data);
  const double alpha = domain.significance_level;
  const Pdag pdag = pc_stable(
      data.variables(),
      [&](std::size_t x, std::size_t y, const std::vector<std::size_t>& s) {
        return g2_test(data, x, y, s).p_value > alpha;
      },
      rules);
  install_structure(domain, data, extend_to_dag(pdag));
  StructureResults& r = results(domain);
  r.pdag_nodes.clear();
  for (Node* n : data.nodes) r.pdag_nodes.push_back(n->serial());
  r.pdag = pdag;
  r.pdag_rules = rules;
}

void perform_marginal_independence_tests(Domain& domain) {
  const LearningData data = learning_data(domain);
  const std::size_t n = data.variables();
  std::vector<double> p(n * n, 1.0);
  for (std::size_t i = 0; i < n; ++i)
    for (std::size_t j = i + 1; j < n; ++j)
      p[i * n + j] = p[j * n + i] = g2_test(data, i, j, {}).p_value;
  StructureResults& r = results(domain);
  r.tested_nodes.clear();
  for (Node* v : data.nodes) r.tested_nodes.push_back(v->serial());
  r.marginal_p = std::move(p);
}

double data_independency(const Node& a, const Node& b) {
  const StructureResults* r = a.domain().structure_results.get();
  require(&a.domain() == &b.domain() && &a != &b && r != nullptr);
  const std::size_t i = position(r->tested_nodes, a), j = position(r->tested_nodes, b);
  require(i != LearningData::npos && j != LearningData::npos);
  return r->marginal_p[i * r->tested_nodes.size() + j];
}

double link_strength(const Node& child, const Node& parent) {
  require(&child.domain() == &parent.domain() && child.parents().contains(&parent));
  const LearningData data = learning_data(child.domain());
  const std::size_t c = data.index_of(&child), p = data.index_of(&parent);
  // I(C; P | Q) = H(C, Q) + H(P, Q) - H(C, P, Q) - H(Q) over the cases that
  // observe the whole family, with Q the other parents.
  std::vector<std::size_t> q;
  for (Node* o : child.parents())
    if (o != &parent) q.push_back(data.index_of(o));
  std::vector<std::size_t> family = q;
  family.push_back(p);
  family.push_back(c);
  const std::vector<double> n = joint_counts(data, family);
  const std::size_t rc = data.states[c], rp = data.states[p];
  double total = 0.0, sum = 0.0;
  for (std::size_t base = 0; base < n.size(); base += rc * rp) {
    std::vector<double> np(rp, 0.0), nc(rc, 0.0);
    double nq = 0.0;
    for (std::size_t i = 0; i < rp; ++i)
      for (std::size_t j = 0; j < rc; ++j) {
        const double v = n[base + i * rc + j];
        np[i] += v;
        nc[j] += v;
        nq += v;
      }
    total += nq;
    for (std::size_t i = 0; i < rp; ++i)
      for (std::size_t j = 0; j < rc; ++j) {
        const double v = n[base + i * rc + j];
        if (v > 0.0) sum += v * std::log(v * nq / (np[i] * nc[j]));
      }
  }
  return total > 0.0 ? sum / total : 0.0;
}

namespace {

NodeList pdag_query(const Node& node, bool directed) {
  const StructureResults* r = node.domain().structure_results.get();
  require(r != nullptr && !r->pdag_nodes.empty());
  const std::size_t v = position(r->pdag_nodes, node);
  require(v != LearningData::npos);
  NodeList out;
  for (std::size_t u = 0; u < r->pdag_nodes.size(); ++u) {
    const bool hit = directed ? r->pdag.directed(u, v) : r->pdag.undirected(u, v);
    if (!hit) continue;
    if (Node* n = node_of(node.domain(), r->pdag_nodes[u])) out.push_back(n);
  }
  return out;
}

}  // namespace

NodeList pdag_parents(const Node& node) { return pdag_query(node, true); }
NodeList pdag_neighbours(const Node& node) { return pdag_query(node, false); }

void add_pdag_parent(Node& node, Node& parent) {
  Domain& domain = node.domain();
  StructureResults* r = domain.structure_results.get();
  require(&parent.domain() == &domain && r != nullptr && !r->pdag_nodes.empty());
  const std::size_t v = position(r->pdag_nodes, node), u = position(r->pdag_nodes, parent);
  require(v != LearningData::npos && u != LearningData::npos && r->pdag.undirected(u, v) &&
          !r->pdag_rules.forbidden(u, v));
  const LearningData data = learning_data(domain);
  // The domain must still hold exactly the nodes the PDAG is over.
  require(data.variables() == r->pdag_nodes.size());
  for (std::size_t i = 0; i < data.variables(); ++i)
    require(data.nodes[i]->serial() == r->pdag_nodes[i]);
  Pdag pdag = r->pdag;
  pdag.orient(u, v);
  apply_meek_rules(pdag, r->pdag_rules);
  install_structure(domain, data, extend_to_dag(pdag));
  r->pdag = std::move(pdag);
}

void set_edge_constraint(Node& a, Node& b, k_edge_constraint_t constraint) {
  require(&a.domain() == &b.domain() && &a != &b);
  const int c = static_cast<int>(constraint);
  require(c >= K_EDGE_CONSTRAINT_NONE && c <= K_EDGE_CONSTRAINT_BACKWARD);
  auto& map = a.domain().edge_constraints;
  const int stored = a.serial() < b.serial() ? c : flipped(c);
  if (c == K_EDGE_CONSTRAINT_NONE) map.erase(key(a, b));
  else map[key(a, b)] = stored;
}

k_edge_constraint_t edge_constraint(const Node& a, const Node& b) {
  require(&a.domain() == &b.domain() && &a != &b);
  const auto& map = a.domain().edge_constraints;
  const auto it = map.find(key(a, b));
  if (it == map.end()) return K_EDGE_CONSTRAINT_NONE;
  return static_cast<k_edge_constraint_t>(a.serial() < b.serial() ? it->second
                                                                  : flipped(it->second));
}

}  // namespace kelva
