// PC-stable: skeleton, v-structures, Meek's rules, and the extension of the
// resulting PDAG to a DAG.
#include <algorithm>
#include <map>
#include <utility>

#include "learning/pdag.h"

namespace kelva {

namespace {

// Calls `visit` with every subset of `items` of size k (in lexicographic
// order) until it returns true; true when it did.
template <class F>
bool any_subset(const std::vector<std::size_t>& items, std::size_t k, F&& visit) {
  if (k > items.size()) return false;
  std::vector<std::size_t> pick(k);
  for (std::size_t i = 0; i < k; ++i) pick[i] = i;
  std::vector<std::size_t> subset(k);
  while (true) {
    for (std::size_t i = 0; i < k; ++i) subset[i] = items[pick[i]];
    if (visit(subset)) return true;
    std::size_t i = k;
    while (i > 0 && pick[i - 1] == items.size() - k + i - 1) --i;
    if (i == 0) return false;
    ++pick[i - 1];
    for (std::size_t j = i; j < k; ++j) pick[j] = pick[j - 1] + 1;
  }
}

bool may_orient(const Pdag& g, const EdgeRules& rules, std::size_t i, std::size_t j) {
  return g.undirected(i, j) && !rules.forbidden(i, j);
}

}  // namespace

PcSkeleton pc_skeleton(std::size_t n, const IndependenceOracle& independent,
                       const EdgeRules& rules) {
  PcSkeleton out{Pdag(n), {}};
  Pdag& g = out.graph;
  for (std::size_t i = 0; i < n; ++i)
    for (std::size_t j = i + 1; j < n; ++j)
      if (!rules.excluded(i, j)) g.link(i, j);
  Sepsets& sepset = out.sepsets;

  for (std::size_t level = 0;; ++level) {
    // The neighbour sets are frozen for the whole level, which makes the
    // result independent of the variable order.
    std::vector<std::vector<std::size_t>> frozen(n);
    for (std::size_t i = 0; i < n; ++i)
      for (std::size_t j = 0; j < n; ++j)
        if (g.adjacent(i, j)) frozen[i].push_back(j);
    bool more = false;
    for (std::size_t x = 0; x < n; ++x)
      for (std::size_t y : frozen[x]) {
        if (!g.adjacent(x, y) || rules.required(x, y)) continue;
        std::vector<std::size_t> others;
        for (std::size_t v : frozen[x])
          if (v != y) others.push_back(v);
        if (others.size() < level) continue;
        if (others.size() > level) more = true;
        any_subset(others, level, [&](const std::vector<std::size_t>& s) {
          if (!independent(x, y, s)) return false;
          g.unlink(x, y);
          sepset[{std::min(x, y), std::max(x, y)}] = s;
          return true;
        });
      }
    if (!more) break;
  }
  return out;
}

Pdag orient_skeleton(Pdag g, const Sepsets& sepset, const EdgeRules& rules) {
  const std::size_t n = g.n;
  for (std::size_t i = 0; i < n; ++i)
    for (std::size_t j = 0; j < n; ++j)
      if (g.undirected(i, j) && rules.forbidden(i, j) && !rules.forbidden(j, i)) g.orient(j, i);

  // v-structures x -> z <- y for nonadjacent x, y whose separating set lacks
  // z; an orientation that a previous one or a rule contradicts is skipped.
  for (std::size_t z = 0; z < n; ++z)
    for (std::size_t x = 0; x < n; ++x)
      for (std::size_t y = x + 1; y < n; ++y) {
        if (!g.adjacent(x, z) || !g.adjacent(y, z) || g.adjacent(x, y)) continue;
        const auto it = sepset.find({x, y});
        if (it == sepset.end() ||
            std::find(it->second.begin(), it->second.end(), z) != it->second.end())
          continue;
        const bool fx = g.directed(x, z) || may_orient(g, rules, x, z);
        const bool fy = g.directed(y, z) || may_orient(g, rules, y, z);
        if (!fx || !fy) continue;
        g.orient(x, z);
        g.orient(y, z);
      }
  apply_meek_rules(g, rules);
  return g;
}

Pdag pc_stable(std::size_t n, const IndependenceOracle& independent, const EdgeRules& rules) {
  PcSkeleton skeleton = pc_skeleton(n, independent, rules);
  return orient_skeleton(std::move(skeleton.graph), skeleton.sepsets, rules);
}

void apply_meek_rules(Pdag& g, const EdgeRules& rules) {
  const std::size_t n = g.n;
  for (bool changed = true; changed;) {
    changed = false;
    for (std::size_t a = 0; a < n; ++a)
      for (std::size_t b = 0; b < n; ++b) {
        if (!may_orient(g, rules, a, b)) continue;
        bool orient = false;
        for (std::size_t c = 0; c < n && !orient; ++c) {
          if (c == a || c == b) continue;
          // R1: c -> a - b, c and b nonadjacent.
          if (g.directed(c, a) && !g.adjacent(c, b)) orient = true;
          // R2: a -> c -> b.
          if (g.directed(a, c) && g.directed(c, b)) orient = true;
          // R3: a - c -> b and a - d -> b, c and d nonadjacent.
          if (g.undirected(a, c) && g.directed(c, b))
            for (std::size_t d = c + 1; d < n && !orient; ++d)
              if (d != a && d != b && g.undirected(a, d) && g.directed(d, b) && !g.adjacent(c, d))
                orient = true;
          // R4: a - d -> c -> b, a adjacent to c, d and b nonadjacent.
          if (g.adjacent(a, c) && g.directed(c, b))
            for (std::size_t d = 0; d < n && !orient; ++d)
              if (d != a && d != b && d != c && g.undirected(a, d) && g.directed(d, c) &&
                  !g.adjacent(d, b))
                orient = true;
        }
        if (orient) {
          g.orient(a, b);
          changed = true;
        }
      }
  }
}

namespace {

bool reaches(const std::vector<std::vector<std::size_t>>& parents, std::size_t from,
             std::size_t to) {
  // Walks parents from `to`: a path from -> ... -> to exists when it meets `from`.
  std::vector<std::size_t> stack{to};
  std::vector<std::uint8_t> seen(parents.size(), 0);
  while (!stack.empty()) {
    const std::size_t v = stack.back();
    stack.pop_back();
    if (v == from) return true;
    if (seen[v]) continue;
    seen[v] = 1;
    for (std::size_t p : parents[v]) stack.push_back(p);
  }
  return false;
}

}  // namespace

std::vector<std::vector<std::size_t>> extend_to_dag(const Pdag& pdag) {
  const std::size_t n = pdag.n;
  std::vector<std::vector<std::size_t>> parents(n);
  Pdag g = pdag;
  std::vector<std::uint8_t> gone(n, 0);
  std::size_t left = n;
  while (left > 0) {
    std::size_t pick = n;
    for (std::size_t x = 0; x < n && pick == n; ++x) {
      if (gone[x]) continue;
      bool sink = true, clique = true;
      for (std::size_t y = 0; y < n && sink; ++y)
        if (!gone[y] && g.directed(x, y)) sink = false;
      for (std::size_t y = 0; y < n && sink && clique; ++y) {
        if (gone[y] || !g.undirected(x, y)) continue;
        for (std::size_t z = 0; z < n && clique; ++z)
          if (z != y && !gone[z] && g.adjacent(x, z) && !g.adjacent(y, z)) clique = false;
      }
      if (sink && clique) pick = x;
    }
    if (pick == n) break;
    for (std::size_t y = 0; y < n; ++y)
      if (!gone[y] && g.adjacent(pick, y)) parents[pick].push_back(y);
    gone[pick] = 1;
    --left;
  }
  if (left == 0) return parents;

  // No consistent extension: directed edges first, then the undirected ones,
  // each in the direction that closes no cycle (dropped when both would).
  for (auto& p : parents) p.clear();
  for (int pass = 0; pass < 2; ++pass)
    for (std::size_t i = 0; i < n; ++i)
      for (std::size_t j = 0; j < n; ++j) {
        if (pass == 0 && pdag.directed(i, j) && !reaches(parents, j, i)) parents[j].push_back(i);
        if (pass == 1 && i < j && pdag.adjacent(i, j) && !pdag.directed(i, j) &&
            !pdag.directed(j, i)) {
          if (!reaches(parents, j, i)) parents[j].push_back(i);
          else if (!reaches(parents, i, j)) parents[i].push_back(j);
        }
      }
  return parents;
}

}  // namespace kelva
