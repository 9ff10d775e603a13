// Simulation and the domain's random stream in the C API.

#include "analysis/random.h"
#include "analysis/simulate.h"
#include "capi/boundary.h"

using kelva::capi::get;
using kelva::capi::guard;
using kelva::capi::guard_status;

k_status_t k_domain_simulate(k_domain_t domain) {
  return guard_status([&] { kelva::simulate_domain(get(domain)); });
}

int64_t k_node_get_sampled_state(k_node_t node) {
  return guard<int64_t>(-1, [&] { return kelva::sampled_state(get(node)); });
}

double k_node_get_sampled_value(k_node_t node) {
  return guard<double>(-1.0, [&] { return kelva::sampled_value(get(node)); });
}

double k_node_get_sampled_utility(k_node_t node) {
  return guard<double>(-1.0, [&] { return kelva::sampled_utility(get(node)); });
}

k_status_t k_domain_seed_random(k_domain_t domain, k_size_t seed) {
  return guard_status([&] { kelva::seed_random(get(domain), seed); });
}

double k_domain_get_uniform_deviate(k_domain_t domain) {
  return guard<double>(-1.0, [&] { return kelva::uniform_deviate(get(domain)); });
}

double k_domain_get_normal_deviate(k_domain_t domain, double mean, double variance) {
  return guard<double>(-1.0, [&] { return kelva::normal_deviate(get(domain), mean, variance); });
}
