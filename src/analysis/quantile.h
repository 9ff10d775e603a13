#pragma once

namespace kelva {

class Node;

/// The `p`-quantile of continuous `node`'s distribution as of the last
/// propagation (a mixture of normals, a component of variance 0 being a
/// point mass): the least x with P(node <= x) >= p.  Error(usage) unless
/// 0 < p < 1, and as cg_distribution (another node, not_compiled,
/// no_equilibrium).
double node_quantile(Node& node, double p);

}  // namespace kelva
