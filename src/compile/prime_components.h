#pragma once

#include <cstdint>
#include <vector>

namespace kelva {

struct EliminationInput;

/// Decomposes `graph` by its clique minimal separators into its atoms (the
/// prime components: maximal subgraphs that no complete set separates).
/// Each atom is a list of vertex positions in increasing order; atoms are
/// listed by their first vertex.  Works from a minimal triangulation of the
/// graph (greedy, then thinned) and the clique tree that maximum cardinality
/// search builds on it: the minimal separators of that triangulation that
/// are complete in `graph` are exactly the clique minimal separators, and
/// cutting the clique tree at them leaves one piece per atom.
std::vector<std::vector<std::uint32_t>> prime_components(const EliminationInput& graph);

}  // namespace kelva
