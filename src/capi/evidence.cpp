// The evidence functions of the C API: entry, retraction and the queries of
// nodes, junction trees and domains.
#include "inference/evidence.h"

#include <cstddef>

#include "capi/boundary.h"
#include "compile/junction_forest.h"

using kelva::Evidence;
using kelva::JunctionTree;
using kelva::require;
using kelva::capi::get;
using kelva::capi::guard;
using kelva::capi::guard_status;

namespace {

constexpr k_bool_t kFailed = -1;

// A node that can hold evidence (discrete or continuous), or Error(usage).
kelva::Node& evidence_node(k_node_t h) {
  kelva::Node& n = get(h);
  require(n.is_discrete() || n.is_continuous());
  return n;
}

// A discrete node and a state index below its count, or Error(usage).
kelva::Node& discrete_state(k_node_t h, k_size_t state) {
  kelva::Node& n = get(h);
  require(n.is_discrete() && state < n.state_count());
  return n;
}

// The forest of a compiled domain, or Error(not_compiled).
kelva::Forest& compiled_forest(k_domain_t h) {
  kelva::Domain& d = get(h);
  require(d.is_compiled() && d.forest() != nullptr, K_ERROR_NOT_COMPILED);
  return *d.forest();
}

// The flags of a tree mean something only while it holds an equilibrium.
const JunctionTree& propagated_tree(k_junction_tree_t h) {
  const JunctionTree& t = get(h);
  require(t.equilibrium != K_EQUILIBRIUM_NONE, K_ERROR_NO_EQUILIBRIUM);
  return t;
}

bool has_evidence_to_propagate(const JunctionTree& t) noexcept {
  return t.evidence_to_propagate > 0 || t.needs_initialisation;
}

// A node table written since the tree's last initialisation counts too.
bool has_tables_to_propagate(const JunctionTree& t) noexcept {
  return t.tables_changed || t.needs_initialisation ||
         t.table_changes_seen != t.domain->table_changes();
}

void require_equilibrium_code(k_equilibrium_t equilibrium) {
  require(equilibrium == K_EQUILIBRIUM_SUM || equilibrium == K_EQUILIBRIUM_MAX);
}

bool in_mode(const JunctionTree& t, k_evidence_mode_t mode) {
  require(mode == K_MODE_NORMAL || mode == K_MODE_FAST_RETRACTION);
  require(t.equilibrium != K_EQUILIBRIUM_NONE, K_ERROR_NO_EQUILIBRIUM);
  return t.mode == mode || !t.evidence_propagated;
}

// Whether `test` holds for any tree of the compiled domain.
template <class Test>
k_bool_t any_tree(k_domain_t domain, Test test) {
  return guard<k_bool_t>(kFailed, [&] {
    for (const auto& t : compiled_forest(domain).trees)
      if (test(*t)) return k_bool_t{1};
    return k_bool_t{0};
  });
}

bool likelihood(std::int64_t code, const std::vector<double>& vector) noexcept {
  if (code != Evidence::kVector) return false;
  for (double v : vector)
    if (!(v == 0.0 || v == 1.0)) return true;
  return false;
}

}  // namespace

k_status_t k_node_select_state(k_node_t node, k_size_t state) {
  return guard_status([&] { kelva::select_state(get(node), state); });
}

k_status_t k_node_enter_finding(k_node_t node, k_size_t state, double value) {
  return guard_status([&] { kelva::enter_finding(get(node), state, value); });
}

k_status_t k_node_enter_value(k_node_t node, double value) {
  return guard_status([&] { kelva::enter_value(get(node), value); });
}

k_status_t k_node_retract_findings(k_node_t node) {
  return guard_status([&] { kelva::retract_findings(get(node)); });
}

k_status_t k_domain_retract_findings(k_domain_t domain) {
  return guard_status([&] { kelva::retract_findings(get(domain)); });
}

k_bool_t k_node_evidence_is_entered(k_node_t node) {
  return guard<k_bool_t>(kFailed, [&] {
    const kelva::Node& n = evidence_node(node);
    return k_bool_t{n.is_continuous() ? n.evidence.entered
                                      : n.evidence.entered_code != Evidence::kNone};
  });
}

k_bool_t k_node_evidence_is_propagated(k_node_t node) {
  return guard<k_bool_t>(kFailed, [&] {
    const kelva::Node& n = evidence_node(node);
    return k_bool_t{n.is_continuous() ? n.evidence.propagated
                                      : n.evidence.propagated_code != Evidence::kNone};
  });
}

k_bool_t k_node_likelihood_is_entered(k_node_t node) {
  return guard<k_bool_t>(kFailed, [&] {
    const Evidence& e = evidence_node(node).evidence;
    return k_bool_t{likelihood(e.entered_code, e.entered_vector)};
  });
}

k_bool_t k_node_likelihood_is_propagated(k_node_t node) {
  return guard<k_bool_t>(kFailed, [&] {
    const Evidence& e = evidence_node(node).evidence;
    return k_bool_t{likelihood(e.propagated_code, e.propagated_vector)};
  });
}

k_bool_t k_node_evidence_to_propagate(k_node_t node) {
  return guard<k_bool_t>(
      kFailed, [&] { return k_bool_t{kelva::evidence_to_propagate(evidence_node(node))}; });
}

double k_node_get_entered_finding(k_node_t node, k_size_t state) {
  return guard(-1.0, [&] { return kelva::entered_finding(discrete_state(node, state), state); });
}

double k_node_get_propagated_finding(k_node_t node, k_size_t state) {
  return guard(-1.0, [&] { return kelva::propagated_finding(discrete_state(node, state), state); });
}

int64_t k_node_get_selected_state(k_node_t node) {
  return guard<int64_t>(-1, [&] {
    const kelva::Node& n = get(node);
    require(n.is_discrete() && n.evidence.entered_code >= 0);
    return n.evidence.entered_code;
  });
}

int64_t k_node_get_propagated_state(k_node_t node) {
  return guard<int64_t>(-1, [&] {
    const kelva::Node& n = get(node);
    require(n.is_discrete() && n.evidence.propagated_code >= 0);
    return n.evidence.propagated_code;
  });
}

double k_node_get_entered_value(k_node_t node) {
  return guard(-1.0, [&] {
    const kelva::Node& n = get(node);
    require(n.is_continuous() ? n.evidence.entered : n.evidence.value_entered);
    return n.evidence.entered_value;
  });
}

double k_node_get_propagated_value(k_node_t node) {
  return guard(-1.0, [&] {
    const kelva::Node& n = get(node);
    require(n.is_continuous() && n.evidence.propagated);
    return n.evidence.propagated_value;
  });
}

k_bool_t k_jt_evidence_to_propagate(k_junction_tree_t jt) {
  return guard<k_bool_t>(kFailed, [&] { return k_bool_t{has_evidence_to_propagate(get(jt))}; });
}

k_bool_t k_jt_evidence_is_propagated(k_junction_tree_t jt) {
  return guard<k_bool_t>(kFailed,
                         [&] { return k_bool_t{propagated_tree(jt).evidence_propagated}; });
}

k_bool_t k_jt_likelihood_is_propagated(k_junction_tree_t jt) {
  return guard<k_bool_t>(kFailed,
                         [&] { return k_bool_t{propagated_tree(jt).likelihood_propagated}; });
}

k_bool_t k_jt_cg_evidence_is_propagated(k_junction_tree_t jt) {
  return guard<k_bool_t>(kFailed,
                         [&] { return k_bool_t{propagated_tree(jt).cg_evidence_propagated}; });
}

k_bool_t k_jt_tables_to_propagate(k_junction_tree_t jt) {
  return guard<k_bool_t>(kFailed, [&] { return k_bool_t{has_tables_to_propagate(get(jt))}; });
}

k_bool_t k_jt_equilibrium_is(k_junction_tree_t jt, k_equilibrium_t equilibrium) {
  return guard<k_bool_t>(kFailed, [&] {
    const JunctionTree& t = get(jt);
    require_equilibrium_code(equilibrium);
    return k_bool_t{t.equilibrium == equilibrium};
  });
}

k_bool_t k_jt_evidence_mode_is(k_junction_tree_t jt, k_evidence_mode_t mode) {
  return guard<k_bool_t>(kFailed, [&] { return k_bool_t{in_mode(get(jt), mode)}; });
}

k_bool_t k_domain_evidence_is_propagated(k_domain_t domain) {
  return any_tree(domain, [](const JunctionTree& t) { return t.evidence_propagated; });
}

k_bool_t k_domain_likelihood_is_propagated(k_domain_t domain) {
  return any_tree(domain, [](const JunctionTree& t) { return t.likelihood_propagated; });
}

k_bool_t k_domain_cg_evidence_is_propagated(k_domain_t domain) {
  return any_tree(domain, [](const JunctionTree& t) { return t.cg_evidence_propagated; });
}

k_bool_t k_domain_evidence_to_propagate(k_domain_t domain) {
  return any_tree(domain, has_evidence_to_propagate);
}

k_bool_t k_domain_tables_to_propagate(k_domain_t domain) {
  return any_tree(domain, has_tables_to_propagate);
}

k_bool_t k_domain_equilibrium_is(k_domain_t domain, k_equilibrium_t equilibrium) {
  return guard<k_bool_t>(kFailed, [&] {
    const kelva::Forest& forest = compiled_forest(domain);
    require_equilibrium_code(equilibrium);
    for (const auto& t : forest.trees)
      if (t->equilibrium != equilibrium) return k_bool_t{0};
    return k_bool_t{1};
  });
}

k_bool_t k_domain_evidence_mode_is(k_domain_t domain, k_evidence_mode_t mode) {
  return guard<k_bool_t>(kFailed, [&] {
    const kelva::Forest& forest = compiled_forest(domain);
    require(mode == K_MODE_NORMAL || mode == K_MODE_FAST_RETRACTION);
    bool all = true;
    for (const auto& t : forest.trees) all = in_mode(*t, mode) && all;
    return k_bool_t{all};
  });
}
