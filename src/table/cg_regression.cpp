#include "table/cg_regression.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "network/error.h"

namespace kelva {

void CgRegression::reset(std::size_t n) {
  n_ = n;
  alpha_.assign(n, 0.0);
  gamma_.assign(n, 0.0);
  beta_.assign(n * n, 0.0);
  covariance_.resize(n * n);
  order_.resize(n);
  for (std::size_t i = 0; i < n; ++i) order_[i] = i;
  parents_.resize(n);
  observed_.assign(n, 0);
  value_.assign(n, 0.0);
}

// Reverses the arc x -> e, where x is e's parent latest in the order (so no
// other path leads from x to e): e gets x's parents and the regression of
// its marginal given them, x the regression on e and all of those parents.
// e then moves to just before x, after all its new parents.
void CgRegression::reverse(std::size_t x, std::size_t e) {
  double* be = &beta_[e * n_];
  double* bx = &beta_[x * n_];
  const double b = be[x];
  const double vx = gamma_[x];
  const double ve = gamma_[e];
  be[x] = 0.0;
  for (std::size_t p = 0; p < n_; ++p) be[p] += b * bx[p];
  alpha_[e] += b * alpha_[x];
  const double ge = ve + b * b * vx;
  // x given e and the parents: Bayes' rule between the two regressions.
  const double k = ge > 0.0 ? b * vx / ge : 0.0;
  const double gx = ge > 0.0 ? vx * ve / ge : vx;
  for (std::size_t p = 0; p < n_; ++p) bx[p] -= k * be[p];
  bx[e] = k;
  alpha_[x] -= k * alpha_[e];
  gamma_[e] = ge;
  gamma_[x] = gx;
  const auto at_x = std::find(order_.begin(), order_.end(), x);
  const auto at_e = std::find(at_x, order_.end(), e);
  std::rotate(at_x, at_e, at_e + 1);
}

double CgRegression::condition(std::size_t e, double value) {
  for (;;) {
    const auto at_e = std::find(order_.begin(), order_.end(), e);
    std::size_t x = n_;
    for (auto it = at_e; it != order_.begin();) {
      --it;
      if (beta_[e * n_ + *it] != 0.0) {
        x = *it;
        break;
      }
    }
    if (x == n_) break;
    reverse(x, e);
  }
  const double v = gamma_[e];
  if (!(v > 0.0)) throw Error(K_ERROR_ZERO_VARIANCE);
  const double r = value - alpha_[e];
  // Children take the value into their intercepts.
  for (std::size_t c = 0; c < n_; ++c) {
    double& b = beta_[c * n_ + e];
    alpha_[c] += b * value;
    b = 0.0;
  }
  observed_[e] = 1;
  value_[e] = value;
  alpha_[e] = value;
  gamma_[e] = 0.0;
  return -0.5 * (std::log(2.0 * std::numbers::pi * v) + r * r / v);
}

void CgRegression::moments(double* mean, double* variance) {
  // Forward in the order: the covariances of each variable with those
  // before it follow from its parents' (only its non-zero coefficients).
  for (std::size_t t = 0; t < n_; ++t) {
    const std::size_t i = order_[t];
    double* ci = &covariance_[i * n_];
    if (observed_[i]) {
      mean[i] = value_[i];
      variance[i] = 0.0;
      for (std::size_t s = 0; s <= t; ++s) ci[order_[s]] = covariance_[order_[s] * n_ + i] = 0.0;
      continue;
    }
    const double* bi = &beta_[i * n_];
    std::size_t np = 0;
    double m = alpha_[i];
    for (std::size_t s = 0; s < t; ++s) {
      const std::size_t p = order_[s];
      if (bi[p] == 0.0) continue;
      parents_[np++] = p;
      m += bi[p] * mean[p];
    }
    mean[i] = m;
    double v = gamma_[i];
    for (std::size_t s = 0; s < t; ++s) {
      const std::size_t j = order_[s];
      double c = 0.0;
      for (std::size_t q = 0; q < np; ++q) c += bi[parents_[q]] * covariance_[parents_[q] * n_ + j];
      ci[j] = covariance_[j * n_ + i] = c;
    }
    // The parents' part of the variance: beta' S beta, over the parents.
    double w = 0.0;
    for (std::size_t q = 0; q < np; ++q) w += bi[parents_[q]] * ci[parents_[q]];
    v += std::max(w, 0.0);
    ci[i] = v;
    variance[i] = v;
  }
}

}  // namespace kelva
