// The EM learning functions of the C API: learning, its settings, and the
// log-likelihood, AIC and BIC of the stored cases.
#include "capi/boundary.h"
#include "learning/em.h"

using kelva::require;
using kelva::capi::get;
using kelva::capi::guard;
using kelva::capi::guard_status;

namespace {

// Every failure of the three scores returns 1.0, an impossible
// log-likelihood.
constexpr double kNoScore = 1.0;

}  // namespace

k_status_t k_domain_learn_tables(k_domain_t domain) {
  return guard_status([&] { kelva::learn_tables(get(domain)); });
}

k_status_t k_domain_set_log_likelihood_tolerance(k_domain_t domain, double tolerance) {
  return guard_status([&] {
    kelva::Domain& d = get(domain);
    require(tolerance >= 0.0);  // NaN is refused too
    d.log_likelihood_tolerance = tolerance;
  });
}

double k_domain_get_log_likelihood_tolerance(k_domain_t domain) {
  return guard(-1.0, [&] { return get(domain).log_likelihood_tolerance; });
}

k_status_t k_domain_set_max_number_of_em_iterations(k_domain_t domain, k_size_t count) {
  return guard_status([&] { get(domain).max_em_iterations = count; });
}

k_size_t k_domain_get_max_number_of_em_iterations(k_domain_t domain) {
  return guard<k_size_t>(K_SIZE_ERROR, [&] { return k_size_t{get(domain).max_em_iterations}; });
}

k_status_t k_domain_set_em_progress(k_domain_t domain, k_em_progress_t callback, void* data) {
  return guard_status([&] {
    kelva::Domain& d = get(domain);
    d.em_progress = callback;
    d.em_progress_data = callback != nullptr ? data : nullptr;
  });
}

double k_domain_get_log_likelihood(k_domain_t domain) {
  return guard(kNoScore, [&] { return kelva::log_likelihood(get(domain)); });
}

double k_domain_get_aic(k_domain_t domain) {
  return guard(kNoScore, [&] { return kelva::aic(get(domain)); });
}

double k_domain_get_bic(k_domain_t domain) {
  return guard(kNoScore, [&] { return kelva::bic(get(domain)); });
}
