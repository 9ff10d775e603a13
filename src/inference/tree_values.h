#pragma once

namespace kelva {

class Clique;
class JunctionTree;

/// Propagates `tree` (sum, normal) with `root` as root clique, as
/// propagate_tree does, but leaves the expected utilities per state of its
/// discrete nodes alone: policy updating needs only the calibrated tables.
void propagate_tree_values(JunctionTree& tree, Clique* root);

}  // namespace kelva
