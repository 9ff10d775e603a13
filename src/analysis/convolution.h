#pragma once

#include <cstddef>
#include <vector>

namespace kelva {

class Domain;
class Node;

/// A distribution over the distinct values of a sum: ascending values and
/// their probabilities.
struct SumDistribution {
  std::vector<double> values;
  std::vector<double> probabilities;
};

/// The distribution of the sum of the state values of `nodes` (distinct
/// discrete nodes of the number or boolean subtype, false 0 and true 1) as
/// of the last propagation.  The nodes of one junction tree must share a
/// clique; the trees are independent, so their sums are convolved.
/// Error: usage (an empty list, a node of another domain or subtype, a node
/// twice, no common clique, max equilibrium), not_compiled,
/// no_equilibrium, size_too_large (more than 2^20 distinct sums).
SumDistribution domain_convolution(Domain& domain, const std::vector<Node*>& nodes);

/// The distribution of the sum of `copies` independent draws from the
/// belief of `node`.  Error as domain_convolution; usage for 0 copies.
SumDistribution node_convolution(Node& node, std::size_t copies);

}  // namespace kelva
