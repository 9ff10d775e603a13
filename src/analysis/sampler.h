#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kelva {

class Clique;
class Domain;
class Node;

/// The conditional tables of exact sampling from a calibrated junction
/// forest, made from its clique tables.  A step per clique (parents before
/// children): the clique's entries grouped by the configuration of its
/// separator with its parent (a single group at a root), each group with
/// the running sums of its entries, so that drawing the clique given the
/// separator is one binary search.
class Sampler {
 public:
  /// Builds the tables of the domain's current forest.
  explicit Sampler(Domain& domain);

  struct Step {
    /// Separator members: forest records and their strides in the group
    /// index.
    std::vector<std::size_t> separator_slots;
    std::vector<std::uint64_t> separator_strides;
    /// Members first met here (the others are in the separator): forest
    /// records.
    std::vector<std::size_t> new_slots;
    /// Group g holds positions start[g] to start[g + 1] of `cumulative`
    /// (running sums of the clique's entries within the group) and of
    /// `drawn` (per position, the states of the new members, new_slots.size()
    /// entries each).
    std::vector<std::uint64_t> start;
    std::vector<double> cumulative;
    std::vector<std::uint32_t> drawn;
  };
  std::vector<Step> steps;

  /// Continuous nodes, parents before children, and utility nodes, with
  /// their forest records.
  std::vector<std::size_t> continuous;
  std::vector<std::size_t> utilities;

  /// The forest and the calibration count the tables were made from.
  std::uint64_t forest = 0;
  std::uint64_t calibrations = 0;
};

}  // namespace kelva
