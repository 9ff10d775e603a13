#include "inference/node_value.h"

#include <cmath>
#include <limits>

#include "compile/junction_forest.h"
#include "network/domain.h"
#include "network/node.h"

namespace kelva {

namespace {

/// The forest record of `node` when its tree holds an equilibrium.
const NodeSlot* propagated_slot(const Node& node) {
  const Domain& domain = node.domain();
  if (!domain.is_compiled()) return nullptr;
  const NodeSlot* slot = domain.forest()->slot(node);
  if (slot == nullptr || slot->tree == nullptr || slot->tree->equilibrium == K_EQUILIBRIUM_NONE)
    return nullptr;
  return slot;
}

}  // namespace

bool PropagatedBeliefs::distribution(const Node& node, std::vector<double>& out) const {
  const NodeSlot* slot = propagated_slot(node);
  if (slot == nullptr || !node.is_discrete()) return false;
  const std::int64_t selected = node.evidence.propagated_code;
  if (selected >= 0) {
    out.assign(node.state_count(), 0.0);
    out[static_cast<std::size_t>(selected)] = 1.0;
    return true;
  }
  // Max-marginals are no distribution.
  if (slot->tree->equilibrium != K_EQUILIBRIUM_SUM || slot->marginal.size() != node.state_count())
    return false;
  out = slot->marginal;
  return true;
}

bool PropagatedBeliefs::moments(const Node& node, double& mean, double& variance) const {
  const NodeSlot* slot = propagated_slot(node);
  if (slot == nullptr) return false;
  if (node.category() == K_CATEGORY_UTILITY) {
    if (slot->expected_utility.size() != 1) return false;
    mean = slot->expected_utility[0];
    variance = std::numeric_limits<double>::quiet_NaN();
    return true;
  }
  if (!node.is_continuous() || std::isnan(slot->mean)) return false;
  mean = slot->mean;
  variance = slot->variance;
  return true;
}

double function_node_value(const Node& node) {
  require(node.category() == K_CATEGORY_FUNCTION && node.kind() == K_KIND_OTHER);
  PropagatedBeliefs beliefs;
  Evaluator evaluator(beliefs);
  try {
    const Value v = evaluator.value_of(node);
    require(v.kind == Value::Kind::number, K_ERROR_INVALID_EXPRESSION);
    return v.number;
  } catch (const FunctionNodeFailure& failure) {
    throw Error(failure.code());  // the node is the one asked about
  }
}

}  // namespace kelva
