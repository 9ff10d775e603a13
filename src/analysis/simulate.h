#pragma once

#include <cstdint>

namespace kelva {

class Domain;
class Node;

/// Draws one configuration of every node of the compiled `domain` from the
/// distribution of its last propagation (the posterior given the propagated
/// evidence), exactly: per junction tree, the root clique's configuration
/// from its table, then each clique's remaining members given the states
/// drawn for its separator with its parent, parents before children.
/// Continuous nodes are drawn afterwards from their conditional Gaussians
/// given the states and values drawn for their parents; utility nodes get
/// the entry of their table for their parents' states (k_domain_simulate).
///
/// Uses one uniform deviate per clique (and two per continuous node) of
/// the domain's stream.  Error(not_compiled); Error(no_equilibrium) when a
/// tree holds none; Error(usage) for max equilibrium or evidence still to
/// be propagated.  The conditional tables are kept between calls while the
/// clique tables are unchanged.
void simulate_domain(Domain& domain);

/// The state drawn for a discrete node by the last simulation.
/// Error(usage) for another node, Error(not_compiled) when its domain is not
/// compiled, Error(no_value) when nothing was drawn on this compilation.
std::int64_t sampled_state(const Node& node);

/// The value drawn: a continuous node's value, or the state value of the
/// drawn state of a number node (the middle of its interval for an
/// interval node).  Errors as sampled_state.
double sampled_value(const Node& node);

/// A utility node's utility for the drawn states of its parents.  Errors
/// as sampled_state.
double sampled_utility(const Node& node);

}  // namespace kelva
