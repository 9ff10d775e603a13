#pragma once

#include <vector>

#include "network/node_list.h"

namespace kelva {

class Domain;
class Node;

// Queries of a network's graph (its links only; tables and evidence play no
// part beyond the node sets the caller passes).

/// The node's ancestors (not the node itself), breadth-first from its
/// parents, each once.
NodeList ancestors(const Node& node);
/// The node's descendants (not the node itself), breadth-first from its
/// children, each once.
NodeList descendants(const Node& node);
/// The node's neighbours in the moral graph: parents, children and the
/// children's other parents, each once, in that order.
NodeList moral_neighbours(const Node& node);

/// What one run of the Bayes ball from a set of source nodes found, by node
/// position in the domain's chain (see chain_positions).
struct BallMarks {
  /// The ball reached the node and the node is not observed: the node is
  /// d-connected to the sources.
  std::vector<bool> connected;
  /// The ball left the node towards its parents: the node's table can
  /// change the sources' probabilities (the requisite tables).
  std::vector<bool> top;
};

/// Runs the Bayes ball over the domain's links from `sources`, given hard
/// evidence on `hard` and likelihood evidence on `soft` (a likelihood acts as
/// an observed child).  Every node must belong to `domain`.
BallMarks bayes_ball(const Domain& domain, const std::vector<const Node*>& sources,
                     const std::vector<const Node*>& hard, const std::vector<const Node*>& soft);

/// The nodes of `domain` in chain order, so that a node's index here is its
/// position in BallMarks.
std::vector<Node*> chain_nodes(const Domain& domain);

}  // namespace kelva
