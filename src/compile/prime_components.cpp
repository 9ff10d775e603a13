#include "compile/prime_components.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "compile/compile_log.h"
#include "compile/elimination.h"

namespace kelva {

namespace {

using Index = std::uint32_t;
using IndexList = std::vector<Index>;
constexpr Index kNone = static_cast<Index>(-1);

Index find_root(std::vector<Index>& parent, Index x) {
  while (parent[x] != x) {
    parent[x] = parent[parent[x]];
    x = parent[x];
  }
  return x;
}

}  // namespace

std::vector<IndexList> prime_components(const EliminationInput& graph) {
  const std::size_t n = graph.size();
  if (n == 0) return {};
  const CompileLog silent(nullptr);
  const EliminationResult minimal = eliminate_greedy(graph, K_TM_CLIQUE_SIZE, silent);

  // The minimal triangulation, and its fill-ins per vertex.
  std::vector<IndexList> adjacency = graph.adjacency;
  std::vector<IndexList> fill_neighbours(n);
  for (auto [a, b] : minimal.fill_ins) {
    fill_neighbours[a].push_back(b);
    fill_neighbours[b].push_back(a);
  }
  for (Index v = 0; v < n; ++v)
    if (!fill_neighbours[v].empty()) {
      adjacency[v].insert(adjacency[v].end(), fill_neighbours[v].begin(), fill_neighbours[v].end());
      std::sort(adjacency[v].begin(), adjacency[v].end());
    }

  // Maximum cardinality search builds the clique tree: a vertex whose count
  // does not exceed the previous one's starts a new clique, linked to the
  // clique of its last numbered neighbour (which holds all its numbered
  // neighbours, the separator).
  std::vector<Index> count(n, 0), visit(n, kNone), clique_of(n, kNone);
  // Vertices in doubly linked buckets by count; `top` is the highest
  // non-empty bucket.
  std::vector<Index> head(n + 1, kNone), next(n, kNone), prev(n, kNone);
  auto unlink = [&](Index v) {
    if (prev[v] != kNone) next[prev[v]] = next[v];
    else head[count[v]] = next[v];
    if (next[v] != kNone) prev[next[v]] = prev[v];
  };
  auto link = [&](Index v) {
    prev[v] = kNone;
    next[v] = head[count[v]];
    if (next[v] != kNone) prev[next[v]] = v;
    head[count[v]] = v;
  };
  for (Index v = n; v-- > 0;) link(v);
  Index top = 0;
  std::vector<IndexList> cliques;
  std::vector<Index> parent;  // union-find over cliques
  std::vector<Index> mark(n, kNone);
  IndexList numbered;
  Index previous = 0;
  for (Index step = 0; step < n; ++step) {
    while (head[top] == kNone) --top;
    const Index v = head[top];
    unlink(v);
    visit[v] = step;
    numbered.clear();
    Index last = kNone;
    for (Index w : adjacency[v]) {
      if (visit[w] == kNone || w == v) continue;
      numbered.push_back(w);
      if (last == kNone || visit[w] > visit[last]) last = w;
    }
    if (step == 0 || numbered.size() <= previous) {
      const Index id = static_cast<Index>(cliques.size());
      cliques.push_back(numbered);
      parent.push_back(id);
      if (last != kNone) {
        // The separator is complete in the graph unless it holds a fill-in.
        for (Index a : numbered) mark[a] = id;
        bool complete = true;
        for (Index a : numbered)
          for (Index b : fill_neighbours[a]) complete = complete && mark[b] != id;
        if (!complete) parent[id] = find_root(parent, clique_of[last]);
      }
    }
    const Index id = static_cast<Index>(cliques.size() - 1);
    cliques[id].push_back(v);
    clique_of[v] = id;
    previous = static_cast<Index>(numbered.size());
    for (Index w : adjacency[v])
      if (visit[w] == kNone) {
        unlink(w);
        ++count[w];
        link(w);
        top = std::max(top, count[w]);
      }
  }

  // One atom per piece of the cut clique tree.
  std::vector<Index> atom_of(cliques.size(), kNone);
  std::vector<IndexList> atoms;
  for (Index id = 0; id < cliques.size(); ++id) {
    const Index root = find_root(parent, id);
    if (atom_of[root] == kNone) {
      atom_of[root] = static_cast<Index>(atoms.size());
      atoms.emplace_back();
    }
    const Index a = atom_of[root];
    atoms[a].insert(atoms[a].end(), cliques[id].begin(), cliques[id].end());
  }
  for (IndexList& atom : atoms) {
    std::sort(atom.begin(), atom.end());
    atom.erase(std::unique(atom.begin(), atom.end()), atom.end());
  }
  std::sort(atoms.begin(), atoms.end(),
            [](const IndexList& x, const IndexList& y) { return x.front() < y.front(); });
  return atoms;
}

}  // namespace kelva
