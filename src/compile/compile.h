#pragma once

#include <vector>

#include "kelva/kelva.h"

namespace kelva {

class Domain;
class Node;

/// Whether `domain` has a node that takes part in compilation (a discrete
/// or continuous node).
bool has_participants(const Domain& domain) noexcept;

/// Triangulates `domain` by `method` and installs its junction forest (the
/// frame of k_domain_triangulate: checks, time stamp, moral graph,
/// triangulation, forest, final flush).  Throws Error; the domain stays
/// untriangulated on failure.
void triangulate_domain(Domain& domain, k_triangulation_method_t method);

/// The same with the nodes of each group in `groups` joined in the moral
/// graph first, so that each group lies in one clique of the forest (the
/// interfaces of a dynamic network's slices).
void triangulate_domain_with_groups(Domain& domain, k_triangulation_method_t method,
                                    const std::vector<std::vector<Node*>>& groups);

/// The same with a user-supplied elimination order (first eliminated
/// first); Error(enumeration) for an invalid order, nothing changed.
void triangulate_domain_with_order(Domain& domain, const std::vector<Node*>& order);

/// Sets the nodes that every later triangulation of `domain` puts into one
/// clique (empty: none).  Error(enumeration) when a node is of another
/// domain, neither discrete nor continuous, or listed twice; nothing
/// changed.  The forest in place is kept.
void set_ijt_nodes(Domain& domain, const std::vector<Node*>& nodes);

/// Sets the elimination order that method 19 starts from (empty: none);
/// Error(enumeration) as for triangulate_domain_with_order, nothing changed.
void set_initial_triangulation(Domain& domain, const std::vector<Node*>& order);

/// Checks the conditional probability tables of the domain's discrete nodes,
/// writing the "Checking conditional probability potentials" section to the
/// domain's log (which must be set).  Returns true when every table is
/// valid; throws Error(io) on a failed write.
bool verify_probability_potentials(Domain& domain);

}  // namespace kelva
