#pragma once

namespace kelva {

class Node;

/// The entropy -sum p log p (natural logarithm) of the node's beliefs as
/// propagated.  Error(usage) for a node that is not discrete or a max
/// equilibrium, not_compiled, no_equilibrium.
double entropy(const Node& node);

/// The mutual information of two discrete nodes under the entered evidence,
/// sum p(x, y) log(p(x, y) / (p(x) p(y))) (natural logarithm): the expected
/// fall in the entropy of one when the other is observed.  0 for nodes in
/// different junction trees or with a selected state; the entropy for the
/// same node twice.  Throws as compute_sensitivity; the domain's evidence
/// and propagation state are as before.
double mutual_information(Node& node, Node& other);

}  // namespace kelva
