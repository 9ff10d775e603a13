#pragma once

#include "kelva/kelva.h"

namespace kelva {

class Clique;
class Domain;
class JunctionTree;

/// Propagates every junction tree of the compiled `domain` (k_domain_propagate).
/// Throws Error (usage, not_compiled, compressed, inconsistency_or_underflow,
/// overflow, no_memory); after a failure the forest is reset and the next
/// propagation starts from the node tables.
void propagate_domain(Domain& domain, k_equilibrium_t equilibrium, k_evidence_mode_t mode);

/// Propagates one tree, with `root` as root clique (null: the tree's root).
void propagate_tree(JunctionTree& tree, Clique* root, k_equilibrium_t equilibrium,
                    k_evidence_mode_t mode);

}  // namespace kelva
