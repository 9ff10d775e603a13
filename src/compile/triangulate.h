#pragma once

#include <vector>

#include "compile/junction_forest.h"
#include "compile/optimal_triangulation.h"
#include "kelva/kelva.h"

namespace kelva {

class CompileLog;
class Node;
struct MoralGraph;

/// What method 19 ("total weight") starts from: the elimination order whose
/// triangulation it must not exceed (empty: the best greedy one) and the
/// bounds of its search.
struct TotalWeightSettings {
  std::vector<Node*> initial;
  OptimalSearchLimits limits;
};

/// Triangulates `graph` by greedy method 15 to 18, by best greedy (20), or
/// by the optimal search over minimal separators (19, with `settings`):
/// decomposes it into prime components (listed by their first vertex in
/// node-list order), triangulates each (continuous vertices eliminated
/// before discrete ones, so the result is strongly decomposable), removes
/// redundant fill-ins, and writes an empty line, every component's text,
/// "Total cost of triangulation for all prime components is %s" and the
/// "Elimination sequence" section.  The cliques are the maximal cliques of
/// the triangulated graph in the order recorded, component by component;
/// the elimination order is a perfect elimination ordering of it with the
/// continuous vertices first; the links are every link of it once.  Throws
/// Error (no_memory, io); Error(usage) for another method.
Triangulation triangulate(const MoralGraph& graph, k_triangulation_method_t method, CompileLog& log,
                          const TotalWeightSettings* settings = nullptr);

/// Triangulates `graph` by eliminating its vertices in `order` (already
/// validated: every vertex once, continuous ones first; first eliminated
/// first), writing the "User specified triangulation -- Fill-in links and
/// node numbering:" section.  No fill-in is removed.  Throws Error
/// (no_memory, io).
Triangulation triangulate_by_order(const MoralGraph& graph, const std::vector<Node*>& order,
                                   CompileLog& log);

/// Test hook: when set, called after each run of best greedy with the
/// method run and the cost it found.
using GreedyRunObserver = void (*)(k_triangulation_method_t method, double cost);
extern GreedyRunObserver greedy_run_observer;

/// The weight of a set of nodes: the product of the discrete members' state
/// counts, times (c + 3) * c / 2 + 1 for c > 0 continuous members.
double node_set_weight(const std::vector<Node*>& nodes) noexcept;

}  // namespace kelva
