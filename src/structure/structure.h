#pragma once

#include <cstddef>
#include <vector>

#include "kelva/kelva.h"

namespace kelva {

class Node;
class Table;

// Edits of a network's structure and states, and the node tables they
// reshape.  Each edit either succeeds or throws kelva::Error and leaves the
// domain as it was.  Each successful edit marks the nodes whose model tables
// it affects for generation.

/// Marks `node` (and, when its states or values changed, its children) for
/// table generation.
void flag_for_generation(Node& node, bool with_children) noexcept;

/// The node's table, created (all 0; a decision's policy uniform) over its
/// current parents when it has none: discrete parents most recent first, the
/// node, continuous parents in order of addition.  Error(usage) for nodes
/// that have no table (instance and real-valued function nodes).
Table& node_table(Node& node);
/// Whether the node is of a sort that has a table.
bool can_have_table(const Node& node) noexcept;
/// The node's experience table (chance nodes), created (all 0) over its
/// discrete parents when it has none.
Table& experience_table(Node& node);
/// The node's fading table (discrete chance nodes), created (all 1) over its
/// discrete parents when it has none.
Table& fading_table(Node& node);

/// Adds the link parent -> child with its checks in their documented order.
void add_parent(Node& child, Node& parent);
/// Removes the link parent -> child; Error(usage) when there is none.
void remove_parent(Node& child, Node& parent);
/// Replaces old_parent by new_parent among child's parents.
void switch_parent(Node& child, Node& old_parent, Node& new_parent);
/// Reverses the link from -> to, preserving the joint distribution.
void reverse_edge(Node& from, Node& to);
/// Whether `ancestor` reaches `node` along directed links (a node reaches itself).
bool reaches(const Node& ancestor, const Node& node);
/// The test that a link parent -> child does not close a cycle in the
/// evaluation of function nodes (see docs/decisions/functional_dependencies.md).  True when the
/// link is allowed.
bool functional_dependency_ok(const Node& child, const Node& parent);

/// Sets the number of states of a discrete non-boolean node, reshaping every
/// table that holds it.
void set_number_of_states(Node& node, std::size_t count);
/// The permutation that `order` (every state label once) asks of a discrete
/// node's states: new state i is old state result[i].  Error(usage) otherwise.
std::vector<std::size_t> state_order(const Node& node, const std::vector<const char*>& order);
/// Reorders the states of a discrete node by labels (every label once).
void reorder_states(Node& node, const std::vector<const char*>& order);
/// Changes the subtype of a discrete node.
void set_discrete_type(Node& node, k_subtype_t subtype);
/// Splits every interval of an interval node in two (see
/// k_node_double_number_of_intervals), reshaping the tables that hold it.
void double_number_of_intervals(Node& node);
/// Merges the intervals of an interval node two by two (see
/// k_node_halve_number_of_intervals).
void halve_number_of_intervals(Node& node);
/// Deletes a node: its links (as remove_parent), its tables, its name.
void delete_node(Node& node);

}  // namespace kelva
