// The belief report and compression of the C API.

#include "capi/boundary.h"
#include "inference/belief_report.h"

using kelva::capi::get;
using kelva::capi::guard_status;

// The report functions return the error code itself on failure.

k_status_t k_domain_report_beliefs(k_domain_t domain) {
  if (guard_status([&] { kelva::report_domain_beliefs(get(domain)); }) == 0) return 0;
  return k_error_code();
}

k_status_t k_node_report_beliefs(k_node_t node) {
  if (guard_status([&] { kelva::report_node_beliefs(get(node)); }) == 0) return 0;
  return k_error_code();
}
