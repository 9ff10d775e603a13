#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "kelva/kelva.h"

namespace kelva {

class Domain;
class JunctionTree;
class Forest;
class Node;

/// Whether nodes of `domain` take evidence now.  A domain always does; a
/// class, whose nodes are templates for instances, never does.
bool accepts_evidence(const Domain& domain) noexcept;

/// The code of a finding vector: -1 (empty, or every entry 1), k (exactly
/// one entry 1 at k, the others 0), or -2 (anything else).
std::int64_t finding_code(const std::vector<double>& vector) noexcept;

/// Whether the entered evidence of a discrete or continuous node differs
/// from its propagated evidence.  Selecting the only state of a one-state
/// node is no change.
bool evidence_to_propagate(const Node& node) noexcept;

/// The number of nodes of `tree` whose evidence is to be propagated (what
/// the tree's count holds when it is up to date).
std::uint64_t count_evidence_to_propagate(const JunctionTree& tree) noexcept;

/// Forgets the propagated evidence of every node of `forest` and sets each
/// tree's count to match (its nodes with evidence entered), in one pass
/// over the nodes.
void forget_propagated_evidence(Forest& forest) noexcept;

/// The entered and the propagated finding of state `state` of a discrete
/// node: 1 for every state without evidence, 1 and 0 around a selected
/// state, the vector's entry otherwise.  `state` must be in range.
double entered_finding(const Node& node, std::size_t state) noexcept;
double propagated_finding(const Node& node, std::size_t state) noexcept;

/// Makes the node's entered evidence its propagated evidence (code and
/// vector, or flag and value).  Called by propagation only.
void note_propagated(Node& node);

/// Selects state `state` of a discrete node (k_node_select_state).  Throws
/// Error(usage) for a node of another kind, a state out of range or a
/// domain that takes no evidence.
void select_state(Node& node, std::size_t state);

/// Sets the finding of one state (k_node_enter_finding); 0 <= value <
/// largest double, else Error(usage).
void enter_finding(Node& node, std::size_t state, double value);

/// Enters a value (k_node_enter_value): the value of a continuous node (it
/// must be finite), or the state of a number or interval node that holds
/// it.  Error(invalid_state_values) when the node's state values do not
/// increase, Error(usage) when no state holds the value.
void enter_value(Node& node, double value);

/// Retracts the node's evidence (k_node_retract_findings); nothing happens
/// when it has none.
void retract_findings(Node& node);

/// Retracts the evidence of every discrete and continuous node.
void retract_findings(Domain& domain);

}  // namespace kelva
