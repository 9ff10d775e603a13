// NPC: PC-stable's skeleton checked by the necessary path condition, the
// uncertain edges gathered into ambiguous regions, their solutions, and the
// domain objects through which users choose among them.
#include "learning/npc.h"

#include <algorithm>
#include <bit>
#include <numeric>
#include <string>

#include "learning/independence.h"
#include "learning/structure_learning.h"
#include "network/domain.h"
#include "network/error.h"
#include "network/node.h"

namespace kelva {

namespace {

// Whether `from` reaches `to` in the undirected graph without passing `avoid`.
bool joined(const Pdag& g, std::size_t from, std::size_t to, std::size_t avoid) {
  std::vector<std::uint8_t> seen(g.n, 0);
  std::vector<std::size_t> stack{from};
  seen[from] = 1;
  seen[avoid] = 1;
  while (!stack.empty()) {
    const std::size_t v = stack.back();
    stack.pop_back();
    if (v == to) return true;
    for (std::size_t u = 0; u < g.n; ++u)
      if (!seen[u] && g.adjacent(v, u)) {
        seen[u] = 1;
        stack.push_back(u);
      }
  }
  return false;
}

std::size_t find_root(std::vector<std::size_t>& parent, std::size_t v) {
  while (parent[v] != v) v = parent[v] = parent[parent[v]];
  return v;
}

// The skeleton with the uncertain pairs of `present` put back.
Pdag with_pairs(const NpcAnalysis& a, const std::vector<std::uint8_t>& present) {
  Pdag g = a.pc.graph;
  for (std::size_t e = 0; e < a.uncertain.size(); ++e)
    if (present[e]) g.link(a.uncertain[e].first, a.uncertain[e].second);
  return g;
}

}  // namespace

bool necessary_path_condition(const Pdag& graph, std::size_t x, std::size_t y,
                              const std::vector<std::size_t>& s) {
  return std::all_of(s.begin(), s.end(), [&](std::size_t z) {
    return joined(graph, z, x, y) && joined(graph, z, y, x);
  });
}

NpcAnalysis npc_analyse(std::size_t n, const IndependenceOracle& independent,
                        const EdgeRules& rules) {
  NpcAnalysis out{pc_skeleton(n, independent, rules), {}, {}};
  for (const auto& [pair, s] : out.pc.sepsets)
    if (!necessary_path_condition(out.pc.graph, pair.first, pair.second, s))
      out.uncertain.push_back(pair);
  // Solutions of different components of skeleton + uncertain pairs cannot
  // affect each other: every path a statement needs lies in its component.
  std::vector<std::size_t> parent(n);
  std::iota(parent.begin(), parent.end(), std::size_t{0});
  const Pdag full = with_pairs(out, std::vector<std::uint8_t>(out.uncertain.size(), 1));
  for (std::size_t i = 0; i < n; ++i)
    for (std::size_t j = i + 1; j < n; ++j)
      if (full.adjacent(i, j)) parent[find_root(parent, i)] = find_root(parent, j);
  std::vector<std::size_t> region_of(n, n);
  for (std::size_t e = 0; e < out.uncertain.size(); ++e) {
    const std::size_t root = find_root(parent, out.uncertain[e].first);
    if (region_of[root] == n) {
      region_of[root] = out.regions.size();
      out.regions.emplace_back();
    }
    out.regions[region_of[root]].push_back(e);
  }
  return out;
}

bool npc_is_solution(const NpcAnalysis& a, const std::vector<std::size_t>& region,
                     const std::vector<std::uint8_t>& present) {
  const Pdag g = with_pairs(a, present);
  return std::all_of(region.begin(), region.end(), [&](std::size_t e) {
    if (present[e]) return true;
    const auto& [x, y] = a.uncertain[e];
    return necessary_path_condition(g, x, y, a.pc.sepsets.at({x, y}));
  });
}

std::vector<std::vector<std::size_t>> npc_minimal_solutions(
    const NpcAnalysis& a, const std::vector<std::size_t>& region,
    const std::vector<EdgeDecision>& decisions) {
  std::vector<std::size_t> open;
  std::vector<std::uint8_t> base(a.uncertain.size(), 0);
  for (std::size_t e : region) {
    if (decisions[e] == EdgeDecision::open) open.push_back(e);
    if (decisions[e] == EdgeDecision::present) base[e] = 1;
  }
  if (open.size() > kMaxOpenEdges)
    throw Error(K_ERROR_USAGE, "the region has " + std::to_string(open.size()) +
                                   " undecided uncertain edges; minimal solutions are searched "
                                   "for at most " +
                                   std::to_string(kMaxOpenEdges));
  // Subsets of the open pairs by size: adding pairs only adds paths, so a
  // solution found here is minimal unless it holds one found before.
  std::vector<std::uint32_t> found;
  std::vector<std::vector<std::size_t>> out;
  const std::size_t k = open.size();
  for (std::size_t size = 0; size <= k; ++size) {
    std::vector<std::uint32_t> masks;
    for (std::uint32_t mask = 0; mask < (std::uint32_t{1} << k); ++mask)
      if (static_cast<std::size_t>(std::popcount(mask)) == size) masks.push_back(mask);
    // Lexicographic order of the chosen indexes.
    auto chosen = [&](std::uint32_t mask) {
      std::vector<std::size_t> v;
      for (std::size_t i = 0; i < k; ++i)
        if ((mask >> i) & 1U) v.push_back(open[i]);
      return v;
    };
    std::sort(masks.begin(), masks.end(),
              [&](std::uint32_t l, std::uint32_t r) { return chosen(l) < chosen(r); });
    for (std::uint32_t mask : masks) {
      if (std::any_of(found.begin(), found.end(), [&](std::uint32_t f) { return (mask & f) == f; }))
        continue;
      std::vector<std::uint8_t> present = base;
      for (std::size_t e : chosen(mask)) present[e] = 1;
      if (!npc_is_solution(a, region, present)) continue;
      found.push_back(mask);
      std::vector<std::size_t> solution;
      for (std::size_t e : region)
        if (present[e]) solution.push_back(e);
      out.push_back(std::move(solution));
    }
  }
  return out;
}

Pdag npc_pdag(const NpcAnalysis& a, const std::vector<std::uint8_t>& present,
              const EdgeRules& rules) {
  Sepsets sepsets = a.pc.sepsets;
  for (std::size_t e = 0; e < a.uncertain.size(); ++e)
    if (present[e]) sepsets.erase(a.uncertain[e]);
  return orient_skeleton(with_pairs(a, present), sepsets, rules);
}

// ---- The domain's regions ----

namespace {

StructureResults& results(Domain& domain) {
  if (!domain.structure_results) domain.structure_results.reset(new StructureResults);
  return *domain.structure_results;
}

Node* node_of(const Domain& domain, std::uint64_t serial) {
  for (Node* n = domain.first_node(); n != nullptr; n = n->next)
    if (n->serial() == serial) return n;
  return nullptr;
}

std::vector<std::pair<std::uint64_t, std::uint64_t>> current_links(const Domain& domain) {
  std::vector<std::pair<std::uint64_t, std::uint64_t>> links;
  for (Node* n = domain.first_node(); n != nullptr; n = n->next)
    for (Node* p : n->parents()) links.emplace_back(n->serial(), p->serial());
  std::sort(links.begin(), links.end());
  return links;
}

// A region's solution list: the minimal solutions, or the one that puts
// back every pair not decided absent.  Empty when the decisions leave none.
std::vector<std::vector<std::size_t>> region_solutions(const NpcState& s, const AmbiguousRegion& r,
                                                       const std::vector<EdgeDecision>& d) {
  if (r.minimal) return npc_minimal_solutions(s.analysis, r.members, d);
  std::vector<std::uint8_t> present(s.analysis.uncertain.size(), 0);
  std::vector<std::size_t> all;
  for (std::size_t e : r.members)
    if (d[e] != EdgeDecision::absent) {
      present[e] = 1;
      all.push_back(e);
    }
  if (!npc_is_solution(s.analysis, r.members, present)) return {};
  return {all};
}

void set_solutions(NpcState& s, AmbiguousRegion& r,
                   const std::vector<std::vector<std::size_t>>& lists) {
  std::vector<std::unique_ptr<Solution>> made;
  for (const auto& list : lists) {
    auto solution = std::make_unique<Solution>();
    for (std::size_t e : list) solution->edges.push_back(s.edges[e].get());
    if (!made.empty()) made.back()->next = solution.get();
    made.push_back(std::move(solution));
  }
  r.solutions = std::move(made);
}

// Installs the structure in which every region takes its first solution.
void install_first_solutions(NpcState& s) {
  std::vector<std::uint8_t> present(s.analysis.uncertain.size(), 0);
  for (const auto& r : s.regions)
    for (const UncertainEdge* e : r->solutions.front()->edges) present[e->index] = 1;
  LearningData nodes;
  for (std::uint64_t serial : s.serials) nodes.nodes.push_back(node_of(*s.domain, serial));
  const Pdag pdag = npc_pdag(s.analysis, present, s.rules);
  install_structure(*s.domain, nodes, extend_to_dag(pdag));
  s.installed = current_links(*s.domain);
  StructureResults& r = results(*s.domain);
  r.pdag_nodes = s.serials;
  r.pdag = pdag;
  r.pdag_rules = s.rules;
}

// Installs the region's new list, or changes nothing and throws when it is
// empty.
void replace_solutions(AmbiguousRegion& r, const std::vector<EdgeDecision>& decisions,
                       bool minimal) {
  NpcState& s = *r.state;
  check_current(s);
  const bool was_minimal = r.minimal;
  r.minimal = minimal;
  std::vector<std::vector<std::size_t>> lists;
  try {
    lists = region_solutions(s, r, decisions);
  } catch (...) {
    r.minimal = was_minimal;
    throw;
  }
  if (lists.empty()) {
    r.minimal = was_minimal;
    throw Error(K_ERROR_USAGE, "no solution of the ambiguous region allows these decisions");
  }
  std::vector<std::unique_ptr<Solution>> old = std::move(r.solutions);
  std::vector<EdgeDecision> old_decisions;
  for (const auto& e : s.edges) old_decisions.push_back(e->decision);
  try {
    set_solutions(s, r, lists);
    for (const auto& e : s.edges) e->decision = decisions[e->index];
    install_first_solutions(s);
  } catch (...) {
    r.solutions = std::move(old);
    r.minimal = was_minimal;
    for (const auto& e : s.edges) e->decision = old_decisions[e->index];
    throw;
  }
}

}  // namespace

void learn_structure_npc(Domain& domain) {
  const LearningData data = learning_data(domain);
  auto state = std::make_unique<NpcState>();
  state->domain = &domain;
  state->rules = edge_rules(domain, data);
  const double alpha = domain.significance_level;
  state->analysis = npc_analyse(
      data.variables(),
      [&](std::size_t x, std::size_t y, const std::vector<std::size_t>& s) {
        return g2_test(data, x, y, s).p_value > alpha;
      },
      state->rules);
  for (Node* n : data.nodes) state->serials.push_back(n->serial());
  for (std::size_t e = 0; e < state->analysis.uncertain.size(); ++e) {
    state->edges.push_back(std::make_unique<UncertainEdge>());
    state->edges.back()->state = state.get();
    state->edges.back()->index = e;
  }
  for (const auto& members : state->analysis.regions) {
    auto region = std::make_unique<AmbiguousRegion>();
    region->state = state.get();
    region->members = members;
    for (std::size_t e : members) region->edges.push_back(state->edges[e].get());
    set_solutions(*state, *region, {members});
    if (!state->regions.empty()) state->regions.back()->next = region.get();
    state->regions.push_back(std::move(region));
  }
  install_first_solutions(*state);
  results(domain).npc = std::move(state);
}

void check_current(const NpcState& state) {
  const bool nodes_kept =
      std::all_of(state.serials.begin(), state.serials.end(),
                  [&](std::uint64_t v) { return node_of(*state.domain, v) != nullptr; });
  if (!nodes_kept || current_links(*state.domain) != state.installed)
    throw Error(K_ERROR_USAGE, "the domain's links changed since NPC learned them");
}

AmbiguousRegion* first_ambiguous_region(Domain& domain) {
  const StructureResults* r = domain.structure_results.get();
  if (r == nullptr || !r->npc) throw Error(K_ERROR_USAGE, "the domain has no NPC result");
  check_current(*r->npc);
  return r->npc->regions.empty() ? nullptr : r->npc->regions.front().get();
}

void find_minimal_solutions(AmbiguousRegion& region) {
  std::vector<EdgeDecision> decisions;
  for (const auto& e : region.state->edges) decisions.push_back(e->decision);
  replace_solutions(region, decisions, true);
}

void decide_uncertain_edge(UncertainEdge& edge, bool present) {
  NpcState& s = *edge.state;
  std::vector<EdgeDecision> decisions;
  for (const auto& e : s.edges) decisions.push_back(e->decision);
  decisions[edge.index] = present ? EdgeDecision::present : EdgeDecision::absent;
  for (const auto& r : s.regions)
    if (std::find(r->members.begin(), r->members.end(), edge.index) != r->members.end())
      replace_solutions(*r, decisions, r->minimal);
}

Node& uncertain_edge_node(const UncertainEdge& edge, bool first) {
  const NpcState& s = *edge.state;
  check_current(s);
  const auto& [a, b] = s.analysis.uncertain[edge.index];
  return *node_of(*s.domain, s.serials[first ? a : b]);
}

}  // namespace kelva
