// Hierarchical naive Bayes through the C API.
#include "learning/hnb.h"

#include "capi/boundary.h"

using kelva::capi::get;
using kelva::capi::guard_status;

extern "C" {

k_status_t k_domain_learn_hnb_structure(k_domain_t domain, k_node_t target) {
  return guard_status([&] { kelva::learn_hnb_structure(get(domain), get(target)); });
}

}  // extern "C"
