// C API of compilation: triangulation, the elimination order, compiling.
#include "compile/compile.h"

#include "capi/boundary.h"
#include "compile/junction_forest.h"
#include "inference/compile_domain.h"

using kelva::Domain;
using kelva::require;
using kelva::capi::get;
using kelva::capi::guard;
using kelva::capi::guard_status;

k_status_t k_domain_triangulate(k_domain_t domain, k_triangulation_method_t method) {
  return guard_status([&] { kelva::triangulate_domain(get(domain), method); });
}

k_status_t k_domain_triangulate_with_order(k_domain_t domain, k_node_t* order) {
  return guard_status([&] {
    Domain& d = get(domain);
    require(!d.is_triangulated());
    kelva::triangulate_domain_with_order(d, kelva::capi::node_list(order));
  });
}

k_node_t* k_domain_get_elimination_order(k_domain_t domain) {
  return guard<k_node_t*>(nullptr, [&] {
    Domain& d = get(domain);
    require(d.is_triangulated());
    return kelva::capi::handle(d.forest()->elimination_order.data());
  });
}

k_bool_t k_domain_is_triangulated(k_domain_t domain) {
  return guard<k_bool_t>(-1, [&] { return k_bool_t{get(domain).is_triangulated()}; });
}

k_status_t k_domain_compile(k_domain_t domain) {
  return guard_status([&] { kelva::compile_domain(get(domain)); });
}
