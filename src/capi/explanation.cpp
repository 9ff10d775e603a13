// Explanations of a hypothesis by subsets of the evidence through the C API.
#include "analysis/explanation.h"

#include "capi/boundary.h"

using kelva::capi::get;
using kelva::capi::guard;
using kelva::capi::guard_status;
using kelva::capi::handle;

extern "C" {

k_status_t k_node_compute_explanation_data(k_node_t node, k_size_t state,
                                           k_size_t max_subset_size) {
  return guard_status([&] { kelva::compute_explanations(get(node), state, max_subset_size); });
}

k_size_t k_domain_get_number_of_explanations(k_domain_t domain) {
  return guard<k_size_t>(K_SIZE_ERROR, [&] { return kelva::explanation_count(get(domain)); });
}

k_node_t* k_domain_get_explanation(k_domain_t domain, k_size_t index) {
  return guard<k_node_t*>(nullptr,
                          [&] { return handle(kelva::explanation(get(domain), index).data()); });
}

double k_domain_get_explanation_score(k_domain_t domain, k_size_t index) {
  return guard(-1.0, [&] { return kelva::explanation_score(get(domain), index); });
}

double k_node_get_total_impact(k_node_t node, k_size_t state) {
  return guard(-1.0, [&] { return kelva::total_impact(get(node), state); });
}

}  // extern "C"
