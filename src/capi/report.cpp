// The belief report and compression of the C API.

#include "capi/boundary.h"
#include "compile/compress.h"
#include "inference/belief_report.h"
#include "inference/node_value.h"

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

double k_domain_compress(k_domain_t domain) {
  return kelva::capi::guard<double>(-1.0, [&] { return kelva::compress_domain(get(domain)); });
}

k_bool_t k_domain_is_compressed(k_domain_t domain) {
  return kelva::capi::guard<k_bool_t>(-1, [&] { return get(domain).is_compressed() ? 1 : 0; });
}

double k_node_get_value(k_node_t node) {
  return kelva::capi::guard<double>(-1.0, [&] { return kelva::function_node_value(get(node)); });
}
