// Triangulation of the moral graph.
//
// The graph is first split into its prime components (atoms) by clique
// minimal separators (prime_components.h); components are listed by their
// first vertex in node-list order, members in node-list order.  Each
// component is triangulated alone by the greedy elimination of
// elimination.h, in which continuous vertices are always eliminated before
// discrete ones: with the necessary fill-ins of the moral graph this keeps
// every connected set of continuous vertices with a complete discrete
// boundary, so the triangulation is strong.  Gluing the components'
// triangulations along their complete separators gives a triangulation of
// the whole graph that is minimal when each component's is.
//
// The elimination order of the whole graph is the components' orders one
// after the other (each vertex where it first occurs, continuous vertices
// moved to the front) when that is a perfect elimination ordering of the
// result; otherwise (fill-ins were removed, or
// separators were eliminated early) it is recomputed by maximum cardinality
// search, ties going to discrete vertices and then to the vertex that comes
// later in the components' orders.
#include "compile/triangulate.h"

#include <algorithm>
#include <string>

#include "compile/compile_log.h"
#include "compile/elimination.h"
#include "compile/moral_graph.h"
#include "compile/prime_components.h"
#include "network/error.h"
#include "network/node.h"

namespace kelva {

GreedyRunObserver greedy_run_observer = nullptr;

namespace {

using Index = std::uint32_t;
using IndexList = std::vector<Index>;

const char* method_name(k_triangulation_method_t method) {
  switch (method) {
    case K_TM_CLIQUE_SIZE:
      return "clique size";
    case K_TM_CLIQUE_WEIGHT:
      return "clique weight";
    case K_TM_FILL_IN_SIZE:
      return "fill-in size";
    default:
      return "fill-in weight";
  }
}

double state_weight(const Node* node) {
  return node->is_discrete() ? static_cast<double>(node->state_count()) : 1.0;
}

std::vector<IndexList> sorted_adjacency(const MoralGraph& graph) {
  std::vector<IndexList> adjacency(graph.neighbours);
  for (IndexList& list : adjacency) std::sort(list.begin(), list.end());
  return adjacency;
}

// The subgraph on `members` (sorted positions), renumbered 0..k-1.
EliminationInput component_graph(const std::vector<Node*>& nodes,
                                 const std::vector<IndexList>& adjacency, const IndexList& members,
                                 std::vector<Index>& local) {
  EliminationInput input;
  input.adjacency.resize(members.size());
  for (Index i = 0; i < members.size(); ++i) {
    input.nodes.push_back(nodes[members[i]]);
    local[members[i]] = i;
  }
  for (Index i = 0; i < members.size(); ++i) {
    const IndexList& around = adjacency[members[i]];
    IndexList& out = input.adjacency[i];
    // Scan the shorter side: a hub shared by many components is not walked
    // once per component.
    if (around.size() <= members.size()) {
      for (Index w : around)
        if (std::binary_search(members.begin(), members.end(), w)) out.push_back(local[w]);
    } else {
      for (Index j = 0; j < members.size(); ++j)
        if (j != i && std::binary_search(around.begin(), around.end(), members[j]))
          out.push_back(j);
    }
  }
  return input;
}

bool is_complete(const EliminationInput& input) {
  for (const IndexList& list : input.adjacency)
    if (list.size() + 1 != input.size()) return false;
  return true;
}

bool uniform_weights(const EliminationInput& input) {
  for (Node* node : input.nodes)
    if (node->is_discrete() != input.nodes.front()->is_discrete() ||
        state_weight(node) != state_weight(input.nodes.front()))
      return false;
  return true;
}

EliminationResult best_greedy(const EliminationInput& input, const CompileLog& log) {
  EliminationResult best;
  bool first = true;
  const bool uniform = uniform_weights(input);
  for (k_triangulation_method_t method :
       {K_TM_CLIQUE_SIZE, K_TM_CLIQUE_WEIGHT, K_TM_FILL_IN_SIZE, K_TM_FILL_IN_WEIGHT}) {
    if (uniform && (method == K_TM_CLIQUE_WEIGHT || method == K_TM_FILL_IN_WEIGHT)) continue;
    EliminationResult run = eliminate_greedy(input, method, log);
    if (greedy_run_observer != nullptr) greedy_run_observer(method, run.cost);
    if (first || run.cost < best.cost) best = std::move(run);
    first = false;
  }
  return best;
}

// Runs `f` with the log switched off, restoring it however `f` ends.
template <class F>
auto silently(CompileLog& log, F f) {
  const bool was_on = log.is_on();
  log.set_on(false);
  try {
    auto result = f();
    log.set_on(was_on);
    return result;
  } catch (...) {
    log.set_on(was_on);
    throw;
  }
}

// The triangulation that method 19 must beat: the initial order restricted
// to the component, as eliminated and with redundant fill-ins removed,
// whichever is cheaper; best greedy when there is no initial order.
EliminationResult initial_triangulation(const EliminationInput& input,
                                        const std::vector<Node*>& initial, CompileLog& log) {
  return silently(log, [&] {
    if (initial.empty()) return best_greedy(input, log);
    IndexList order;
    for (Node* node : initial) {
      const auto it = std::find(input.nodes.begin(), input.nodes.end(), node);
      if (it != input.nodes.end()) order.push_back(static_cast<Index>(it - input.nodes.begin()));
    }
    EliminationResult raw = eliminate_in_order(input, order, log, [](std::size_t) {});
    raw.cost = cliques_cost(input.nodes, raw.cliques);
    EliminationResult thin = raw;
    remove_redundant_fill_ins(input, thin, log);
    thin.cost = cliques_cost(input.nodes, thin.cliques);
    return thin.cost <= raw.cost ? thin : raw;
  });
}

// The elimination result of the chordal graph made of `input` and
// `cliques`: its fill-ins and a perfect elimination ordering.
EliminationResult result_from_cliques(const EliminationInput& input,
                                      std::vector<IndexList> cliques) {
  EliminationResult result;
  std::vector<IndexList> adjacency = input.adjacency;
  for (const IndexList& clique : cliques)
    for (std::size_t i = 0; i < clique.size(); ++i)
      for (std::size_t j = i + 1; j < clique.size(); ++j) {
        const Index a = clique[i];
        const Index b = clique[j];
        if (std::binary_search(adjacency[a].begin(), adjacency[a].end(), b)) continue;
        adjacency[a].insert(std::upper_bound(adjacency[a].begin(), adjacency[a].end(), b), b);
        adjacency[b].insert(std::upper_bound(adjacency[b].begin(), adjacency[b].end(), a), a);
        result.fill_ins.emplace_back(a, b);
      }
  IndexList rank(input.size());
  for (Index i = 0; i < rank.size(); ++i) rank[i] = i;
  result.order = chordal_elimination_order(adjacency, std::vector<bool>(input.size(), true), rank);
  result.cost = cliques_cost(input.nodes, cliques);
  result.cliques = std::move(cliques);
  return result;
}

// Method 19 on one component: the optimal search, kept only when it beats
// the initial triangulation.  Components with continuous vertices keep the
// initial triangulation (a minimal triangulation need not be strong).
EliminationResult total_weight(const EliminationInput& input, const TotalWeightSettings& settings,
                               CompileLog& log) {
  log.write("\n    Using the total weight method for triangulation\n\n");
  EliminationResult initial = initial_triangulation(input, settings.initial, log);
  log.write("Initial triangulation has cost %s\n", CompileLog::cost_text(initial.cost).c_str());
  std::vector<double> weights;
  for (Node* node : input.nodes) {
    if (node->is_continuous()) {
      log.write("The component has continuous members: the initial triangulation is kept\n");
      return initial;
    }
    weights.push_back(state_weight(node));
  }
  const OptimalSearchResult found =
      optimal_triangulation(input.adjacency, weights, settings.limits);
  if (found.limit_exceeded) {
    log.write("The search passed its bounds: the initial triangulation is kept\n");
    return initial;
  }
  log.write("Found %s minimal separators\n", std::to_string(found.separators).c_str());
  log.write("Found %s potential maximal cliques\n",
            std::to_string(found.potential_cliques).c_str());
  EliminationResult best = result_from_cliques(input, found.cliques);
  return best.cost < initial.cost ? best : initial;
}

// Triangulates one component, writing its text.
EliminationResult triangulate_component(const EliminationInput& input,
                                        k_triangulation_method_t method, CompileLog& log,
                                        const TotalWeightSettings* settings) {
  const std::size_t count = input.size();
  log.write("\nTriangulating prime component with %s member%s:\n", std::to_string(count).c_str(),
            count == 1 ? "" : "s");
  log.write_names(input.nodes);
  if (is_complete(input)) {
    EliminationResult result;
    IndexList all(count);
    for (Index i = 0; i < count; ++i) all[i] = i;
    for (Index i : all)
      if (input.nodes[i]->is_continuous()) result.order.push_back(i);
    for (Index i : all)
      if (!input.nodes[i]->is_continuous()) result.order.push_back(i);
    result.cliques.push_back(std::move(all));
    result.cost = cliques_cost(input.nodes, result.cliques);
    log.write("\nThis component is a clique of cost %s\n",
              CompileLog::cost_text(result.cost).c_str());
    return result;
  }
  if (method == K_TM_BEST_GREEDY) {
    log.write("\n    Using the best greedy heuristic for triangulation\n\n");
    return silently(log, [&] { return best_greedy(input, log); });
  }
  if (method == K_TM_TOTAL_WEIGHT) {
    EliminationResult result = total_weight(input, *settings, log);
    log.write("\nFound triangulation of prime component of cost %s\n",
              CompileLog::cost_text(result.cost).c_str());
    return result;
  }
  log.write("\n    Using minimum %s heuristic for triangulation:\n\n", method_name(method));
  EliminationResult result = eliminate_greedy(input, method, log);
  log.write("\nFound triangulation of prime component of cost %s\n",
            CompileLog::cost_text(result.cost).c_str());
  return result;
}

// Every link of the graph with `adjacency`, once, by the earlier endpoint.
std::vector<std::pair<Node*, Node*>> links_of(const std::vector<Node*>& nodes,
                                              const std::vector<IndexList>& adjacency) {
  std::vector<std::pair<Node*, Node*>> links;
  for (Index v = 0; v < adjacency.size(); ++v)
    for (Index w : adjacency[v])
      if (w > v) links.emplace_back(nodes[v], nodes[w]);
  return links;
}

void add_links(std::vector<IndexList>& adjacency,
               const std::vector<std::pair<Index, Index>>& links) {
  std::vector<bool> touched(adjacency.size(), false);
  for (auto [a, b] : links) {
    adjacency[a].push_back(b);
    adjacency[b].push_back(a);
    touched[a] = touched[b] = true;
  }
  for (Index v = 0; v < adjacency.size(); ++v)
    if (touched[v]) std::sort(adjacency[v].begin(), adjacency[v].end());
}

// Drops cliques contained in (or equal to) an earlier-kept clique of another
// component.
void drop_covered_cliques(std::vector<IndexList>& cliques, std::size_t n) {
  std::vector<IndexList> cliques_of(n);
  for (Index id = 0; id < cliques.size(); ++id)
    for (Index v : cliques[id]) cliques_of[v].push_back(id);
  std::vector<bool> dropped(cliques.size(), false);
  for (Index id = 0; id < cliques.size(); ++id) {
    const IndexList& c = cliques[id];
    Index pick = c.front();
    for (Index v : c)
      if (cliques_of[v].size() < cliques_of[pick].size()) pick = v;
    for (Index other : cliques_of[pick]) {
      if (other == id || dropped[other]) continue;
      const IndexList& d = cliques[other];
      if (d.size() < c.size() || (d.size() == c.size() && other > id)) continue;
      if (std::includes(d.begin(), d.end(), c.begin(), c.end())) {
        dropped[id] = true;
        break;
      }
    }
  }
  Index kept = 0;
  for (Index id = 0; id < cliques.size(); ++id)
    if (!dropped[id]) {
      if (kept != id) cliques[kept] = std::move(cliques[id]);
      ++kept;
    }
  cliques.resize(kept);
}

}  // namespace

double node_set_weight(const std::vector<Node*>& nodes) noexcept {
  double product = 1.0;
  double continuous = 0.0;
  for (const Node* node : nodes) {
    if (node->is_continuous()) continuous += 1.0;
    else product *= static_cast<double>(node->state_count());
  }
  if (continuous > 0.0) product *= (continuous + 3.0) * continuous / 2.0 + 1.0;
  return product;
}

Triangulation triangulate(const MoralGraph& graph, k_triangulation_method_t method, CompileLog& log,
                          const TotalWeightSettings* settings) {
  require(method >= K_TM_CLIQUE_SIZE && method <= K_TM_BEST_GREEDY);
  require(method != K_TM_TOTAL_WEIGHT || settings != nullptr);
  const std::size_t n = graph.size();
  EliminationInput whole;
  whole.nodes = graph.vertices;
  whole.adjacency = sorted_adjacency(graph);

  log.write("\n");
  std::vector<IndexList> cliques;
  std::vector<IndexList> orders;  // per component, in positions of the whole graph
  std::vector<std::pair<Index, Index>> fill_ins;
  std::vector<Index> local(n);
  for (const IndexList& members : prime_components(whole)) {
    const EliminationInput input = component_graph(whole.nodes, whole.adjacency, members, local);
    EliminationResult result = triangulate_component(input, method, log, settings);
    for (IndexList& clique : result.cliques) {
      for (Index& v : clique) v = members[v];
      cliques.push_back(std::move(clique));
    }
    for (Index& v : result.order) v = members[v];
    orders.push_back(std::move(result.order));
    for (auto [a, b] : result.fill_ins) fill_ins.emplace_back(members[a], members[b]);
  }
  drop_covered_cliques(cliques, n);
  // A vertex shared by several components is placed where it first occurs.
  IndexList candidate;
  candidate.reserve(n);
  std::vector<bool> placed(n, false);
  for (bool continuous : {true, false})
    for (const IndexList& order : orders)
      for (Index v : order)
        if (!placed[v] && graph.vertices[v]->is_continuous() == continuous) {
          placed[v] = true;
          candidate.push_back(v);
        }

  Triangulation out;
  out.cost = cliques_cost(graph.vertices, cliques);
  log.write("\n\nTotal cost of triangulation for all prime components is %s",
            CompileLog::cost_text(out.cost).c_str());

  std::vector<IndexList> triangulated = std::move(whole.adjacency);
  add_links(triangulated, fill_ins);
  if (!is_perfect_elimination_order(triangulated, candidate)) {
    std::vector<bool> discrete(n);
    IndexList rank(n);
    for (Index i = 0; i < n; ++i) {
      discrete[i] = !graph.vertices[i]->is_continuous();
      rank[candidate[i]] = i;
    }
    candidate = chordal_elimination_order(triangulated, discrete, rank);
  }
  log.write("\n\nElimination sequence:\n\n");
  for (Index v : candidate) {
    log.write("    %s\n", graph.vertices[v]->name_or_generate().c_str());
    out.elimination_order.push_back(graph.vertices[v]);
  }
  for (const IndexList& clique : cliques) {
    std::vector<Node*> members;
    for (Index v : clique) members.push_back(graph.vertices[v]);
    out.cliques.push_back(std::move(members));
  }
  out.links = links_of(graph.vertices, triangulated);
  return out;
}

Triangulation triangulate_by_order(const MoralGraph& graph, const std::vector<Node*>& order,
                                   CompileLog& log) {
  EliminationInput whole;
  whole.nodes = graph.vertices;
  whole.adjacency = sorted_adjacency(graph);
  IndexList sequence;
  for (Node* node : order) sequence.push_back(graph.position.at(node));

  log.write("\n\nUser specified triangulation -- Fill-in links and node numbering:\n\n");
  const std::size_t n = sequence.size();
  EliminationResult result = eliminate_in_order(whole, sequence, log, [&](std::size_t step) {
    log.write("%5s %s\n", std::to_string(n - step).c_str(),
              graph.vertices[sequence[step]]->name_or_generate().c_str());
  });

  Triangulation out;
  out.cost = result.cost;
  out.elimination_order = order;
  for (const IndexList& clique : result.cliques) {
    std::vector<Node*> members;
    for (Index v : clique) members.push_back(graph.vertices[v]);
    out.cliques.push_back(std::move(members));
  }
  add_links(whole.adjacency, result.fill_ins);
  out.links = links_of(graph.vertices, whole.adjacency);
  return out;
}

}  // namespace kelva
