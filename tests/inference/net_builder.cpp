#include "inference/net_builder.h"

#include <algorithm>
#include <map>
#include <set>

#include "compile/compile_log.h"
#include "compile/junction_forest.h"
#include "inference/propagate.h"
#include "table/structure.h"
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
  if (category != K_CATEGORY_DECISION) node_table(*n);
  return n;
}

void TestNet::randomize(Node* node, std::mt19937& rng, bool normalize) {
  Table& t = node_table(*node);
  double* data = t.data();
  std::uniform_real_distribution<double> u(0.05, 1.0);
  for (std::uint64_t i = 0; i < t.size(); ++i) data[i] = u(rng);
  if (!normalize || !node->is_discrete()) return;
  const std::size_t n = node->state_count();
  for (std::uint64_t i = 0; i < t.size(); i += n) {
    double s = 0;
    for (std::size_t k = 0; k < n; ++k) s += data[i + k];
    for (std::size_t k = 0; k < n; ++k) data[i + k] /= s;
  }
}

void random_network(TestNet& net, std::mt19937& rng, std::size_t count, std::size_t max_parents) {
  for (std::size_t i = 0; i < count; ++i) {
    std::vector<Node*> parents;
    if (i > 0) {
      const std::size_t want = std::uniform_int_distribution<std::size_t>(0, max_parents)(rng);
      for (std::size_t k = 0; k < want; ++k) {
        Node* p = net.nodes[std::uniform_int_distribution<std::size_t>(0, i - 1)(rng)];
        if (std::find(parents.begin(), parents.end(), p) == parents.end()) parents.push_back(p);
      }
    }
    Node* n = net.add(K_CATEGORY_CHANCE, std::uniform_int_distribution<std::size_t>(2, 3)(rng), parents);
    net.randomize(n, rng);
  }
}

namespace {

bool subset(const std::set<Node*>& a, const std::set<Node*>& b) {
  return std::includes(b.begin(), b.end(), a.begin(), a.end());
}

bool by_serial(const Node* a, const Node* b) { return a->serial() < b->serial(); }

}  // namespace

void build_forest_for_test(Domain& domain) {
  std::vector<Node*> graph_nodes;
  for (Node* n = domain.first_node(); n != nullptr; n = n->next)
    if (n->kind() != K_KIND_OTHER) graph_nodes.push_back(n);
  std::reverse(graph_nodes.begin(), graph_nodes.end());
  // Moral graph: families (and utility parents) become complete.
  std::map<Node*, std::set<Node*>> g;
  for (Node* n : graph_nodes) g[n];
  for (Node* n = domain.first_node(); n != nullptr; n = n->next) {
    std::vector<Node*> family(n->parents().begin(), n->parents().end());
    if (n->kind() != K_KIND_OTHER) family.push_back(n);
    for (Node* a : family)
      for (Node* b : family)
        if (a != b) g[a].insert(b);
  }
  // Min-fill elimination.
  Triangulation tri;
  std::vector<std::set<Node*>> cliques;
  std::set<Node*> left(graph_nodes.begin(), graph_nodes.end());
  while (!left.empty()) {
    Node* best = nullptr;
    std::size_t best_fill = SIZE_MAX;
    for (Node* v : graph_nodes) {
      if (!left.count(v)) continue;
      std::size_t fill = 0;
      for (Node* a : g[v])
        for (Node* b : g[v])
          if (a < b && !g[a].count(b)) ++fill;
      if (fill < best_fill) best_fill = fill, best = v;
    }
    std::set<Node*> c = g[best];
    for (Node* a : c)
      for (Node* b : c)
        if (a != b) g[a].insert(b);
    c.insert(best);
    tri.elimination_order.push_back(best);
    if (std::none_of(cliques.begin(), cliques.end(), [&](auto& k) { return subset(c, k); })) {
      cliques.push_back(c);
      // Orders by creation, not by address, so that equal networks give
      // equal forests.
      std::vector<Node*> members(c.begin(), c.end());
      std::sort(members.begin(), members.end(), by_serial);
      tri.cliques.push_back(members);
      for (std::size_t x = 0; x < members.size(); ++x)
        for (std::size_t y = x + 1; y < members.size(); ++y)
          tri.links.emplace_back(members[x], members[y]);
    }
    for (Node* a : g[best]) g[a].erase(best);
    g.erase(best);
    left.erase(best);
  }
  std::sort(tri.links.begin(), tri.links.end(), [](const auto& x, const auto& y) {
    return std::make_pair(x.first->serial(), x.second->serial()) <
           std::make_pair(y.first->serial(), y.second->serial());
  });
  tri.links.erase(std::unique(tri.links.begin(), tri.links.end()), tri.links.end());
  CompileLog log(nullptr);
  domain.install_forest(build_junction_forest(domain, tri, log));
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

namespace {

std::uint64_t index_in(const Table& t, const std::vector<std::size_t>& state, const TestNet& net) {
  std::uint64_t idx = 0;
  for (Node* n : t.nodes()) {
    if (!n->is_discrete()) continue;
    const auto pos = std::find(net.nodes.begin(), net.nodes.end(), n) - net.nodes.begin();
    idx = idx * n->state_count() + state[pos];
  }
  return idx;
}

}  // namespace

Oracle enumerate(const TestNet& net, bool max) {
  Oracle o;
  std::vector<Node*> discrete;
  for (Node* n : net.nodes) o.marginals.emplace_back(n->is_discrete() ? n->state_count() : 0, 0.0);
  std::vector<double> eu_sum;
  for (Node* n : net.nodes)
    if (n->category() == K_CATEGORY_UTILITY) eu_sum.push_back(0.0);
  std::vector<std::size_t> state(net.nodes.size(), 0);
  for (;;) {
    double p = 1.0;
    std::size_t u = 0;
    std::vector<double> utilities;
    for (std::size_t i = 0; i < net.nodes.size(); ++i) {
      Node* n = net.nodes[i];
      if (n->table() == nullptr) continue;
      const Table& t = *n->table();
      const double v = t.data()[index_in(t, state, net)];
      if (n->category() == K_CATEGORY_UTILITY) {
        utilities.push_back(v);
        continue;
      }
      p *= v;
    }
    for (std::size_t i = 0; i < net.nodes.size(); ++i) {
      const Evidence& e = net.nodes[i]->evidence;
      if (e.entered_code >= 0) p *= state[i] == static_cast<std::size_t>(e.entered_code) ? 1 : 0;
      else if (e.entered_code == Evidence::kVector) p *= e.entered_vector[state[i]];
    }
    for (double v : utilities) eu_sum[u++] += p * v;
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
  for (auto& m : o.marginals)
    for (double& v : m) v /= o.total;
  for (double s : eu_sum) o.utilities.push_back(s / o.total);
  return o;
}

}  // namespace kelva::test
