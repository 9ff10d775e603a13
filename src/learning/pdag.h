#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <utility>
#include <vector>

namespace kelva {

/// What the user allows between variables, as an n × n matrix each:
/// `forbidden(i, j)` means the link i -> j may not be made, `required(i, j)`
/// (symmetric) that i and j must be adjacent.  A link i -> j that must exist
/// is required(i, j) with forbidden(j, i).
struct EdgeRules {
  explicit EdgeRules(std::size_t n = 0) : n(n), forbid(n * n, 0), need(n * n, 0) {}
  std::size_t n;
  std::vector<std::uint8_t> forbid;
  std::vector<std::uint8_t> need;
  bool forbidden(std::size_t i, std::size_t j) const { return forbid[i * n + j] != 0; }
  bool required(std::size_t i, std::size_t j) const { return need[i * n + j] != 0; }
  /// Neither direction may be made.
  bool excluded(std::size_t i, std::size_t j) const { return forbidden(i, j) && forbidden(j, i); }
};

/// A partially directed graph over n variables: an edge i - j is directed
/// i -> j when it has its head at j only, undirected when it has none.
struct Pdag {
  explicit Pdag(std::size_t n = 0) : n(n), adj(n * n, 0), head(n * n, 0) {}
  std::size_t n;
  std::vector<std::uint8_t> adj;
  std::vector<std::uint8_t> head;

  bool adjacent(std::size_t i, std::size_t j) const { return adj[i * n + j] != 0; }
  bool directed(std::size_t i, std::size_t j) const {
    return adjacent(i, j) && head[i * n + j] != 0 && head[j * n + i] == 0;
  }
  bool undirected(std::size_t i, std::size_t j) const {
    return adjacent(i, j) && head[i * n + j] == 0 && head[j * n + i] == 0;
  }
  void link(std::size_t i, std::size_t j) { adj[i * n + j] = adj[j * n + i] = 1; }
  void unlink(std::size_t i, std::size_t j) {
    adj[i * n + j] = adj[j * n + i] = 0;
    head[i * n + j] = head[j * n + i] = 0;
  }
  /// Directs the edge i - j as i -> j.
  void orient(std::size_t i, std::size_t j) {
    head[i * n + j] = 1;
    head[j * n + i] = 0;
  }
};

/// The independence question of PC: are x and y independent given s?
using IndependenceOracle =
    std::function<bool(std::size_t x, std::size_t y, const std::vector<std::size_t>& s)>;

/// The separating set of each pair (smaller variable first) that a test
/// found independent.
using Sepsets = std::map<std::pair<std::size_t, std::size_t>, std::vector<std::size_t>>;

/// The skeleton PC-stable finds, with the separating sets of the pairs it
/// unlinked.
struct PcSkeleton {
  Pdag graph;  ///< undirected
  Sepsets sepsets;
};

/// The skeleton phase of PC-stable (see pc_stable).
PcSkeleton pc_skeleton(std::size_t n, const IndependenceOracle& independent,
                       const EdgeRules& rules);

/// The orientation phase of PC: forbidden directions, v-structures x -> z <- y
/// for unlinked x, y whose separating set lacks z, then Meek's rules.
Pdag orient_skeleton(Pdag skeleton, const Sepsets& sepsets, const EdgeRules& rules);

/// The PC algorithm in its order-independent ("stable") form: the skeleton
/// by removing the edges whose ends some subset of a neighbour set (as it was
/// at the start of the level) separates, then v-structures and Meek's rules.
/// Required edges are never tested, excluded ones never present; forbidden
/// directions are oriented the other way before the rules run.
Pdag pc_stable(std::size_t n, const IndependenceOracle& independent, const EdgeRules& rules);

/// Applies Meek's four orientation rules until none applies, never making a
/// forbidden direction.
void apply_meek_rules(Pdag& pdag, const EdgeRules& rules);

/// A DAG whose links include the PDAG's directed edges and orient its
/// undirected ones without a new v-structure (Dor and Tarsi); the parents of
/// each variable.  When the PDAG has no such extension (contradictory tests),
/// the edges are added in turn, each oriented so as to close no cycle.
std::vector<std::vector<std::size_t>> extend_to_dag(const Pdag& pdag);

}  // namespace kelva
