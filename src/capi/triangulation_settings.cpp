// C API of the settings of the optimal triangulation (method 19) and of the
// default triangulation.
#include "capi/boundary.h"
#include "compile/compile.h"

using kelva::require;
using kelva::capi::get;
using kelva::capi::guard;
using kelva::capi::guard_status;

k_status_t k_domain_set_initial_triangulation(k_domain_t domain, k_node_t* order) {
  return guard_status([&] {
    kelva::Domain& d = get(domain);
    kelva::set_initial_triangulation(
        d, order != nullptr ? kelva::capi::node_list(order) : std::vector<kelva::Node*>{});
  });
}

k_status_t k_domain_set_max_number_of_separators(k_domain_t domain, int64_t count) {
  return guard_status([&] { get(domain).max_separators = count; });
}

int64_t k_domain_get_max_number_of_separators(k_domain_t domain) {
  return guard<int64_t>(-1, [&] { return get(domain).max_separators; });
}

k_status_t k_domain_set_max_separator_size(k_domain_t domain, int64_t size) {
  return guard_status([&] { get(domain).max_separator_size = size; });
}

int64_t k_domain_get_max_separator_size(k_domain_t domain) {
  return guard<int64_t>(-1, [&] { return get(domain).max_separator_size; });
}

k_status_t k_domain_set_triangulation_parameters(k_domain_t domain, k_node_t* initial,
                                                 int64_t max_separators,
                                                 int64_t max_separator_size) {
  return guard_status([&] {
    kelva::Domain& d = get(domain);
    kelva::set_initial_triangulation(
        d, initial != nullptr ? kelva::capi::node_list(initial) : std::vector<kelva::Node*>{});
    d.max_separators = max_separators;
    d.max_separator_size = max_separator_size;
  });
}

k_status_t k_domain_set_ijt_nodes(k_domain_t domain, k_node_t* nodes) {
  return guard_status([&] {
    kelva::Domain& d = get(domain);
    kelva::set_ijt_nodes(
        d, nodes != nullptr ? kelva::capi::node_list(nodes) : std::vector<kelva::Node*>{});
  });
}

k_status_t k_domain_triangulate_default(k_domain_t domain) {
  return guard_status([&] { kelva::triangulate_domain(get(domain), K_TM_BEST_GREEDY); });
}
