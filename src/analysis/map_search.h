#pragma once

#include <cstdint>
#include <vector>

#include "kelva/kelva.h"

namespace kelva {

class Domain;
class Node;

/// Finds every configuration of `nodes` (distinct discrete chance nodes of
/// the compiled `domain`) whose probability given the propagated evidence
/// is at least `min_probability` (0 < min_probability <= 1), exactly, and
/// keeps them in the domain, most probable first (ties in configuration
/// order, the last node fastest) (k_domain_find_map_configurations).
///
/// Depth-first search over the nodes in the order given: at each level the
/// evidence found so far selects a state of each earlier node, a
/// propagation gives the beliefs of the next node, and a state whose
/// probability (that of the partial configuration times its belief) is
/// below the minimum is not followed, since no extension of it can reach
/// the minimum.  The domain ends as it began: the nodes' evidence as entered
/// and the same equilibrium.  Error(not_compiled); Error(no_equilibrium);
/// Error(usage) for a bad node, an empty list, a minimum out of range, max
/// equilibrium, fast-retraction mode or evidence still to propagate; the
/// errors of propagation.  On failure the previous results are kept.
void find_map_configurations(Domain& domain, const std::vector<Node*>& nodes,
                             double min_probability);

/// The number of configurations found by the last search.
/// Error(usage) when there was none on this compilation.
std::uint64_t map_configuration_count(const Domain& domain);

/// The states of configuration `index` (one per node, in the order given to
/// the search), and its probability.  Error(usage) for an index out of
/// range or no search on this compilation.
const k_size_t* map_configuration(const Domain& domain, std::uint64_t index);
double map_configuration_probability(const Domain& domain, std::uint64_t index);

}  // namespace kelva
