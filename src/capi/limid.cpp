// Influence diagrams through the C API: policies, decisions and what they
// need to know.
#include <algorithm>
#include <memory>

#include "capi/boundary.h"
#include "capi/slots.h"
#include "inference/evidence.h"
#include "inference/policy_update.h"
#include "inference/propagate.h"
#include "structure/requisite.h"
#include "structure/structure.h"
#include "table/index_plan.h"

using kelva::Domain;
using kelva::Node;
using kelva::NodeSlot;
using kelva::require;
using kelva::capi::get;
using kelva::capi::guard;
using kelva::capi::guard_status;
using kelva::capi::handle;
using kelva::capi::propagated_slot;

namespace {

Node& decision(k_node_t node) {
  Node& n = get(node);
  require(n.category() == K_CATEGORY_DECISION);
  return n;
}

// The decisions of the domain, ancestors first: by the number of decisions
// that reach each one, then in order of creation.
std::vector<Node*> decisions_in_order(Domain& d) {
  std::vector<std::pair<std::size_t, Node*>> keyed;
  for (Node* n = d.first_node(); n != nullptr; n = n->next)
    if (n->category() == K_CATEGORY_DECISION) keyed.emplace_back(0, n);
  std::reverse(keyed.begin(), keyed.end());
  for (auto& [above, n] : keyed)
    for (const auto& other : keyed)
      if (other.second != n && kelva::reaches(*other.second, *n)) ++above;
  std::stable_sort(keyed.begin(), keyed.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  std::vector<Node*> result;
  for (const auto& k : keyed) result.push_back(k.second);
  return result;
}

// The smallest and largest entries of a utility node's table.
std::pair<double, double> utility_range(k_node_t node) {
  Node& n = get(node);
  require(n.category() == K_CATEGORY_UTILITY && n.table() != nullptr && n.table()->size() > 0);
  const double* data = n.table()->data();
  const auto [low, high] = std::minmax_element(data, data + n.table()->size());
  return {*low, *high};
}

}  // namespace

extern "C" {

k_status_t k_domain_update_policies(k_domain_t domain) {
  return guard_status([&] { kelva::update_policies(get(domain)); });
}

double k_domain_get_expected_utility(k_domain_t domain) {
  return guard(-1.0, [&] {
    Domain& d = get(domain);
    require(d.is_compiled(), K_ERROR_NOT_COMPILED);
    require(d.count(K_CATEGORY_UTILITY) > 0);
    double total = 0.0;
    for (Node* n = d.first_node(); n != nullptr; n = n->next)
      if (n->category() == K_CATEGORY_UTILITY) {
        const NodeSlot& s = propagated_slot(*n);
        require(!s.expected_utility.empty(), K_ERROR_ERROR);
        total += s.expected_utility[0];
      }
    return total;
  });
}

k_table_t k_node_get_decision_utilities(k_node_t node) {
  return guard<k_table_t>(nullptr, [&] {
    Node& n = decision(node);
    const NodeSlot& s = propagated_slot(n);
    require(n.domain().count(K_CATEGORY_UTILITY) > 0 && n.table() != nullptr);
    require(s.decision_utilities.size() == n.table()->size(), K_ERROR_ERROR);
    std::vector<Node*> members(n.table()->nodes().begin(), n.table()->nodes().end());
    auto table =
        std::make_unique<kelva::Table>(n.domain(), members, kelva::TableRole::free, nullptr);
    std::copy(s.decision_utilities.begin(), s.decision_utilities.end(), table->data());
    n.domain().adopt_free_table(table.get());
    return handle(table.release());
  });
}

k_node_t* k_node_get_requisite_parents(k_node_t node) {
  return guard<k_node_t*>(nullptr, [&] {
    Node& n = decision(node);
    n.scratch_list() = kelva::requisite_parents(n);
    return handle(n.scratch_list().data());
  });
}

k_node_t* k_node_get_requisite_ancestors(k_node_t node) {
  return guard<k_node_t*>(nullptr, [&] {
    Node& n = decision(node);
    n.scratch_list() = kelva::requisite_ancestors(n);
    return handle(n.scratch_list().data());
  });
}

k_node_t* k_domain_get_decision_order(k_domain_t domain) {
  return guard<k_node_t*>(nullptr, [&] {
    Domain& d = get(domain);
    d.decision_order = kelva::decision_order(d);
    return handle(d.decision_order.data());
  });
}

k_status_t k_domain_decide_automatically(k_domain_t domain) {
  return guard_status([&] {
    Domain& d = get(domain);
    require(d.is_compiled(), K_ERROR_NOT_COMPILED);
    require(d.count(K_CATEGORY_UTILITY) > 0);
    // Earlier decisions first: each choice changes what the later ones face.
    // A failure takes back the choices made here.
    std::vector<Node*> decided;
    try {
      for (Node* n : decisions_in_order(d)) {
        if (n->evidence.entered_code != kelva::Evidence::kNone) continue;
        kelva::propagate_domain(d, K_EQUILIBRIUM_SUM, K_MODE_NORMAL);
        const std::vector<double>& eu = propagated_slot(*n).expected_utility;
        require(eu.size() == n->state_count(), K_ERROR_ERROR);
        const auto best = std::max_element(eu.begin(), eu.end()) - eu.begin();
        kelva::select_state(*n, static_cast<std::size_t>(best));
        decided.push_back(n);
      }
      kelva::propagate_domain(d, K_EQUILIBRIUM_SUM, K_MODE_NORMAL);
    } catch (...) {
      for (Node* n : decided) kelva::retract_findings(*n);
      throw;
    }
  });
}

double k_node_get_max_utility(k_node_t node) {
  return guard(-1.0, [&] { return utility_range(node).second; });
}

double k_node_get_min_utility(k_node_t node) {
  return guard(-1.0, [&] { return utility_range(node).first; });
}

double k_node_get_variance_of_utility(k_node_t node, k_size_t state) {
  return guard(-1.0, [&] {
    Node& n = get(node);
    if (n.category() == K_CATEGORY_UTILITY) return kelva::utility_variance(n);
    require(n.category() == K_CATEGORY_DECISION && state < n.state_count());
    const NodeSlot& s = propagated_slot(n);
    require(n.domain().count(K_CATEGORY_FUNCTION) == 0, K_ERROR_FUNCTIONAL_DEPENDENCY);
    require(n.domain().count(K_CATEGORY_UTILITY) > 0);
    require(state < s.utility_variance.size(), K_ERROR_ERROR);
    return s.utility_variance[state];
  });
}

k_status_t k_domain_undo_manual_decisions(k_domain_t domain) {
  return guard_status([&] {
    Domain& d = get(domain);
    for (Node* n = d.first_node(); n != nullptr; n = n->next)
      if (n->category() == K_CATEGORY_DECISION) kelva::retract_findings(*n);
  });
}

}  // extern "C"
