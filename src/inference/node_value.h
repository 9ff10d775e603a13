#pragma once

#include <optional>
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

/// The value of real-valued function node `node`: its model's expression
/// evaluated on what the last propagation knows (PropagatedBeliefs), so the
/// discrete nodes it depends on must be known to be in one state.  Empty
/// when the value cannot be computed (no model, an unknown state, an
/// arithmetic failure, an uncompiled domain).
std::optional<double> function_node_value(const Node& node);

}  // namespace kelva
