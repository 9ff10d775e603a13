// Chow-Liu trees and tree-augmented naive Bayes classifiers.
#include <algorithm>
#include <numeric>

#include "learning/search.h"
#include "learning/structure_learning.h"
#include "network/domain.h"
#include "network/error.h"
#include "network/node.h"

namespace kelva {

ParentSets chow_liu(const LearningData& data, const EdgeRules& rules, std::size_t root,
                    std::size_t target) {
  const std::size_t n = data.variables();
  require(root < n && root != target);
  struct Edge {
    double weight;
    bool required;
    std::size_t a, b;
  };
  std::vector<Edge> edges;
  for (std::size_t a = 0; a < n; ++a)
    for (std::size_t b = a + 1; b < n; ++b) {
      if (a == target || b == target || rules.excluded(a, b)) continue;
      edges.push_back({mutual_information(data, a, b, target), rules.required(a, b), a, b});
    }
  // Kruskal: required edges first, then by falling weight (ties by index so
  // the result does not depend on the sort).
  std::stable_sort(edges.begin(), edges.end(), [](const Edge& x, const Edge& y) {
    if (x.required != y.required) return x.required;
    return x.weight > y.weight;
  });
  std::vector<std::size_t> group(n);
  std::iota(group.begin(), group.end(), 0);
  auto find = [&](std::size_t v) {
    while (group[v] != v) v = group[v] = group[group[v]];
    return v;
  };
  std::vector<std::vector<std::size_t>> tree(n);
  for (const Edge& e : edges) {
    const std::size_t ga = find(e.a), gb = find(e.b);
    if (ga == gb) {
      if (e.required) throw Error(K_ERROR_USAGE, "the required links form a cycle");
      continue;
    }
    group[ga] = gb;
    tree[e.a].push_back(e.b);
    tree[e.b].push_back(e.a);
  }
  // Direct the tree away from the root (other components, when forbidden
  // links split it, from their first variable).
  ParentSets parents(n);
  std::vector<std::uint8_t> seen(n, 0);
  std::vector<std::size_t> starts{root};
  for (std::size_t v = 0; v < n; ++v) starts.push_back(v);
  for (std::size_t s : starts) {
    if (seen[s] || s == target) continue;
    seen[s] = 1;
    std::vector<std::size_t> queue{s};
    for (std::size_t q = 0; q < queue.size(); ++q)
      for (std::size_t w : tree[queue[q]])
        if (!seen[w]) {
          seen[w] = 1;
          if (rules.forbidden(queue[q], w))
            throw Error(K_ERROR_USAGE, "the tree from " + data.nodes[root]->name() +
                                           " would make the forbidden link " +
                                           data.nodes[queue[q]]->name() + " -> " +
                                           data.nodes[w]->name());
          parents[w].push_back(queue[q]);
          queue.push_back(w);
        }
  }
  if (target != LearningData::npos)
    for (std::size_t v = 0; v < n; ++v) {
      if (v == target) continue;
      if (rules.forbidden(target, v))
        throw Error(K_ERROR_USAGE, "the classifier needs the forbidden link " +
                                       data.nodes[target]->name() + " -> " + data.nodes[v]->name());
      parents[v].push_back(target);
    }
  // Required links the tree lacks cannot be met.
  for (std::size_t a = 0; a < n; ++a)
    for (std::size_t b = a + 1; b < n; ++b)
      if (rules.required(a, b) &&
          std::find(parents[a].begin(), parents[a].end(), b) == parents[a].end() &&
          std::find(parents[b].begin(), parents[b].end(), a) == parents[b].end())
        throw Error(K_ERROR_USAGE, "a tree cannot hold the required link " + data.nodes[a]->name() +
                                       " - " + data.nodes[b]->name());
  return parents;
}

void learn_tree_structure(Domain& domain, const Node& root, const Node* target) {
  require(&root.domain() == &domain && (target == nullptr || &target->domain() == &domain));
  const LearningData data = learning_data(domain);
  const std::size_t r = data.index_of(&root);
  const std::size_t t = target == nullptr ? LearningData::npos : data.index_of(target);
  require(r != LearningData::npos && r != t && (target == nullptr || t != LearningData::npos));
  install_structure(domain, data, chow_liu(data, edge_rules(domain, data), r, t));
}

}  // namespace kelva
