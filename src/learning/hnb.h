#pragma once

#include <vector>

namespace kelva {

class Domain;
class Node;

/// Learns a hierarchical naive Bayes classifier of `target` from the stored
/// cases.  Starting from naive Bayes, the pair of attributes (or latent
/// variables) most dependent given the target (smallest G² p-value, at or
/// below the domain's significance level) is offered a latent parent whose
/// states are groups of the pair's joint states, merged greedily while BIC
/// rises; the latent variable is kept when the BIC of target -> latent ->
/// pair beats target -> each of the pair, and then stands for the pair in
/// later rounds.  Installs the network with new latent nodes ("Latent1",
/// ...), tables estimated from the cases with each latent variable set to
/// its group, and returns the latent nodes made.  Edge constraints: a
/// forbidden target -> attribute leaves the attribute unlinked, a required
/// one keeps it a child of the target; a required link into the target or
/// between two others is Error(usage).  On failure nothing changes.
std::vector<Node*> learn_hnb_structure(Domain& domain, Node& target);

}  // namespace kelva
