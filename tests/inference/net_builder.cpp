#include "inference/net_builder.h"

#include <algorithm>
#include <map>
#include <set>

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

std::vector<Node*> table_nodes(const Table& t) { return {t.nodes().begin(), t.nodes().end()}; }

}  // namespace

void build_forest_for_test(Domain& domain) {
  std::vector<Node*> graph_nodes;
  for (Node* n = domain.first_node(); n != nullptr; n = n->next)
    if (n->kind() != K_KIND_OTHER) graph_nodes.push_back(n);
  std::reverse(graph_nodes.begin(), graph_nodes.end());
  // Moral graph: families (and utility parents) become complete.
  std::map<Node*, std::set<Node*>> adj;
  for (Node* n : graph_nodes) adj[n];
  for (Node* n = domain.first_node(); n != nullptr; n = n->next) {
    std::vector<Node*> family(n->parents().begin(), n->parents().end());
    if (n->kind() != K_KIND_OTHER) family.push_back(n);
    for (Node* a : family)
      for (Node* b : family)
        if (a != b) adj[a].insert(b);
  }
  // Min-fill elimination.
  std::vector<std::set<Node*>> cliques;
  auto g = adj;
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
    if (std::none_of(cliques.begin(), cliques.end(), [&](auto& k) { return subset(c, k); }))
      cliques.push_back(c);
    for (Node* a : g[best]) g[a].erase(best);
    g.erase(best);
    left.erase(best);
  }
  // Maximal spanning trees over intersection sizes (Prim), parents first.
  auto forest = ForestPtr(new Forest(domain));
  std::vector<int> parent(cliques.size(), -1), order;
  std::vector<bool> done(cliques.size(), false);
  std::vector<int> tree_of(cliques.size(), -1);
  int trees = 0;
  for (std::size_t start = 0; start < cliques.size(); ++start) {
    if (done[start]) continue;
    done[start] = true;
    order.push_back(static_cast<int>(start));
    tree_of[start] = trees++;
    for (;;) {
      int bi = -1, bj = -1;
      std::size_t bw = 0;
      for (int i : order) {
        if (tree_of[i] != tree_of[start]) continue;
        for (std::size_t j = 0; j < cliques.size(); ++j) {
          if (done[j]) continue;
          std::size_t w = 0;
          for (Node* n : cliques[j]) w += cliques[i].count(n);
          if (w > bw) bw = w, bi = i, bj = static_cast<int>(j);
        }
      }
      if (bj < 0) break;
      done[bj] = true;
      parent[bj] = bi;
      tree_of[bj] = tree_of[start];
      order.push_back(bj);
    }
  }
  for (int t = 0; t < trees; ++t) forest->trees.push_back(std::make_unique<JunctionTree>(domain));
  std::vector<Clique*> made(cliques.size(), nullptr);
  for (int i : order) {
    auto c = std::make_unique<Clique>();
    c->number = forest->cliques.size();
    c->tree = forest->trees[tree_of[i]].get();
    std::vector<Node*> members(cliques[i].begin(), cliques[i].end());
    std::sort(members.begin(), members.end(), [](Node* a, Node* b) { return a->serial() < b->serial(); });
    for (Node* m : members) c->members.push_back(m);
    c->table.reset(new Table(domain, members, TableRole::potential, nullptr));
    c->discrete_members = members.size();
    c->discrete_size = c->table->size();
    made[i] = c.get();
    if (c->tree->root == nullptr) c->tree->root = c.get();
    c->tree->cliques.push_back(c.get());
    if (parent[i] >= 0) {
      Clique* p = made[parent[i]];
      c->parent = p;
      auto sep = std::make_unique<Separator>();
      sep->parent = p;
      sep->child = c.get();
      std::vector<Node*> shared;
      for (Node* m : members)
        if (cliques[parent[i]].count(m)) shared.push_back(m);
      for (Node* m : shared) sep->members.push_back(m);
      sep->table.reset(new Table(domain, shared, TableRole::potential, nullptr));
      sep->parent_plan = IndexPlan::between(*p->table, *sep->table);
      sep->child_plan = IndexPlan::between(*c->table, *sep->table);
      sep->scratch.resize(sep->table->size());
      p->links.push_back({c.get(), sep.get()});
      c->links.push_back({p, sep.get()});
      p->neighbours.push_back(c.get());
      c->neighbours.push_back(p);
      forest->separators.push_back(std::move(sep));
    }
    forest->cliques.push_back(std::move(c));
  }
  // Node records: tables to the smallest clique holding them, and the home
  // clique of each discrete node.
  auto smallest = [&](const std::set<Node*>& need) {
    Clique* best = nullptr;
    for (auto& c : forest->cliques) {
      std::set<Node*> m(c->members.begin(), c->members.end());
      if (subset(need, m) && (best == nullptr || c->discrete_size < best->discrete_size))
        best = c.get();
    }
    return best;
  };
  for (Node* n = domain.first_node(); n != nullptr; n = n->next) {
    NodeSlot slot;
    slot.node = n;
    if (n->table() != nullptr) {
      std::vector<Node*> tn = table_nodes(*n->table());
      slot.assigned = smallest(std::set<Node*>(tn.begin(), tn.end()));
      slot.assigned_plan = IndexPlan::between(*slot.assigned->table, *n->table());
      slot.tree = slot.assigned->tree;
    }
    if (n->is_discrete()) {
      slot.home = smallest({n});
      const auto& m = slot.home->members;
      const std::size_t pos[] = {m.index_of(n)};
      slot.home_plan = IndexPlan(slot.home->table->state_counts(), pos);
      slot.marginal.assign(n->state_count(), 0.0);
      slot.tree = slot.home->tree;
    }
    n->forest_slot = forest->nodes.size();
    slot.tree->nodes.push_back(n);
    forest->nodes.push_back(std::move(slot));
  }
  domain.install_forest(std::move(forest));
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
