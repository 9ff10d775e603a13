#include "compile/elimination.h"

#include <algorithm>
#include <iterator>
#include <list>
#include <set>
#include <tuple>
#include <unordered_set>

#include "compile/compile_log.h"
#include "compile/triangulate.h"
#include "network/error.h"
#include "network/node.h"

namespace kelva {

namespace {

using Index = std::uint32_t;
using IndexList = std::vector<Index>;

constexpr double kExactLimit = 9007199254740992.0;  // 2^53

const char* name_of(Node* node) { return node->name_or_generate().c_str(); }

// The graph during elimination.  Neighbour lists stay sorted; an eliminated
// vertex is only flagged dead and dropped from a list when the list is next
// rebuilt, so eliminating a neighbour of a hub does not rewrite the hub's list.
class DynamicGraph {
 public:
  explicit DynamicGraph(const EliminationInput& input)
      : adjacency_(input.adjacency), alive_(input.size(), 1), degree_(input.size()) {
    for (std::size_t v = 0; v < input.size(); ++v)
      degree_[v] = static_cast<Index>(adjacency_[v].size());
  }

  bool alive(Index v) const noexcept { return alive_[v] != 0; }
  Index degree(Index v) const noexcept { return degree_[v]; }

  /// The live neighbours of `v`, sorted; compacts the list when it holds
  /// many dead entries.
  void neighbours(Index v, IndexList& out) {
    out.clear();
    for (Index w : adjacency_[v])
      if (alive_[w]) out.push_back(w);
    if (adjacency_[v].size() > 2 * out.size() + 8) adjacency_[v] = out;
  }

  template <class F>
  void for_each_neighbour(Index v, F f) const {
    for (Index w : adjacency_[v])
      if (alive_[w]) f(w);
  }

  /// Whether live vertices `a` and `b` are adjacent.
  bool adjacent(Index a, Index b) const noexcept {
    const IndexList& la = adjacency_[a];
    const IndexList& lb = adjacency_[b];
    return la.size() <= lb.size() ? std::binary_search(la.begin(), la.end(), b)
                                  : std::binary_search(lb.begin(), lb.end(), a);
  }

  /// Removes `v`, whose live neighbours are `nb`.
  void remove(Index v, const IndexList& nb) noexcept {
    alive_[v] = 0;
    for (Index x : nb) --degree_[x];
  }

  /// Adds the sorted new neighbours `added` to `x`.
  void add_neighbours(Index x, const IndexList& added) {
    IndexList merged;
    merged.reserve(degree_[x] + added.size());
    auto a = added.begin();
    for (Index w : adjacency_[x]) {
      if (!alive_[w]) continue;
      while (a != added.end() && *a < w) merged.push_back(*a++);
      merged.push_back(w);
    }
    merged.insert(merged.end(), a, added.end());
    adjacency_[x] = std::move(merged);
    degree_[x] += static_cast<Index>(added.size());
  }

 private:
  std::vector<IndexList> adjacency_;
  std::vector<char> alive_;
  std::vector<Index> degree_;
};

// Decides whether the elimination set of a vertex is a new maximal clique:
// it is not iff some earlier vertex u, whose first eliminated later
// neighbour is this vertex, had exactly one more later neighbour.
class CliqueRecorder {
 public:
  explicit CliqueRecorder(std::size_t n) : pending_(n), claimed_(n, 0), size_(n, 0) {}

  /// Called at the elimination of `v` with its live neighbours `nb`;
  /// returns true when {v} + nb is a new maximal clique.
  bool eliminate(Index v, const IndexList& nb) {
    bool contained = false;
    for (Index u : pending_[v])
      if (!claimed_[u]) {
        claimed_[u] = 1;
        if (size_[u] == nb.size() + 1) contained = true;
      }
    IndexList().swap(pending_[v]);
    size_[v] = static_cast<Index>(nb.size());
    for (Index x : nb) pending_[x].push_back(v);
    return !contained;
  }

 private:
  std::vector<IndexList> pending_;
  std::vector<char> claimed_;
  std::vector<Index> size_;
};

class Eliminator {
 public:
  Eliminator(const EliminationInput& input, const CompileLog& log, bool greedy,
             k_triangulation_method_t method)
      : input_(input),
        log_(log),
        graph_(input),
        recorder_(input.size()),
        tracked_(greedy),
        weighted_(method == K_TM_CLIQUE_WEIGHT || method == K_TM_FILL_IN_WEIGHT),
        clique_first_(method == K_TM_CLIQUE_SIZE || method == K_TM_CLIQUE_WEIGHT),
        marked_(input.size(), 0) {
    const std::size_t n = input.size();
    unit_.resize(n);
    discrete_.resize(n);
    for (std::size_t v = 0; v < n; ++v) {
      Node* node = input.nodes[v];
      discrete_[v] = node->is_discrete() ? 1 : 0;
      unit_[v] = weighted_ && node->is_discrete() ? node->state_count() : 1;
    }
    if (tracked_) initial_measures();
  }

  EliminationResult run_greedy();
  EliminationResult run_in_order(const IndexList& order, void (*on_vertex)(void*, std::size_t),
                                 void* context);

 private:
  // Measures.
  void initial_measures();
  void recompute_fill(Index x);
  void recompute_clique(Index x);
  double clique_measure(Index x) const;
  bool before(Index x, Index y) const noexcept;

  // Heap.
  void heap_push(Index v);
  void heap_remove(Index v);
  void heap_fix(Index v);
  void sift_up(std::size_t i);
  void sift_down(std::size_t i);
  void place(std::size_t i, Index v) {
    heap_[i] = v;
    heap_pos_[v] = i;
  }

  bool covered(Index w, std::size_t clique_size);
  void eliminate(Index v, IndexList& nb, bool write_line);
  void next_stamp() {
    if (++stamp_ == 0) {
      std::fill(marked_.begin(), marked_.end(), 0);
      stamp_ = 1;
    }
  }

  const EliminationInput& input_;
  const CompileLog& log_;
  DynamicGraph graph_;
  CliqueRecorder recorder_;
  bool tracked_;
  bool weighted_;
  bool clique_first_;
  EliminationResult result_;

  std::vector<std::uint64_t> unit_;  // state weight (weighted) or 1
  std::vector<char> discrete_;
  std::vector<std::uint64_t> fill_;
  std::vector<std::uint64_t> weight_sum_;  // sum of the neighbours' units
  std::vector<double> product_;            // discrete state product of {x} + N(x)
  std::vector<Index> continuous_;          // continuous members of {x} + N(x)
  std::vector<double> measure_;            // clique measure

  std::vector<Index> heap_;
  std::vector<std::size_t> heap_pos_;
  static constexpr std::size_t kOut = static_cast<std::size_t>(-1);

  std::vector<std::uint32_t> marked_;
  std::uint32_t stamp_ = 0;
  IndexList nb_, nb2_, covered_;
  std::vector<Index> common_;
  std::vector<std::uint64_t> common_weight_;
  std::vector<std::pair<Index, Index>> pairs_;
  std::vector<IndexList> added_;
};

__extension__ typedef unsigned __int128 Wide;

// The weight of all pairs of a set, from the sum and the sum of squares of
// its members' weights.
std::uint64_t pair_total(std::uint64_t sum, std::uint64_t sum_squares) {
  const Wide s = sum;
  return static_cast<std::uint64_t>((s * s - sum_squares) / 2);
}

double cg_factor(Index continuous) {
  const double c = continuous;
  return continuous > 0 ? (c + 3.0) * c / 2.0 + 1.0 : 1.0;
}

void Eliminator::initial_measures() {
  const std::size_t n = input_.size();
  fill_.assign(n, 0);
  weight_sum_.assign(n, 0);
  product_.assign(n, 1.0);
  continuous_.assign(n, 0);
  measure_.assign(n, 0.0);
  // Pairs of adjacent neighbours come from the triangles, found by the
  // degree-ordered method in O(m^1.5) rather than per vertex.
  std::vector<std::uint64_t> adjacent_weight(n, 0);
  auto higher = [&](Index a, Index b) {
    const std::size_t da = input_.adjacency[a].size(), db = input_.adjacency[b].size();
    return da != db ? da < db : a < b;
  };
  std::vector<IndexList> out(n);
  for (Index u = 0; u < n; ++u)
    for (Index w : input_.adjacency[u])
      if (higher(u, w)) out[u].push_back(w);
  std::vector<Index> seen(n, static_cast<Index>(-1));
  for (Index u = 0; u < n; ++u) {
    for (Index w : out[u]) seen[w] = u;
    for (Index v : out[u])
      for (Index w : out[v])
        if (seen[w] == u) {
          adjacent_weight[u] += unit_[v] * unit_[w];
          adjacent_weight[v] += unit_[u] * unit_[w];
          adjacent_weight[w] += unit_[u] * unit_[v];
        }
  }
  for (Index x = 0; x < n; ++x) {
    std::uint64_t sum = 0, squares = 0;
    for (Index a : input_.adjacency[x]) {
      sum += unit_[a];
      squares += unit_[a] * unit_[a];
    }
    weight_sum_[x] = sum;
    fill_[x] = pair_total(sum, squares) - adjacent_weight[x];
    recompute_clique(x);
  }
}

void Eliminator::recompute_fill(Index x) {
  next_stamp();
  std::uint64_t sum = 0, squares = 0, adjacent = 0;
  graph_.for_each_neighbour(x, [&](Index a) {
    marked_[a] = stamp_;
    sum += unit_[a];
    squares += unit_[a] * unit_[a];
  });
  graph_.for_each_neighbour(x, [&](Index a) {
    graph_.for_each_neighbour(a, [&](Index b) {
      if (b > a && marked_[b] == stamp_) adjacent += unit_[a] * unit_[b];
    });
  });
  weight_sum_[x] = sum;
  fill_[x] = pair_total(sum, squares) - adjacent;
}

void Eliminator::recompute_clique(Index x) {
  double product = discrete_[x] ? static_cast<double>(input_.nodes[x]->state_count()) : 1.0;
  Index continuous = discrete_[x] ? 0 : 1;
  if (weighted_)
    graph_.for_each_neighbour(x, [&](Index a) {
      if (discrete_[a]) product *= static_cast<double>(input_.nodes[a]->state_count());
      else ++continuous;
    });
  product_[x] = product;
  continuous_[x] = continuous;
  measure_[x] = clique_measure(x);
}

double Eliminator::clique_measure(Index x) const {
  if (!weighted_) return static_cast<double>(graph_.degree(x)) + 1.0;
  return product_[x] * cg_factor(continuous_[x]);
}

// Continuous vertices go first; then fill-in 0 (without further comparison
// among such vertices), then the method's primary and secondary measures.
bool Eliminator::before(Index x, Index y) const noexcept {
  if (discrete_[x] != discrete_[y]) return !discrete_[x];
  const bool x0 = fill_[x] == 0, y0 = fill_[y] == 0;
  if (x0 || y0) return x0 && !y0;
  if (clique_first_) {
    if (measure_[x] != measure_[y]) return measure_[x] < measure_[y];
    return fill_[x] < fill_[y];
  }
  if (fill_[x] != fill_[y]) return fill_[x] < fill_[y];
  return measure_[x] < measure_[y];
}

void Eliminator::sift_up(std::size_t i) {
  const Index v = heap_[i];
  while (i > 0) {
    const std::size_t parent = (i - 1) / 2;
    if (!before(v, heap_[parent])) break;
    place(i, heap_[parent]);
    i = parent;
  }
  place(i, v);
}

void Eliminator::sift_down(std::size_t i) {
  const Index v = heap_[i];
  const std::size_t n = heap_.size();
  for (;;) {
    std::size_t best = 2 * i + 1;
    if (best >= n) break;
    if (best + 1 < n && before(heap_[best + 1], heap_[best])) ++best;
    if (!before(heap_[best], v)) break;
    place(i, heap_[best]);
    i = best;
  }
  place(i, v);
}

void Eliminator::heap_push(Index v) {
  heap_.push_back(v);
  heap_pos_[v] = heap_.size() - 1;
  sift_up(heap_.size() - 1);
}

void Eliminator::heap_remove(Index v) {
  const std::size_t i = heap_pos_[v];
  heap_pos_[v] = kOut;
  const Index last = heap_.back();
  heap_.pop_back();
  if (last == v) return;
  place(i, last);
  sift_up(i);
  sift_down(heap_pos_[last]);
}

void Eliminator::heap_fix(Index v) {
  if (heap_pos_[v] == kOut) return;
  sift_up(heap_pos_[v]);
  sift_down(heap_pos_[v]);
}

// A member of the clique being formed is covered when it is simplicial and
// its whole neighbourhood lies inside the clique (marked with the stamp).
bool Eliminator::covered(Index w, std::size_t clique_size) {
  if (fill_[w] != 0 || graph_.degree(w) + 1 > clique_size || heap_pos_[w] == kOut) return false;
  bool inside = true;
  graph_.for_each_neighbour(w, [&](Index a) { inside = inside && marked_[a] == stamp_; });
  return inside;
}

void Eliminator::eliminate(Index v, IndexList& nb, bool write_line) {
  const std::size_t d = nb.size();
  common_.assign(d, 0);
  common_weight_.assign(d, 0);
  pairs_.clear();
  for (std::size_t i = 0; i < d; ++i)
    for (std::size_t j = i + 1; j < d; ++j)
      if (graph_.adjacent(nb[i], nb[j])) {
        ++common_[i];
        ++common_[j];
        common_weight_[i] += unit_[nb[j]];
        common_weight_[j] += unit_[nb[i]];
      } else {
        pairs_.emplace_back(static_cast<Index>(i), static_cast<Index>(j));
      }
  if (write_line && log_.active()) log_.write("\tEliminating %s\n", name_of(input_.nodes[v]));
  for (auto [i, j] : pairs_) {
    if (log_.active())
      log_.write("\tCreating fill-in between %s and %s\n", name_of(input_.nodes[nb[i]]),
                 name_of(input_.nodes[nb[j]]));
    result_.fill_ins.emplace_back(nb[i], nb[j]);
  }
  if (recorder_.eliminate(v, nb)) {
    IndexList clique(nb);
    clique.insert(std::upper_bound(clique.begin(), clique.end(), v), v);
    result_.cliques.push_back(std::move(clique));
  }
  result_.order.push_back(v);

  std::uint64_t fill_total = 0;
  if (tracked_) {
    // Vertices outside {v} + nb adjacent to both ends of a fill-in lose
    // that pair from their fill-in measure.
    next_stamp();
    marked_[v] = stamp_;
    for (Index x : nb) marked_[x] = stamp_;
    for (auto [i, j] : pairs_) {
      const Index a = nb[i], b = nb[j];
      const std::uint64_t w = unit_[a] * unit_[b];
      fill_total += w;
      const bool a_shorter = graph_.degree(a) <= graph_.degree(b);
      const Index s = a_shorter ? a : b, o = a_shorter ? b : a;
      graph_.for_each_neighbour(s, [&](Index x) {
        if (marked_[x] != stamp_ && graph_.adjacent(x, o)) {
          fill_[x] -= w;
          heap_fix(x);
        }
      });
    }
  }

  graph_.remove(v, nb);
  if (added_.size() < d) added_.resize(d);
  for (std::size_t i = 0; i < d; ++i) added_[i].clear();
  for (auto [i, j] : pairs_) {
    added_[i].push_back(nb[j]);
    added_[j].push_back(nb[i]);
  }
  for (std::size_t i = 0; i < d; ++i)
    if (!added_[i].empty()) {
      std::sort(added_[i].begin(), added_[i].end());
      graph_.add_neighbours(nb[i], added_[i]);
    }
  if (!tracked_) return;
  for (std::size_t i = 0; i < d; ++i) {
    const Index x = nb[i];
    if (!added_[i].empty()) {
      recompute_fill(x);
      recompute_clique(x);
    } else {
      // x keeps its neighbours but v: the pairs (v, b) with b outside nb
      // go, and so do the pairs that became fill-ins.
      const std::uint64_t lost = unit_[v] * (weight_sum_[x] - unit_[v] - common_weight_[i]);
      fill_[x] -= lost + fill_total;
      weight_sum_[x] -= unit_[v];
      if (discrete_[v]) {
        if (product_[x] < kExactLimit)
          product_[x] /= static_cast<double>(input_.nodes[v]->state_count());
        else recompute_clique(x);
      } else {
        --continuous_[x];
      }
      measure_[x] = clique_measure(x);
    }
    heap_fix(x);
  }
}

EliminationResult Eliminator::run_greedy() {
  const std::size_t n = input_.size();
  heap_pos_.assign(n, kOut);
  heap_.reserve(n);
  std::size_t continuous_left = 0;
  for (Index v = 0; v < n; ++v) {
    heap_push(v);
    if (!discrete_[v]) ++continuous_left;
  }
  while (!heap_.empty()) {
    const Index v = heap_.front();
    heap_remove(v);
    graph_.neighbours(v, nb_);
    if (!discrete_[v]) --continuous_left;
    // Covered simplicial neighbours go right after v; discrete ones only
    // once no continuous vertex is left, to keep continuous ones first.
    next_stamp();
    marked_[v] = stamp_;
    for (Index x : nb_) marked_[x] = stamp_;
    covered_.clear();
    for (Index w : nb_)
      if (!discrete_[w] && covered(w, nb_.size() + 1)) covered_.push_back(w);
    continuous_left -= covered_.size();
    if (continuous_left == 0)
      for (Index w : nb_)
        if (discrete_[w] && covered(w, nb_.size() + 1)) covered_.push_back(w);
    for (Index w : covered_) heap_remove(w);
    IndexList followers(covered_);
    eliminate(v, nb_, true);
    for (Index w : followers) {
      graph_.neighbours(w, nb2_);
      eliminate(w, nb2_, true);
    }
  }
  return std::move(result_);
}

EliminationResult Eliminator::run_in_order(const IndexList& order,
                                           void (*on_vertex)(void*, std::size_t), void* context) {
  for (std::size_t step = 0; step < order.size(); ++step) {
    on_vertex(context, step);
    graph_.neighbours(order[step], nb_);
    eliminate(order[step], nb_, false);
  }
  return std::move(result_);
}

}  // namespace

double cliques_cost(const std::vector<Node*>& nodes, const std::vector<IndexList>& cliques) {
  double total = 0.0;
  std::vector<Node*> members;
  for (const IndexList& clique : cliques) {
    members.clear();
    for (Index v : clique) members.push_back(nodes[v]);
    total += node_set_weight(members);
  }
  return total;
}

EliminationResult eliminate_greedy(const EliminationInput& graph, k_triangulation_method_t method,
                                   const CompileLog& log) {
  Eliminator eliminator(graph, log, true, method);
  EliminationResult result = eliminator.run_greedy();
  remove_redundant_fill_ins(graph, result, log);
  result.cost = cliques_cost(graph.nodes, result.cliques);
  return result;
}

namespace detail {
EliminationResult eliminate_sequence(const EliminationInput& graph, const IndexList& order,
                                     const CompileLog& log, void (*on_vertex)(void*, std::size_t),
                                     void* context) {
  Eliminator eliminator(graph, log, false, K_TM_CLIQUE_SIZE);
  EliminationResult result = eliminator.run_in_order(order, on_vertex, context);
  result.cost = cliques_cost(graph.nodes, result.cliques);
  return result;
}
}  // namespace detail

void remove_redundant_fill_ins(const EliminationInput& graph, EliminationResult& result,
                               const CompileLog& log) {
  if (result.fill_ins.empty()) return;
  const std::size_t n = graph.size();
  struct Clique {
    IndexList members;
    bool alive;
  };
  std::vector<Clique> cliques;
  std::vector<IndexList> cliques_of(n);
  auto add_clique = [&](IndexList members) {
    const Index id = static_cast<Index>(cliques.size());
    for (Index v : members) cliques_of[v].push_back(id);
    cliques.push_back({std::move(members), true});
    return id;
  };
  // A list, so that replacing a clique by its parts costs no shifting.
  std::list<Index> sequence;
  for (IndexList& c : result.cliques) sequence.push_back(add_clique(std::move(c)));

  auto key = [n](Index a, Index b) { return std::uint64_t{a} * n + b; };
  std::unordered_set<std::uint64_t> fills;
  std::vector<IndexList> fill_neighbours(n);
  for (auto [a, b] : result.fill_ins) {
    fills.insert(key(std::min(a, b), std::max(a, b)));
    fill_neighbours[a].push_back(b);
    fill_neighbours[b].push_back(a);
  }
  auto contains = [&](Index id, Index v) {
    const IndexList& m = cliques[id].members;
    return std::binary_search(m.begin(), m.end(), v);
  };
  // Whether exactly one clique holds both a and b.
  auto single_clique = [&](Index a, Index b) {
    const bool a_shorter = cliques_of[a].size() <= cliques_of[b].size();
    const Index s = a_shorter ? a : b, o = a_shorter ? b : a;
    int count = 0;
    for (Index id : cliques_of[s])
      if (cliques[id].alive && contains(id, o) && ++count > 1) return false;
    return count == 1;
  };
  auto covered_elsewhere = [&](const IndexList& part, Index skip) {
    Index pick = part.front();
    for (Index v : part)
      if (cliques_of[v].size() < cliques_of[pick].size()) pick = v;
    for (Index id : cliques_of[pick])
      if (id != skip && cliques[id].alive && cliques[id].members.size() >= part.size() &&
          std::includes(cliques[id].members.begin(), cliques[id].members.end(), part.begin(),
                        part.end()))
        return true;
    return false;
  };
  // Finds a removable fill-in inside clique `id`, members in order.
  auto find_removable = [&](Index id, Index& ra, Index& rb) {
    const IndexList& m = cliques[id].members;
    bool found = false;
    for (Index i = 0; i < m.size() && !found; ++i) {
      const Index a = m[i];
      for (Index b : fill_neighbours[a]) {
        if (b <= a || !contains(id, b) || !fills.count(key(a, b))) continue;
        if (single_clique(a, b)) {
          ra = a;
          rb = b;
          found = true;
          break;
        }
      }
    }
    return found;
  };

  for (bool removed = true; removed;) {
    removed = false;
    auto next = sequence.end();  // just after the clique to test
    while (next != sequence.begin()) {
      const auto at = std::prev(next);
      const Index id = *at;
      Index a = 0, b = 0;
      if (!find_removable(id, a, b)) {
        next = at;
        continue;
      }
      removed = true;
      if (log.active())
        log.write("\tRemoving redundant fill-in between %s and %s\n", name_of(graph.nodes[a]),
                  name_of(graph.nodes[b]));
      fills.erase(key(a, b));
      cliques[id].alive = false;
      IndexList parts[2];
      for (Index v : cliques[id].members) {
        if (v != b) parts[0].push_back(v);
        if (v != a) parts[1].push_back(v);
      }
      IndexList kept;
      for (IndexList& part : parts)
        if (!covered_elsewhere(part, id)) kept.push_back(add_clique(std::move(part)));
      next = sequence.erase(at);
      // The parts are tested again, the last one first.
      sequence.insert(next, kept.begin(), kept.end());
    }
  }

  result.cliques.clear();
  for (Index id : sequence) result.cliques.push_back(std::move(cliques[id].members));
  std::erase_if(result.fill_ins, [&](const std::pair<Index, Index>& f) {
    return !fills.count(key(std::min(f.first, f.second), std::max(f.first, f.second)));
  });
}

bool is_perfect_elimination_order(const std::vector<IndexList>& adjacency, const IndexList& order) {
  const std::size_t n = adjacency.size();
  if (order.size() != n) return false;
  std::vector<Index> position(n, static_cast<Index>(-1));
  for (Index i = 0; i < n; ++i) {
    if (order[i] >= n || position[order[i]] != static_cast<Index>(-1)) return false;
    position[order[i]] = i;
  }
  // Each vertex's later neighbours, but the first of them (its parent),
  // must be neighbours of the parent.
  std::vector<IndexList> required(n);
  for (Index v = 0; v < n; ++v) {
    Index parent = static_cast<Index>(-1);
    for (Index w : adjacency[v])
      if (position[w] > position[v] &&
          (parent == static_cast<Index>(-1) || position[w] < position[parent]))
        parent = w;
    if (parent == static_cast<Index>(-1)) continue;
    for (Index w : adjacency[v])
      if (position[w] > position[v] && w != parent) required[parent].push_back(w);
  }
  std::vector<Index> mark(n, static_cast<Index>(-1));
  for (Index p = 0; p < n; ++p) {
    if (required[p].empty()) continue;
    for (Index w : adjacency[p]) mark[w] = p;
    for (Index w : required[p])
      if (mark[w] != p) return false;
  }
  return true;
}

IndexList chordal_elimination_order(const std::vector<IndexList>& adjacency,
                                    const std::vector<bool>& discrete, const IndexList& rank) {
  const std::size_t n = adjacency.size();
  std::vector<Index> count(n, 0);
  std::vector<char> numbered(n, 0);
  using Key = std::tuple<bool, Index, Index, Index>;
  std::set<Key> queue;
  for (Index v = 0; v < n; ++v) queue.emplace(discrete[v], 0, rank[v], v);
  IndexList visit;
  visit.reserve(n);
  while (!queue.empty()) {
    const Index v = std::get<3>(*queue.rbegin());
    queue.erase(std::prev(queue.end()));
    numbered[v] = 1;
    visit.push_back(v);
    for (Index w : adjacency[v])
      if (!numbered[w]) {
        queue.erase(Key(discrete[w], count[w], rank[w], w));
        queue.emplace(discrete[w], ++count[w], rank[w], w);
      }
  }
  std::reverse(visit.begin(), visit.end());
  return visit;
}

}  // namespace kelva
