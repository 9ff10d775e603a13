#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "kelva/kelva.h"

namespace kelva {

class CompileLog;
class Node;

/// An undirected graph over some nodes, as the elimination works on it:
/// vertices in node-list order, each neighbour list sorted by position.
struct EliminationInput {
  std::vector<Node*> nodes;
  std::vector<std::vector<std::uint32_t>> adjacency;

  std::size_t size() const noexcept { return nodes.size(); }
};

/// The result of triangulating one graph: its maximal cliques (members
/// sorted by position) in the order recorded, the order in which the
/// vertices were eliminated, and the fill-in links kept, each as (earlier,
/// later) by position.
struct EliminationResult {
  std::vector<std::vector<std::uint32_t>> cliques;
  std::vector<std::uint32_t> order;
  std::vector<std::pair<std::uint32_t, std::uint32_t>> fill_ins;
  double cost = 0.0;
};

/// Eliminates the vertices of `graph` greedily by method 15 to 18: each
/// step takes the best vertex of the heap (continuous vertices before
/// discrete ones, then fill-in 0 before the rest, then the method's
/// measures), eliminates covered simplicial neighbours right after it, and
/// writes the "Eliminating" and "Creating fill-in" lines.  Redundant
/// fill-ins are then removed (remove_redundant_fill_ins).  Throws Error(io)
/// on a failed write.
EliminationResult eliminate_greedy(const EliminationInput& graph, k_triangulation_method_t method,
                                   const CompileLog& log);

/// Removes fill-ins of `result` whose removal leaves the graph chordal,
/// walking the recorded cliques from the last to the first (and again while
/// any was removed), so that the triangulation becomes minimal.  A clique
/// holding a removed link is split in two, and a part contained in another
/// clique is dropped.  Writes a "Removing redundant fill-in" line for each.
/// The order is left as it was; it may no longer be a perfect elimination
/// ordering of the thinner graph.
void remove_redundant_fill_ins(const EliminationInput& graph, EliminationResult& result,
                               const CompileLog& log);

/// Eliminates the vertices of `graph` in `order` (positions, first
/// eliminated first), calling `on_vertex(step)` before each elimination and
/// writing a "Creating fill-in" line for each fill-in.  The cliques are the
/// maximal elimination sets.  Throws Error(io).
template <class OnVertex>
EliminationResult eliminate_in_order(const EliminationInput& graph,
                                     const std::vector<std::uint32_t>& order, const CompileLog& log,
                                     OnVertex on_vertex);

/// The sum of the weights of `cliques` over `nodes` (node_set_weight).
double cliques_cost(const std::vector<Node*>& nodes,
                    const std::vector<std::vector<std::uint32_t>>& cliques);

/// Whether `order` is a perfect elimination ordering of the graph with
/// sorted `adjacency`: the later neighbours of every vertex form a complete
/// set.  Linear in the size of the graph.
bool is_perfect_elimination_order(const std::vector<std::vector<std::uint32_t>>& adjacency,
                                  const std::vector<std::uint32_t>& order);

/// A perfect elimination ordering of the chordal graph with sorted
/// `adjacency`, by maximum cardinality search that numbers every discrete
/// vertex (`discrete[v]`) before any continuous one, so that continuous
/// vertices are eliminated first (a strong graph allows that); ties of the
/// count go to the vertex of largest `rank`.
std::vector<std::uint32_t> chordal_elimination_order(
    const std::vector<std::vector<std::uint32_t>>& adjacency, const std::vector<bool>& discrete,
    const std::vector<std::uint32_t>& rank);

namespace detail {
/// Shared core of eliminate_in_order, with the callback type-erased.
EliminationResult eliminate_sequence(const EliminationInput& graph,
                                     const std::vector<std::uint32_t>& order, const CompileLog& log,
                                     void (*on_vertex)(void*, std::size_t), void* context);
}  // namespace detail

template <class OnVertex>
EliminationResult eliminate_in_order(const EliminationInput& graph,
                                     const std::vector<std::uint32_t>& order, const CompileLog& log,
                                     OnVertex on_vertex) {
  return detail::eliminate_sequence(
      graph, order, log, [](void* c, std::size_t step) { (*static_cast<OnVertex*>(c))(step); },
      &on_vertex);
}

}  // namespace kelva
