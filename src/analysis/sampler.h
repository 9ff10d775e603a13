#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kelva {

class Domain;

/// The conditional tables of exact sampling from a calibrated junction
/// forest, made from its clique tables.  A step per clique (parents before
/// children): the clique's entries reordered into blocks, one per
/// configuration of its separator with its parent (a single block at a
/// root), each block holding the running sums of its entries over the
/// configurations of the members first met in this clique; drawing the
/// clique given the separator is then a short scan, or a binary search,
/// in one block.  One double per clique entry, in a few flat arrays read in
/// step order, so that a draw touches little memory.
class Sampler {
 public:
  /// Builds the tables of the domain's current forest.
  explicit Sampler(Domain& domain);

  struct Step {
    /// The separator members are separator_slots[separator, separator +
    /// separator_count), with their strides in the block number; the
    /// members first met here are new_slots[fresh, fresh + width), with
    /// their state counts in new_counts (the last fastest in a block).
    std::uint32_t separator = 0;
    std::uint32_t separator_count = 0;
    std::uint32_t fresh = 0;
    std::uint32_t width = 0;
    /// Block g is cumulative[base + g * block, base + (g + 1) * block).
    std::uint64_t base = 0;
    std::uint64_t block = 1;
  };
  std::vector<Step> steps;
  std::vector<std::uint32_t> separator_slots;
  std::vector<std::uint64_t> separator_strides;
  std::vector<std::uint32_t> new_slots;
  std::vector<std::uint32_t> new_counts;
  std::vector<double> cumulative;

  /// Continuous nodes, parents before children; utility nodes; discrete
  /// number and interval nodes: forest records.
  std::vector<std::size_t> continuous;
  std::vector<std::size_t> utilities;
  std::vector<std::size_t> numeric;

  /// The forest and the calibration count the tables were made from.
  std::uint64_t forest = 0;
  std::uint64_t calibrations = 0;
};

}  // namespace kelva
