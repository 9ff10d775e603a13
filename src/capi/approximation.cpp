// Approximation of a junction forest in the C API.

#include "analysis/approximate.h"
#include "capi/boundary.h"

using kelva::capi::get;
using kelva::capi::guard;

double k_domain_approximate(k_domain_t domain, double epsilon) {
  return guard<double>(-1.0, [&] { return kelva::approximate_domain(get(domain), epsilon); });
}

double k_domain_get_approximation_constant(k_domain_t domain) {
  return guard<double>(-1.0, [&] { return kelva::approximation_constant(get(domain)); });
}
