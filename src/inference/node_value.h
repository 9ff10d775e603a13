#pragma once

#include <vector>

#include "expr/evaluate.h"

namespace kelva {

class Domain;
class Node;

/// What the last propagation of a compiled domain knows: a discrete node
/// whose propagated evidence selects a state is in that state; otherwise,
/// under sum equilibrium, its distribution is its marginal.  Continuous
/// nodes give their moments when propagation computed them, utility nodes
/// their expected utility.  Nothing is known of a tree in equilibrium none.
class PropagatedBeliefs final : public Beliefs {
 public:
  bool distribution(const Node& node, std::vector<double>& out) const override;
  bool moments(const Node& node, double& mean, double& variance) const override;
};

/// The value of real-valued function node `node` (k_node_get_value): its
/// model's expression evaluated on what the last propagation knows
/// (PropagatedBeliefs), so the discrete nodes it depends on must be known
/// to be in one state.  Throws Error: usage for another node, no_value
/// without a model or when a state it needs is not known, not_compiled
/// when a belief it needs is not known, and the arithmetic failures of
/// evaluation.
double function_node_value(const Node& node);

}  // namespace kelva
