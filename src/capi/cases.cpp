// The stored cases of the C API: the domain's case list and counts, and the
// nodes' items of each case.
#include "learning/cases.h"

#include <cmath>
#include <cstdint>
#include <limits>

#include "capi/boundary.h"
#include "platform/memory.h"

using kelva::CaseColumn;
using kelva::Error;
using kelva::require;
using kelva::capi::get;
using kelva::capi::guard;
using kelva::capi::guard_status;

namespace {

// Case `index` of the node's domain exists, or Error(usage).
void require_case(const kelva::Node& n, k_size_t index) {
  require(index < n.domain().cases.size());
}

// A node whose items are states (discrete), with case `index` in range.
kelva::Node& state_node(k_node_t h, k_size_t index) {
  kelva::Node& n = get(h);
  require(n.is_discrete());
  require_case(n, index);
  return n;
}

// A node whose items are values (continuous), with case `index` in range.
kelva::Node& value_node(k_node_t h, k_size_t index) {
  kelva::Node& n = get(h);
  require(n.is_continuous());
  require_case(n, index);
  return n;
}

// A node with items of either sort, with case `index` in range.
kelva::Node& item_node(k_node_t h, k_size_t index) {
  kelva::Node& n = get(h);
  require(n.is_discrete() || n.is_continuous());
  require_case(n, index);
  return n;
}

// A changed case changes the log-likelihood of the stored cases.
void cases_changed(kelva::Domain& d) noexcept { d.cached_log_likelihood.reset(); }

}  // namespace

extern "C" {

k_size_t k_domain_new_case(k_domain_t domain) {
  return guard<k_size_t>(K_SIZE_ERROR, [&] {
    kelva::Domain& d = get(domain);
    const k_size_t index = d.cases.add();
    cases_changed(d);
    return index;
  });
}

k_size_t k_domain_get_number_of_cases(k_domain_t domain) {
  return guard<k_size_t>(K_SIZE_ERROR, [&] { return k_size_t{get(domain).cases.size()}; });
}

k_status_t k_domain_set_number_of_cases(k_domain_t domain, k_size_t count) {
  return guard_status([&] {
    kelva::Domain& d = get(domain);
    // One count per case, and a state or value per case in each column
    // that grows to it later.
    const k_size_t limit = std::numeric_limits<k_size_t>::max() / sizeof(double);
    require(count < limit && kelva::platform::allocation_possible(count * sizeof(double)),
            K_ERROR_NO_MEMORY);
    d.set_number_of_cases(count);
    cases_changed(d);
  });
}

k_status_t k_domain_set_case_count(k_domain_t domain, k_size_t index, double count) {
  return guard_status([&] {
    kelva::Domain& d = get(domain);
    require(index < d.cases.size() && std::isfinite(count) && count >= 0.0);
    d.cases.set_count(index, count);
    cases_changed(d);
  });
}

double k_domain_get_case_count(k_domain_t domain, k_size_t index) {
  return guard(-1.0, [&] {
    const kelva::Domain& d = get(domain);
    require(index < d.cases.size());
    return d.cases.count(index);
  });
}

double k_domain_count_cases(k_domain_t domain) {
  return guard(-1.0, [&] { return get(domain).cases.total_count(); });
}

k_status_t k_domain_enter_case(k_domain_t domain, k_size_t index) {
  return guard_status([&] {
    kelva::Domain& d = get(domain);
    // Checked first, so that the entry cannot fail half-way.
    require(kelva::case_can_be_entered(d, index));
    kelva::enter_case_evidence(d, index);
  });
}

k_status_t k_node_set_case_state(k_node_t node, k_size_t index, k_size_t state) {
  return guard_status([&] {
    kelva::Node& n = state_node(node, index);
    require(state <= static_cast<k_size_t>(CaseColumn::kMaxState), K_ERROR_CASE_STATE_TOO_LARGE);
    require(state < n.state_count());
    n.cases.set_state(index, static_cast<std::int32_t>(state));
    cases_changed(n.domain());
  });
}

k_size_t k_node_get_case_state(k_node_t node, k_size_t index) {
  return guard<k_size_t>(K_SIZE_ERROR, [&] {
    const kelva::Node& n = state_node(node, index);
    const std::int32_t state = n.cases.state(index);
    require(state >= 0, K_ERROR_NO_VALUE);
    return static_cast<k_size_t>(state);
  });
}

k_status_t k_node_set_case_value(k_node_t node, k_size_t index, double value) {
  return guard_status([&] {
    kelva::Node& n = value_node(node, index);
    require(std::isfinite(value));
    n.cases.set_value(index, value);
    cases_changed(n.domain());
  });
}

double k_node_get_case_value(k_node_t node, k_size_t index) {
  return guard(-1.0, [&] {
    const kelva::Node& n = value_node(node, index);
    require(n.cases.is_set(index), K_ERROR_NO_VALUE);
    return n.cases.value(index);
  });
}

k_status_t k_node_unset_case(k_node_t node, k_size_t index) {
  return guard_status([&] {
    kelva::Node& n = item_node(node, index);
    n.cases.unset(index);
    cases_changed(n.domain());
  });
}

k_bool_t k_node_case_is_set(k_node_t node, k_size_t index) {
  return guard<k_bool_t>(-1, [&] { return k_bool_t{item_node(node, index).cases.is_set(index)}; });
}

}  // extern "C"
