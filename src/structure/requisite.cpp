#include "structure/requisite.h"

#include <algorithm>
#include <unordered_map>

#include "network/domain.h"
#include "network/error.h"
#include "network/node.h"

namespace kelva {

namespace {

// The domain's graph by node position, with the links into decisions that
// the reduction may drop.
struct Graph {
  std::vector<Node*> nodes;
  std::unordered_map<const Node*, std::size_t> position;
  std::vector<std::vector<std::size_t>> parents;
  std::vector<std::vector<std::size_t>> children;

  explicit Graph(const Domain& domain) {
    for (Node* n = domain.first_node(); n != nullptr; n = n->next) {
      position.emplace(n, nodes.size());
      nodes.push_back(n);
    }
    parents.resize(nodes.size());
    children.resize(nodes.size());
    for (std::size_t i = 0; i < nodes.size(); ++i)
      for (const Node* p : nodes[i]->parents()) {
        parents[i].push_back(position.at(p));
        children[position.at(p)].push_back(i);
      }
  }

  void drop_link(std::size_t parent, std::size_t child) {
    std::erase(parents[child], parent);
    std::erase(children[parent], child);
  }

  bool is(std::size_t i, k_category_t c) const { return nodes[i]->category() == c; }

  // Nodes reached from `start` going down (or up) the links.
  std::vector<bool> reached(std::size_t start, bool down) const {
    std::vector<bool> seen(nodes.size(), false);
    std::vector<std::size_t> stack{start};
    while (!stack.empty()) {
      const std::size_t n = stack.back();
      stack.pop_back();
      for (std::size_t m : down ? children[n] : parents[n])
        if (!seen[m]) seen[m] = true, stack.push_back(m);
    }
    return seen;
  }

  // Whether an active trail joins `from` to a node of `targets` given
  // `given` (the reachability walk over (node, direction) pairs).
  bool connected(std::size_t from, const std::vector<bool>& targets,
                 const std::vector<bool>& given) const {
    // A node has an observed descendant (itself included): a collider there
    // lets the trail through.
    std::vector<bool> opens(nodes.size(), false);
    std::vector<std::size_t> stack;
    for (std::size_t i = 0; i < nodes.size(); ++i)
      if (given[i]) stack.push_back(i), opens[i] = true;
    while (!stack.empty()) {
      const std::size_t n = stack.back();
      stack.pop_back();
      for (std::size_t p : parents[n])
        if (!opens[p]) opens[p] = true, stack.push_back(p);
    }
    // Visits: (node, arrived from a child = going up).
    std::vector<char> seen(2 * nodes.size(), 0);
    std::vector<std::pair<std::size_t, bool>> visits{{from, true}};
    while (!visits.empty()) {
      const auto [n, up] = visits.back();
      visits.pop_back();
      if (seen[2 * n + up]) continue;
      seen[2 * n + up] = 1;
      if (!given[n] && targets[n]) return true;
      if (up && !given[n]) {
        for (std::size_t p : parents[n]) visits.emplace_back(p, true);
        for (std::size_t c : children[n]) visits.emplace_back(c, false);
      } else if (!up) {
        if (!given[n])
          for (std::size_t c : children[n]) visits.emplace_back(c, false);
        if (opens[n])
          for (std::size_t p : parents[n]) visits.emplace_back(p, true);
      }
    }
    return false;
  }

  // The parents of decision `d` that are not requisite in this graph.
  std::vector<std::size_t> unrequisite(std::size_t d) const {
    const std::vector<bool> below = reached(d, true);
    std::vector<bool> utilities(nodes.size(), false);
    for (std::size_t i = 0; i < nodes.size(); ++i)
      utilities[i] = below[i] && is(i, K_CATEGORY_UTILITY);
    std::vector<std::size_t> result;
    for (std::size_t x : parents[d]) {
      std::vector<bool> given(nodes.size(), false);
      given[d] = true;
      for (std::size_t p : parents[d]) given[p] = p != x;
      if (!connected(x, utilities, given)) result.push_back(x);
    }
    return result;
  }

  // Drops unrequisite links into decisions until none is left.
  void reduce() {
    for (bool changed = true; changed;) {
      changed = false;
      for (std::size_t d = 0; d < nodes.size(); ++d) {
        if (!is(d, K_CATEGORY_DECISION)) continue;
        for (std::size_t x : unrequisite(d)) {
          drop_link(x, d);
          changed = true;
        }
      }
    }
  }
};

void require_decision(const Node& node) { require(node.category() == K_CATEGORY_DECISION); }

}  // namespace

NodeList requisite_parents(const Node& decision) {
  require_decision(decision);
  Graph g(decision.domain());
  g.reduce();
  const std::vector<std::size_t>& kept = g.parents[g.position.at(&decision)];
  NodeList result;
  for (Node* p : decision.parents())
    if (std::find(kept.begin(), kept.end(), g.position.at(p)) != kept.end()) result.push_back(p);
  return result;
}

NodeList requisite_ancestors(const Node& decision) {
  require_decision(decision);
  Graph g(decision.domain());
  g.reduce();
  const std::vector<bool> above = g.reached(g.position.at(&decision), false);
  NodeList result;
  for (std::size_t i = 0; i < g.nodes.size(); ++i)
    if (above[i] && (g.is(i, K_CATEGORY_DECISION) || g.is(i, K_CATEGORY_CHANCE)))
      result.push_back(g.nodes[i]);
  return result;
}

NodeList decision_order(const Domain& domain) {
  Graph g(domain);
  std::vector<std::size_t> decisions;
  std::vector<std::size_t> below_count;
  for (std::size_t i = 0; i < g.nodes.size(); ++i) {
    if (!g.is(i, K_CATEGORY_DECISION)) continue;
    const std::vector<bool> below = g.reached(i, true);
    std::size_t n = 0;
    for (std::size_t j = 0; j < g.nodes.size(); ++j) n += below[j] && g.is(j, K_CATEGORY_DECISION);
    decisions.push_back(i);
    below_count.push_back(n);
  }
  // Totally ordered: the decision with k decisions below it is the
  // (count - k)th, and each one reaches the next.
  NodeList result;
  std::vector<std::size_t> order(decisions.size());
  std::vector<bool> placed(decisions.size(), false);
  for (std::size_t i = 0; i < decisions.size(); ++i) {
    const std::size_t at = decisions.size() - 1 - below_count[i];
    require(!placed[at]);
    placed[at] = true;
    order[at] = decisions[i];
  }
  for (std::size_t i = 0; i + 1 < order.size(); ++i)
    require(g.reached(order[i], true)[order[i + 1]]);
  for (std::size_t i : order) result.push_back(g.nodes[i]);
  return result;
}

}  // namespace kelva
