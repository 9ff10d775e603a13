// Conditional-Gaussian parameters and results through the C API.
#include <memory>

#include "capi/boundary.h"
#include "capi/slots.h"
#include "compile/junction_forest.h"
#include "inference/cg_propagate.h"
#include "structure/cg_parameters.h"

using kelva::Node;
using kelva::NodeSlot;
using kelva::require;
using kelva::capi::get;
using kelva::capi::guard;
using kelva::capi::guard_status;
using kelva::capi::handle;

namespace {

// The forest record of a continuous node whose tree holds an equilibrium.
const NodeSlot& moments_slot(Node& n) {
  require(n.is_continuous());
  return kelva::capi::propagated_slot(n);
}

}  // namespace

double k_node_get_mean(k_node_t node) {
  return guard(-1.0, [&] { return moments_slot(get(node)).mean; });
}

double k_node_get_variance(k_node_t node) {
  return guard(-1.0, [&] { return moments_slot(get(node)).variance; });
}

k_table_t k_node_get_distribution(k_node_t node) {
  return guard<k_table_t>(nullptr, [&] {
    Node& n = get(node);
    std::unique_ptr<kelva::Table> table = kelva::cg_distribution(n);
    n.domain().adopt_free_table(table.get());
    return handle(table.release());
  });
}

double k_node_get_alpha(k_node_t node, k_size_t i) {
  return guard(-1.0, [&] { return kelva::cg_alpha(get(node), i); });
}

double k_node_get_beta(k_node_t node, k_node_t parent, k_size_t i) {
  return guard(-1.0, [&] { return kelva::cg_beta(get(node), get(parent), i); });
}

double k_node_get_gamma(k_node_t node, k_size_t i) {
  return guard(-1.0, [&] { return kelva::cg_gamma(get(node), i); });
}

k_status_t k_node_set_alpha(k_node_t node, double alpha, k_size_t i) {
  return guard_status([&] { kelva::set_cg_alpha(get(node), alpha, i); });
}

k_status_t k_node_set_beta(k_node_t node, double beta, k_node_t parent, k_size_t i) {
  return guard_status([&] { kelva::set_cg_beta(get(node), beta, get(parent), i); });
}

k_status_t k_node_set_gamma(k_node_t node, double gamma, k_size_t i) {
  return guard_status([&] { kelva::set_cg_gamma(get(node), gamma, i); });
}
