// C functions of dynamic networks: temporal clones, the window, predictions.

#include "capi/boundary.h"
#include "capi/class_handle.h"
#include "dynamic/dbn_window.h"
#include "network/class.h"
#include "structure/temporal.h"

using kelva::capi::get;
using kelva::capi::get_class;
using kelva::capi::guard;
using kelva::capi::guard_status;
using kelva::capi::handle;

extern "C" {

k_node_t k_node_create_temporal_clone(k_node_t node) {
  return guard<k_node_t>(nullptr, [&] { return handle(&kelva::create_temporal_clone(get(node))); });
}

k_node_t k_node_get_temporal_clone(k_node_t node) {
  return guard<k_node_t>(nullptr, [&] { return handle(get(node).temporal_clone); });
}

k_node_t k_node_get_temporal_master(k_node_t node) {
  return guard<k_node_t>(nullptr, [&] { return handle(get(node).temporal_master); });
}

k_domain_t k_class_create_dbn_domain(k_class_t cls, k_size_t slices) {
  return guard<k_domain_t>(
      nullptr, [&] { return handle(kelva::create_dbn_domain(get_class(cls), slices).release()); });
}

k_status_t k_domain_triangulate_dbn(k_domain_t domain, k_triangulation_method_t method) {
  return guard_status([&] { kelva::triangulate_dbn(get(domain), method); });
}

k_status_t k_domain_triangulate_dbn_for_bk(k_domain_t domain, k_triangulation_method_t method) {
  return guard_status([&] { kelva::triangulate_dbn_for_bk(get(domain), method); });
}

k_bool_t k_domain_is_triangulated_for_bk(k_domain_t domain) {
  return guard<k_bool_t>(-1, [&] { return k_bool_t{kelva::is_triangulated_for_bk(get(domain))}; });
}

k_status_t k_domain_initialize_dbn_window(k_domain_t domain) {
  return guard_status([&] { kelva::initialize_dbn_window(get(domain)); });
}

k_status_t k_domain_move_dbn_window(k_domain_t domain, k_size_t slices) {
  return guard_status([&] { kelva::move_dbn_window(get(domain), slices); });
}

k_size_t k_domain_get_dbn_window_offset(k_domain_t domain) {
  return guard<k_size_t>(K_SIZE_ERROR, [&] { return kelva::dbn_window_offset(get(domain)); });
}

k_status_t k_domain_compute_dbn_predictions(k_domain_t domain, k_size_t steps) {
  return guard_status([&] { kelva::compute_dbn_predictions(get(domain), steps); });
}

double k_node_get_predicted_belief(k_node_t node, k_size_t state, k_size_t time) {
  return guard(-1.0, [&] { return kelva::predicted_belief(get(node), state, time); });
}

double k_node_get_predicted_mean(k_node_t node, k_size_t time) {
  return guard(-1.0, [&] { return kelva::predicted_mean(get(node), time); });
}

double k_node_get_predicted_value(k_node_t node, k_size_t time) {
  return guard(-1.0, [&] { return kelva::predicted_value(get(node), time); });
}

double k_node_get_predicted_variance(k_node_t node, k_size_t time) {
  return guard(-1.0, [&] { return kelva::predicted_variance(get(node), time); });
}

}  // extern "C"
