#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kelva {

class Domain;
class Node;

/// The CG part of EM: the continuous chance nodes that have an experience
/// table, their expected sufficient statistics over an E-step and their
/// new intercepts, regression coefficients and variances.
///
/// Per configuration c of a node's discrete parents the E-step keeps the
/// total weight W and, for z = (continuous parents, node), the weighted mean
/// of E[z] and the scatter sum of E[(z - mean)(z - mean)^T].  A case adds,
/// for every configuration b of the discrete parents of the node's
/// component with posterior P(b | case) > 0, the mean and covariance of z
/// in the component's Gaussian given b and the case's values, with weight
/// count x P(b | case).  Keeping the statistics centred (a weighted
/// running update) avoids the cancellation of raw second moments.
class CgLearner {
 public:
  explicit CgLearner(Domain& domain) : domain_(domain) {}

  /// Finds the learned continuous nodes of the compiled domain and saves
  /// their parameters.
  void prepare();
  bool empty() const noexcept { return families_.empty(); }
  void clear() noexcept;
  /// Adds the case just entered and propagated, with count `weight`.
  void add_case(double weight);
  /// Per configuration: the weighted least-squares regression of the node
  /// on its continuous parents.  A configuration with a negative experience
  /// count, no weight, a singular scatter of the parents or no residual
  /// variance keeps its parameters.
  void maximize();
  /// Puts every learned node's parameters back as they were at prepare().
  void restore() noexcept;

 private:
  struct Stats {
    double weight = 0.0;
    std::vector<double> mean;     // k + 1
    std::vector<double> scatter;  // (k + 1)^2
  };
  struct Family {
    Node* node = nullptr;
    std::size_t self = 0;                 // the node among its table's continuous nodes
    std::vector<std::size_t> parent_pos;  // the parents among its table's continuous nodes
    std::vector<double> experience;       // per configuration
    std::vector<double> original;         // per configuration: alpha, gamma, betas
    std::vector<Stats> stats;             // per configuration
  };
  void accumulate(Family& f, std::uint64_t c, double w, const std::vector<double>& mu,
                  const std::vector<double>& cov);

  Domain& domain_;
  std::vector<Family> families_;
  std::vector<double> mu_;
  std::vector<double> cov_;
};

}  // namespace kelva
