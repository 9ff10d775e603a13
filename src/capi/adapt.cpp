// Adaptation of the conditional tables from the propagated evidence.
#include "learning/adapt.h"

#include "capi/boundary.h"

using kelva::capi::get;
using kelva::capi::guard_status;

k_status_t k_domain_adapt(k_domain_t domain) {
  return guard_status([&] { kelva::adapt_domain(get(domain)); });
}
