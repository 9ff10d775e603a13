#pragma once

#include <cstddef>
#include <vector>

namespace kelva {

/// A joint Gaussian over n variables held as a chain of regressions: each
/// variable is alpha + sum_j beta(i, j) x_j plus independent noise of
/// variance gamma, on variables earlier in an order kept with it.  The
/// parameters of a CG network's continuous nodes load into it as they
/// stand.
///
/// Conditioning reverses arcs (Bayes' rule between two regressions) until
/// the observed variable has no parents and then substitutes its value
/// into its children.  Every variance it forms is a sum of non-negative
/// terms or a quotient of such sums, never a difference, so variances from
/// 1e-8 to 1e8 in one chain, and zero noise (deterministic relations), keep
/// their precision.
class CgRegression {
 public:
  /// n variables, all parameters 0, order 0 .. n-1; allocates only when n
  /// is larger than any size before.
  void reset(std::size_t n);
  std::size_t size() const noexcept { return n_; }

  double& alpha(std::size_t i) noexcept { return alpha_[i]; }
  double& gamma(std::size_t i) noexcept { return gamma_[i]; }
  /// Coefficient of variable i on variable j; j must come before i in the
  /// order (after reset: j < i).
  double& beta(std::size_t i, std::size_t j) noexcept { return beta_[i * n_ + j]; }

  /// Conditions the joint on x_i = value and returns the log density of the
  /// value under the joint before conditioning.  Throws Error(zero_variance)
  /// when the variable's marginal variance is 0.
  double condition(std::size_t i, double value);

  /// Means and variances of all variables under the current joint (an
  /// observed variable: its value and 0).
  void moments(double* mean, double* variance);
  /// Covariance of variables i and j as of the last moments() (0 for an
  /// observed variable).
  double covariance(std::size_t i, std::size_t j) const noexcept { return covariance_[i * n_ + j]; }

 private:
  void reverse(std::size_t x, std::size_t e);

  std::size_t n_ = 0;
  std::vector<double> alpha_;
  std::vector<double> gamma_;
  std::vector<double> beta_;        // n x n, row i: the regression of variable i
  std::vector<double> covariance_;  // n x n scratch of moments()
  std::vector<std::size_t> order_;  // variables, parents before children
  std::vector<std::size_t> parents_;
  std::vector<char> observed_;
  std::vector<double> value_;
};

}  // namespace kelva
