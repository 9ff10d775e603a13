#include "structure/graph_queries.h"

#include <cstddef>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "network/domain.h"
#include "network/error.h"
#include "network/node.h"

namespace kelva {

namespace {

// Breadth-first closure along parents (up) or children (down).
NodeList closure(const Node& node, bool up) {
  NodeList out;
  std::unordered_set<const Node*> seen{&node};
  std::vector<const Node*> queue{&node};
  for (std::size_t i = 0; i < queue.size(); ++i) {
    const NodeList& next = up ? queue[i]->parents() : queue[i]->children();
    for (Node* n : next) {
      if (!seen.insert(n).second) continue;
      out.push_back(n);
      queue.push_back(n);
    }
  }
  return out;
}

}  // namespace

NodeList ancestors(const Node& node) { return closure(node, true); }

NodeList descendants(const Node& node) { return closure(node, false); }

NodeList moral_neighbours(const Node& node) {
  NodeList out;
  auto add = [&](Node* n) {
    if (n != &node && !out.contains(n)) out.push_back(n);
  };
  for (Node* p : node.parents()) add(p);
  for (Node* c : node.children()) add(c);
  for (Node* c : node.children())
    for (Node* p : c->parents()) add(p);
  return out;
}

std::vector<Node*> chain_nodes(const Domain& domain) {
  std::vector<Node*> nodes;
  for (Node* n = domain.first_node(); n != nullptr; n = n->next) nodes.push_back(n);
  return nodes;
}

BallMarks bayes_ball(const Domain& domain, const std::vector<const Node*>& sources,
                     const std::vector<const Node*>& hard, const std::vector<const Node*>& soft) {
  const std::vector<Node*> nodes = chain_nodes(domain);
  std::unordered_map<const Node*, std::size_t> index;
  for (std::size_t i = 0; i < nodes.size(); ++i) index.emplace(nodes[i], i);
  auto position = [&](const Node* n) {
    auto it = index.find(n);
    require(it != index.end());
    return it->second;
  };
  const std::size_t count = nodes.size();
  std::vector<bool> observed(count), likelihood(count), visited(count), bottom(count);
  BallMarks marks{std::vector<bool>(count), std::vector<bool>(count)};
  for (const Node* n : hard) observed[position(n)] = true;
  for (const Node* n : soft) likelihood[position(n)] = true;

  // A ball is a node position and whether it arrives from a child.
  std::vector<std::pair<std::size_t, bool>> balls;
  for (const Node* n : sources) balls.emplace_back(position(n), true);
  auto up = [&](std::size_t j) {
    if (marks.top[j]) return;
    marks.top[j] = true;
    for (Node* p : nodes[j]->parents()) balls.emplace_back(position(p), true);
  };
  auto down = [&](std::size_t j) {
    if (bottom[j]) return;
    bottom[j] = true;
    for (Node* c : nodes[j]->children()) balls.emplace_back(position(c), false);
  };
  while (!balls.empty()) {
    const auto [j, from_child] = balls.back();
    balls.pop_back();
    visited[j] = true;
    if (from_child) {
      if (observed[j]) continue;  // an observed node blocks a ball from below
      up(j);
      down(j);
    } else if (observed[j]) {
      up(j);  // an observed common effect passes the ball back up
    } else {
      down(j);
      if (likelihood[j]) up(j);  // the likelihood is an observed child
    }
  }
  for (std::size_t j = 0; j < count; ++j) marks.connected[j] = visited[j] && !observed[j];
  return marks;
}

}  // namespace kelva
