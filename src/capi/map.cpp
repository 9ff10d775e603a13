// MAP configurations of the C API.

#include "analysis/map_search.h"
#include "capi/boundary.h"

using kelva::capi::get;
using kelva::capi::guard;
using kelva::capi::guard_status;

k_status_t k_domain_find_map_configurations(k_domain_t domain, k_node_t* nodes,
                                            double min_probability) {
  return guard_status([&] {
    kelva::find_map_configurations(get(domain), kelva::capi::node_list(nodes), min_probability);
  });
}

k_size_t k_domain_get_number_of_map_configurations(k_domain_t domain) {
  return guard<k_size_t>(~k_size_t{0}, [&] { return kelva::map_configuration_count(get(domain)); });
}

const k_size_t* k_domain_get_map_configuration(k_domain_t domain, k_size_t index) {
  return guard<const k_size_t*>(nullptr,
                                [&] { return kelva::map_configuration(get(domain), index); });
}

double k_domain_get_probability_of_map_configuration(k_domain_t domain, k_size_t index) {
  return guard<double>(-1.0,
                       [&] { return kelva::map_configuration_probability(get(domain), index); });
}
