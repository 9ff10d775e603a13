#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kelva {

/// The evidence of one node: what the user entered, and what was entered
/// as of the last propagation.
///
/// Discrete nodes use codes: -1 no evidence, k >= 0 state k selected, -2 a
/// general finding held in the vector.  The vectors are allocated on first
/// use and never freed by retraction; a vector is meaningful only while its
/// code is -2.  Continuous nodes use the flags and values.
///
/// The entry operations (inference/evidence.h) write the entered fields;
/// the propagated fields are written only by propagation, and cleared when
/// the forest they were propagated into is discarded.
struct Evidence {
  static constexpr std::int64_t kNone = -1;
  static constexpr std::int64_t kVector = -2;

  std::int64_t entered_code = kNone;
  std::vector<double> entered_vector;
  std::int64_t propagated_code = kNone;
  std::vector<double> propagated_vector;
  /// Set when the evidence came from a value entered on a numeric node.
  bool value_entered = false;
  double entered_value = 0.0;

  // Continuous nodes.
  bool entered = false;
  bool propagated = false;
  double propagated_value = 0.0;

  /// Forgets what was propagated (the forest is gone); keeps the vector.
  void forget_propagated() noexcept {
    propagated_code = kNone;
    propagated = false;
    propagated_value = 0.0;
  }

  /// Drops all evidence, entered and propagated: the node's states changed
  /// in number, so no code or vector fits them any more.
  void forget_all() noexcept {
    forget_propagated();
    entered_code = kNone;
    entered_vector.clear();
    propagated_vector.clear();
    value_entered = false;
    entered_value = 0.0;
    entered = false;
  }

  /// The same evidence over states reordered so that new state i is old
  /// state new_to_old[i].
  Evidence permuted(const std::vector<std::size_t>& new_to_old) const;
};

}  // namespace kelva
