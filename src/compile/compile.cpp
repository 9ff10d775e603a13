// The two stages of compilation: triangulation (moral graph, elimination,
// junction forest) and the compile stage on top of it (model tables, the
// check of probability tables, the first propagation, the belief report).
#include "compile/compile.h"

#include <ctime>
#include <unordered_set>
#include <utility>

#include "compile/compile_log.h"
#include "compile/junction_forest.h"
#include "compile/moral_graph.h"
#include "compile/triangulate.h"
#include "expr/evaluate.h"
#include "expr/generate.h"
#include "inference/belief_report.h"
#include "inference/propagate.h"
#include "model/domain.h"
#include "model/error.h"
#include "model/node.h"

namespace kelva {

namespace {

bool has_participants(const Domain& domain) noexcept {
  return domain.discrete_count() + domain.continuous_count() > 0;
}

// Flushes after a failure: the failure's own code is the one reported.
void flush_quietly(const CompileLog& log) noexcept {
  try {
    log.flush();
  } catch (const Error&) {
  }
}

// The local time as ctime writes it, ending in a newline.
void write_time_stamp(const CompileLog& log) {
  if (!log.active()) return;
  const std::time_t now = std::time(nullptr);
  const char* text = std::ctime(&now);
  log.write("%s", text != nullptr ? text : "\n");
}

// The common frame of both triangulations: time stamp, moral graph,
// `eliminate` (which writes its own sections), the junction forest and the
// final flush.  The forest is installed only when everything succeeded.
template <class Eliminate>
void build_and_install(Domain& domain, Eliminate&& eliminate) {
  CompileLog log(domain.log());
  try {
    write_time_stamp(log);
    const MoralGraph graph = build_moral_graph(domain, log);
    const Triangulation triangulation = eliminate(graph, log);
    ForestPtr forest = build_junction_forest(domain, triangulation, log);
    log.flush();
    domain.install_forest(std::move(forest));
  } catch (...) {
    flush_quietly(log);
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
  // The optimal search over minimal separators is not implemented.
  require(method != K_TM_TOTAL_WEIGHT);
  build_and_install(domain, [&](const MoralGraph& graph, CompileLog& log) {
    return triangulate(graph, method, log);
  });
}

void triangulate_domain_with_order(Domain& domain, const std::vector<Node*>& order) {
  require(!domain.is_triangulated() && has_participants(domain));
  validate_order(domain, order);
  build_and_install(domain, [&](const MoralGraph& graph, CompileLog& log) {
    return triangulate_by_order(graph, order, log);
  });
}

void compile_domain(Domain& domain) {
  require(has_participants(domain) && !domain.is_compiled());
  const bool triangulated_here = !domain.is_triangulated();
  if (triangulated_here) triangulate_domain(domain, K_TM_BEST_GREEDY);

  CompileLog log(domain.log());
  try {
    domain.set_compiled(true);
    generate_tables(domain, PriorBeliefs());
    // Invalid tables are only reported: propagation has the last word.
    if (log.active()) check_probability_potentials(domain);
    for (const auto& tree : domain.forest()->trees) tree->needs_initialisation = true;
    propagate_domain(domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL);
    if (log.active()) {
      report_domain_beliefs(domain);
      log.flush();
    }
  } catch (...) {
    domain.set_compiled(false);
    flush_quietly(log);
    if (triangulated_here) {
      domain.uncompile();
      flush_quietly(log);
    }
    throw;
  }
}

}  // namespace kelva
