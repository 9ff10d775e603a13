#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "network/domain.h"

namespace kelva {

class Node;

/// What a domain made from a time-slice class keeps about its window
/// (structure/dbn.h builds it, dynamic/dbn_window.h moves it).
struct DbnLayout {
  /// Per slice, the nodes copied from the class, in the same order in every
  /// slice (node j of every slice copies the same class node).
  std::vector<std::vector<Node*>> slices;
  /// The first slice's temporal clones (the interface prior), and for each
  /// the position of its master in a slice.
  std::vector<Node*> clones;
  std::vector<std::size_t> masters;
  /// Each clone's own prior (its table in the class), whose product is
  /// the interface prior of an initialised window.
  std::vector<std::vector<double>> initial_priors;
  /// Slices the window has moved since it was initialised.
  std::uint64_t offset = 0;
  /// One slice of the same class with the same interface prior, used to
  /// roll the interface forward beyond the window.
  std::unique_ptr<Domain> predictor;
  /// Predictions: per future step, per slice position, the beliefs of a
  /// discrete node, or the mean and variance of a continuous one.
  std::vector<std::vector<std::vector<double>>> predicted;
  /// The interface clusters (positions in `clones`) whose joint
  /// distributions are carried across a move as independent factors: one
  /// cluster of every clone for exact filtering, several for the
  /// Boyen–Koller approximation (`bk`).
  std::vector<std::vector<std::size_t>> clusters;
  bool bk = false;

  /// Slice position of a node of the window, or npos.
  static constexpr std::size_t npos = static_cast<std::size_t>(-1);
  std::size_t position_of(const Node& node) const noexcept {
    for (const auto& slice : slices)
      for (std::size_t j = 0; j < slice.size(); ++j)
        if (slice[j] == &node) return j;
    return npos;
  }
};

}  // namespace kelva
