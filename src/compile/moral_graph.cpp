#include "compile/moral_graph.h"

#include <algorithm>
#include <cstdint>

#include "compile/compile_log.h"
#include "network/domain.h"
#include "network/node.h"

namespace kelva {

namespace {

constexpr std::uint32_t kNone = static_cast<std::uint32_t>(-1);

bool is_vertex(const Node& node) noexcept { return node.is_discrete() || node.is_continuous(); }

}  // namespace

bool MoralGraph::adjacent(std::uint32_t a, std::uint32_t b) const noexcept {
  const auto& na = neighbours[a];
  const auto& nb = neighbours[b];
  const auto& shorter = na.size() <= nb.size() ? na : nb;
  const std::uint32_t other = na.size() <= nb.size() ? b : a;
  return std::find(shorter.begin(), shorter.end(), other) != shorter.end();
}

MoralGraph build_moral_graph(const Domain& domain, CompileLog& log) {
  MoralGraph graph;
  for (Node* n = domain.first_node(); n != nullptr; n = n->next)
    if (is_vertex(*n)) {
      graph.position.emplace(n, static_cast<std::uint32_t>(graph.vertices.size()));
      graph.vertices.push_back(n);
    }
  const std::size_t count = graph.size();
  graph.neighbours.resize(count);

  // Chain-graph component of each member (members of a component are joined
  // to one another by undirected links).
  std::unordered_map<const Node*, const ChainComponent*> component_of;
  for (const auto& c : domain.chain_components)
    for (Node* m : c->members) component_of.emplace(m, c.get());
  auto component = [&](const Node* n) -> const ChainComponent* {
    auto it = component_of.find(n);
    return it == component_of.end() ? nullptr : it->second;
  };
  auto index = [&](const Node* n) {
    auto it = graph.position.find(n);
    return it == graph.position.end() ? kNone : it->second;
  };

  log.write("\n\nMoral links:\n\n");
  // Marks are the collecting vertex's position + 1, so they need no clearing.
  std::vector<std::uint32_t> mark(count, kNone);
  for (std::uint32_t x = 0; x < count; ++x) {
    Node* node = graph.vertices[x];
    auto& set = graph.neighbours[x];
    mark[x] = x;
    auto join = [&](const Node* n) {
      const std::uint32_t i = index(n);
      if (i == kNone || mark[i] == x) return false;
      mark[i] = x;
      set.push_back(i);
      return true;
    };
    if (node->category() != K_CATEGORY_FUNCTION)
      for (Node* p : node->parents()) join(p);
    for (Node* c : node->children())
      if (c->category() == K_CATEGORY_CHANCE || c->category() == K_CATEGORY_DECISION) join(c);
    if (const ChainComponent* own = component(node))
      for (Node* m : own->members) join(m);
    for (Node* child : node->children()) {
      const k_category_t cat = child->category();
      if (cat != K_CATEGORY_CHANCE && cat != K_CATEGORY_DECISION && cat != K_CATEGORY_UTILITY)
        continue;
      auto marry = [&](const Node* member) {
        for (Node* p : member->parents())
          if (join(p) && node->serial() < p->serial())
            log.write("    Marrying %s and %s\n", node->name_or_generate().c_str(),
                      p->name_or_generate().c_str());
      };
      if (const ChainComponent* c = component(child))
        for (Node* m : c->members) marry(m);
      else marry(child);
    }
  }

  if (domain.discrete_count() == 0 || domain.continuous_count() == 0) return graph;
  log.write("\n\nNecessary fill-ins:\n\n");
  // The discrete boundary of every connected set of continuous vertices is
  // made complete, so that the triangulation can be strong.
  std::vector<std::int8_t> state(count, 0);  // 1: continuous reached, -1: boundary
  std::vector<std::uint32_t> stack;
  std::vector<std::uint32_t> boundary;
  std::vector<std::uint32_t> seen(count, kNone);
  for (std::uint32_t x = 0; x < count; ++x) {
    if (!graph.vertices[x]->is_continuous() || state[x] != 0 || graph.neighbours[x].empty())
      continue;
    boundary.clear();
    state[x] = 1;
    stack.assign(1, x);
    while (!stack.empty()) {
      const std::uint32_t v = stack.back();
      stack.pop_back();
      for (std::uint32_t w : graph.neighbours[v]) {
        if (state[w] != 0) continue;
        if (graph.vertices[w]->is_continuous()) {
          state[w] = 1;
          stack.push_back(w);
        } else {
          state[w] = -1;
          boundary.push_back(w);
        }
      }
    }
    std::sort(boundary.begin(), boundary.end());  // node-list order
    for (std::uint32_t d : boundary) state[d] = 0;
    for (std::uint32_t d : boundary) {
      // `seen` marks D's neighbours as they stood before this boundary's links.
      for (std::uint32_t w : graph.neighbours[d]) seen[w] = d;
      Node* dn = graph.vertices[d];
      for (std::uint32_t e : boundary) {
        if (e == d || seen[e] == d) continue;
        graph.neighbours[d].push_back(e);
        seen[e] = d;
        Node* en = graph.vertices[e];
        if (dn->serial() < en->serial())
          log.write("    Creating necessary fill-in between %s and %s\n",
                    dn->name_or_generate().c_str(), en->name_or_generate().c_str());
      }
    }
  }
  return graph;
}

}  // namespace kelva
