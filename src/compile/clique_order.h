#pragma once

#include <cstddef>
#include <vector>

namespace kelva {

class Node;

/// The order in which the cliques of a triangulation become clique records,
/// and the clique each one is linked to.
struct CliqueOrder {
  /// Marks a clique without a link candidate (the root of a tree).
  static constexpr std::size_t kRoot = static_cast<std::size_t>(-1);

  /// Positions in the triangulation's clique list, in the order picked:
  /// the cliques of one tree together, its root first, every clique after
  /// its link candidate.
  std::vector<std::size_t> picked;
  /// For each entry of `picked`: the position in `picked` of its link
  /// candidate, or kRoot.
  std::vector<std::size_t> candidate;
};

/// Orders `cliques` (the maximal cliques of a triangulated graph, as the
/// triangulation recorded them) by a maximum-cardinality search over
/// cliques and fixes each clique's link candidate, so that every tree has
/// the running-intersection property.
///
/// The search keeps the unpicked cliques in buckets by their number of
/// numbered members and always picks from the highest bucket: among the
/// cliques there with an unnumbered discrete member, the one of smallest
/// discrete size (the first one on ties); when none has one, the first.
///
/// With continuous nodes, a clique may be picked only when, for every
/// unnumbered continuous member, the whole discrete boundary of its
/// connected set of continuous nodes is numbered or in the clique.  So no
/// discrete node is numbered after a continuous neighbour, which makes each
/// tree's root a strong root: for a clique C with parent separator S, either
/// C \ S holds only continuous nodes or S only discrete ones.  In a strongly
/// triangulated graph the highest bucket always holds such a clique.
///
/// The link candidate of a clique with numbered members is searched in the
/// clique that numbered the most recently numbered of them and in the
/// cliques already linked below that one: the clique of smallest discrete
/// size (first in search order on ties) that holds all the numbered members.
///
/// Throws Error(error) when the cliques are not those of a (strongly)
/// triangulated graph, Error(no_memory).
CliqueOrder order_cliques(const std::vector<std::vector<Node*>>& cliques);

}  // namespace kelva
