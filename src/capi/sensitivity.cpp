// Sensitivity analysis through the C API.
#include "analysis/sensitivity.h"

#include <array>

#include "capi/boundary.h"

using kelva::Domain;
using kelva::Node;
using kelva::require;
using kelva::capi::get;
using kelva::capi::guard;
using kelva::capi::guard_status;
using kelva::capi::handle;

namespace {

void store(const std::array<double, 4>& k, double* constants) {
  for (std::size_t i = 0; i < 4; ++i) constants[i] = k[i];
}

}  // namespace

extern "C" {

k_status_t k_node_compute_sensitivity_data(k_node_t node, k_size_t state) {
  return guard_status([&] {
    Node& n = get(node);
    kelva::compute_sensitivity(n.domain(), {{&n, state}});
  });
}

k_status_t k_domain_compute_sensitivity_data(k_domain_t domain, k_node_t* nodes,
                                             const k_size_t* states) {
  return guard_status([&] {
    Domain& d = get(domain);
    const std::vector<Node*> list = kelva::capi::node_list(nodes);
    require(states != nullptr);
    std::vector<kelva::SensitivityOutput> outputs;
    for (std::size_t i = 0; i < list.size(); ++i) outputs.emplace_back(list[i], states[i]);
    kelva::compute_sensitivity(d, outputs);
  });
}

k_status_t k_node_get_sensitivity_constants(k_node_t node, k_size_t input, double* constants) {
  return guard_status([&] {
    const Node& n = get(node);
    require(constants != nullptr);
    store(kelva::sensitivity_constants(n, input, 0), constants);
  });
}

k_status_t k_node_get_sensitivity_constants2(k_node_t node, k_size_t input, k_size_t output,
                                             double* constants) {
  return guard_status([&] {
    const Node& n = get(node);
    require(constants != nullptr);
    store(kelva::sensitivity_constants(n, input, output), constants);
  });
}

k_node_t* k_domain_get_sensitivity_set(k_domain_t domain, k_size_t output) {
  return guard<k_node_t*>(
      nullptr, [&] { return handle(kelva::sensitivity_set(get(domain), output).data()); });
}

}  // extern "C"
