#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "compile/junction_forest.h"
#include "table/cg_regression.h"
#include "table/table_ops.h"

namespace kelva {

// The continuous part of propagation.  The continuous nodes of a tree fall
// into components (connected through continuous links).  Given its discrete
// parents B, a component is a joint Gaussian, and strong triangulation puts
// B in one clique (the component's home).  Each propagation that
// initialises the tree computes, per configuration of B, the component's
// Gaussian conditioned on the entered values (CgRegression) and the
// density of those values; the densities are a likelihood over B that is
// multiplied into the home clique, so the discrete messages carry the
// continuous evidence.  The moments of a continuous node are the mixture
// of its per-configuration moments weighted by P(B | evidence).

/// One component of continuous nodes and what the last initialisation
/// computed for it.
struct CgComponent {
  struct Member {
    Node* node;
    std::size_t self;  ///< the node's position among its table's continuous nodes
    /// (member index, table position) of each continuous parent.
    std::vector<std::pair<std::size_t, std::size_t>> parents;
    /// Step of each discrete parent of the component in the node's table
    /// configuration index (0 when the node does not depend on it).
    std::vector<std::uint64_t> strides;
  };
  std::vector<Member> members;  ///< parents before children
  std::vector<Node*> discrete;  ///< B, in the order of the home clique's table
  std::uint64_t configurations = 1;
  Clique* home = nullptr;
  IndexPlan plan;  ///< home clique table -> B
  bool evidence = false;
  /// Per configuration of B: log density of the entered values, and per
  /// member mean and variance (configuration-major).
  std::vector<double> log_density;
  std::vector<double> mean;
  std::vector<double> variance;
  std::vector<double> weight;  ///< scratch: P(B | evidence), then likelihood factors
};

/// The continuous part of one junction tree.
class CgTree {
 public:
  CgTree();
  std::vector<CgComponent> components;
  CgRegression gaussian;
  std::vector<double> member_mean;  ///< scratch of one configuration
  std::vector<double> member_variance;
  /// Sum over the components of the log of the largest density, kept out
  /// of the clique tables and folded into the normalization constant.
  double log_scale = 0.0;
};

/// Whether a continuous node of `tree` has evidence that differs from what
/// was propagated.
bool cg_evidence_waiting(const JunctionTree& tree) noexcept;

/// Builds the tree's components on first use (no-op for a tree without
/// continuous nodes) and computes every component's Gaussians with the
/// entered values.  Error(zero_variance) when a value is entered on a node
/// whose variance is 0 given the values before it; Error(low_density) when
/// a component's density of the values is below the smallest normal double
/// for every configuration; Error(error) when no clique holds a component's
/// discrete parents.
void cg_initialise(JunctionTree& tree);

/// Multiplies the densities of the entered values into the home cliques,
/// each scaled by its largest value (kept in log_scale).
void cg_multiply_likelihoods(JunctionTree& tree, const Parallelism& parallelism);

/// The log of the density scale of the last cg_multiply_likelihoods (0
/// without continuous evidence).
double cg_log_scale(const JunctionTree& tree) noexcept;

/// Sets the mean and variance of every continuous node of the calibrated
/// tree.
void cg_set_moments(JunctionTree& tree, const Parallelism& parallelism);

/// Computes the Gaussian of `comp` in configuration `b` of its discrete
/// parents, conditioned on the entered values, as an initialisation does:
/// afterwards tree.member_mean holds the members' means and
/// tree.gaussian.covariance(i, j) their covariances (member indices).
void cg_solve(CgTree& tree, CgComponent& comp, std::uint64_t b);

/// The configuration index, in member `i`'s own table, of configuration `b`
/// of the component's discrete parents.
std::uint64_t cg_member_configuration(const CgComponent& comp, std::size_t i, std::uint64_t b);

/// The component of continuous `node` (null when its tree has no CG state).
const CgComponent* cg_component_of(const JunctionTree& tree, const Node& node,
                                   std::size_t* member) noexcept;

/// The mixture of continuous `node` as of the last propagation: a new
/// free-standing table over the discrete parents of its component (in the
/// home clique's order) and the node, whose data are the weights
/// P(parents | evidence) and whose CG part holds, per configuration, the
/// node's mean and variance given it.  Error(usage) for another node,
/// not_compiled, no_equilibrium.
std::unique_ptr<Table> cg_distribution(Node& node);

}  // namespace kelva
