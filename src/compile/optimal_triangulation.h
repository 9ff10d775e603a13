#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace kelva {

/// Bounds of the optimal search; a value of 0 or less is no bound.
struct OptimalSearchLimits {
  /// The most minimal separators any graph of the search may have (the
  /// potential maximal cliques are bounded by this times the vertex count).
  std::int64_t max_separators = 0;
  /// Minimal separators with more members are left out of the search,
  /// which then no longer guarantees the optimum.
  std::int64_t max_separator_size = 0;
};

/// What the search found: the maximal cliques of a minimal triangulation of
/// least total weight among those it considered (members sorted), and the
/// counts it saw.  `cliques` is empty when a limit was exceeded.
struct OptimalSearchResult {
  std::vector<std::vector<std::uint32_t>> cliques;
  double cost = 0.0;
  std::uint64_t separators = 0;
  std::uint64_t potential_cliques = 0;
  bool limit_exceeded = false;
};

/// Searches the minimal triangulations of the connected graph with sorted
/// `adjacency` for one whose maximal cliques have the least total weight,
/// the weight of a set being the product of the `weights` of its members.
/// Lists the minimal separators, then the potential maximal cliques (built
/// vertex by vertex), and runs a dynamic programme over the full blocks of
/// the separators, smallest block first.
OptimalSearchResult optimal_triangulation(const std::vector<std::vector<std::uint32_t>>& adjacency,
                                          const std::vector<double>& weights,
                                          const OptimalSearchLimits& limits);

}  // namespace kelva
