// Triangulation of a domain: moral graph, elimination, junction forest.
#include "compile/compile.h"

#include <ctime>
#include <unordered_set>
#include <utility>

#include "compile/compile_log.h"
#include "compile/junction_forest.h"
#include "compile/moral_graph.h"
#include "compile/triangulate.h"
#include "network/domain.h"
#include "network/error.h"
#include "network/node.h"

namespace kelva {

bool has_participants(const Domain& domain) noexcept {
  return domain.discrete_count() + domain.continuous_count() > 0;
}

namespace {

// The local time as ctime writes it, ending in a newline.
void write_time_stamp(const CompileLog& log) {
  if (!log.active()) return;
  const std::time_t now = std::time(nullptr);
  const char* text = std::ctime(&now);
  log.write("%s", text != nullptr ? text : "\n");
}

// Links every two nodes of `group` in `graph`, so that any triangulation of
// it puts the group into one clique.
void join(MoralGraph& graph, const std::vector<Node*>& group) {
  for (std::size_t i = 0; i < group.size(); ++i)
    for (std::size_t j = 0; j < i; ++j) {
      const std::uint32_t a = graph.position.at(group[i]);
      const std::uint32_t b = graph.position.at(group[j]);
      if (graph.adjacent(a, b)) continue;
      graph.neighbours[a].push_back(b);
      graph.neighbours[b].push_back(a);
    }
}

// The common frame of both triangulations: time stamp, moral graph,
// `eliminate` (which writes its own sections), the junction forest and the
// final flush.  The forest is installed only when everything succeeded.
template <class Eliminate>
void build_and_install(Domain& domain, Eliminate&& eliminate) {
  // A class is compiled through the domain it unfolds into.
  require(!domain.is_class());
  CompileLog log(domain.log());
  try {
    write_time_stamp(log);
    MoralGraph graph = build_moral_graph(domain, log);
    join(graph, domain.ijt_nodes);
    const Triangulation triangulation = eliminate(graph, log);
    ForestPtr forest = build_junction_forest(domain, triangulation, log);
    log.flush();
    domain.install_forest(std::move(forest));
  } catch (...) {
    log.flush_quietly();
    throw;
  }
}

// Error(enumeration) unless `order` names every participating node of
// `domain` once, continuous nodes before discrete ones.
void validate_order(const Domain& domain, const std::vector<Node*>& order) {
  const std::uint64_t total = domain.discrete_count() + domain.continuous_count();
  std::unordered_set<const Node*> seen;
  bool discrete_seen = false;
  for (const Node* node : order) {
    require(&node->domain() == &domain, K_ERROR_ENUMERATION);
    require(node->is_discrete() || node->is_continuous(), K_ERROR_ENUMERATION);
    require(seen.insert(node).second, K_ERROR_ENUMERATION);
    require(!(node->is_continuous() && discrete_seen), K_ERROR_ENUMERATION);
    discrete_seen = discrete_seen || node->is_discrete();
  }
  require(seen.size() == total, K_ERROR_ENUMERATION);
}

}  // namespace

void triangulate_domain(Domain& domain, k_triangulation_method_t method) {
  require(!domain.is_triangulated() && has_participants(domain));
  require(method >= K_TM_CLIQUE_SIZE && method <= K_TM_BEST_GREEDY);
  TotalWeightSettings settings{domain.initial_triangulation,
                               {domain.max_separators, domain.max_separator_size}};
  // A bounded search must have a triangulation to fall back on.
  require(method != K_TM_TOTAL_WEIGHT || settings.limits.max_separators <= 0 ||
          !settings.initial.empty());
  build_and_install(domain, [&](const MoralGraph& graph, CompileLog& log) {
    return triangulate(graph, method, log, &settings);
  });
}

void triangulate_domain_with_groups(Domain& domain, k_triangulation_method_t method,
                                    const std::vector<std::vector<Node*>>& groups) {
  require(!domain.is_triangulated() && has_participants(domain));
  require(method >= K_TM_CLIQUE_SIZE && method <= K_TM_BEST_GREEDY && method != K_TM_TOTAL_WEIGHT);
  build_and_install(domain, [&](const MoralGraph& moral, CompileLog& log) {
    MoralGraph graph = moral;
    for (const auto& group : groups) join(graph, group);
    return triangulate(graph, method, log, nullptr);
  });
}

void set_ijt_nodes(Domain& domain, const std::vector<Node*>& nodes) {
  require(!domain.is_class());
  std::unordered_set<const Node*> seen;
  for (const Node* node : nodes) {
    require(&node->domain() == &domain, K_ERROR_ENUMERATION);
    require(node->is_discrete() || node->is_continuous(), K_ERROR_ENUMERATION);
    require(seen.insert(node).second, K_ERROR_ENUMERATION);
  }
  domain.ijt_nodes = nodes;
}

void set_initial_triangulation(Domain& domain, const std::vector<Node*>& order) {
  if (!order.empty()) validate_order(domain, order);
  domain.initial_triangulation = order;
}

void triangulate_domain_with_order(Domain& domain, const std::vector<Node*>& order) {
  require(!domain.is_triangulated() && has_participants(domain));
  validate_order(domain, order);
  build_and_install(domain, [&](const MoralGraph& graph, CompileLog& log) {
    return triangulate_by_order(graph, order, log);
  });
}

}  // namespace kelva
