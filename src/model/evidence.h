#pragma once

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
};

}  // namespace kelva
