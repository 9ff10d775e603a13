#pragma once

#include <cstddef>
#include <vector>

#include "learning/structure_data.h"
#include "network/node_list.h"

namespace kelva {

class Domain;
class Node;

/// The joint mutual information score of feature k for target y given the
/// selected features S: Σ_{j in S} I(X_k, X_j; Y) in nats, each term over
/// the cases that observe its three variables; I(X_k; Y) when S is empty.
double jmi_score(const LearningData& data, std::size_t k, std::size_t y,
                 const std::vector<std::size_t>& selected);

/// The domain-level score: nodes instead of variables.  Error(usage) when
/// the feature is the target or among the selected nodes.
double jmi_score(const Node& feature, const Node& target, const NodeList& selected);

/// Greedy forward selection by JMI: first the feature of highest I(X; Y),
/// then each time the one of highest score given those chosen, `count` in
/// all.  Installs the naive Bayes network of the target and the chosen
/// features (target -> feature); the other nodes are left unlinked.
/// Returns the features in the order chosen.
std::vector<Node*> learn_features(Domain& domain, const Node& target, std::size_t count);

}  // namespace kelva
