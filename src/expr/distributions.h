#pragma once

#include <cmath>
#include <cstdint>
#include <vector>

namespace kelva {

class GenerationLog;
class Node;

/// A distribution as an expression evaluates to it: the operator and its
/// evaluated operands, with the bounds of any "truncate" around it.
struct DistributionValue {
  /// Operator code (60..74 or 76).
  int op = 0;
  /// The evaluated operands in order.  "NoisyOR": condition (0 or 1) and
  /// inhibitor probability, pair after pair.  Unused by "aggregate".
  std::vector<double> args;
  /// Whether a "truncate" applies, and its bounds (infinite when absent).
  bool truncated = false;
  double lower = -HUGE_VAL;
  double upper = HUGE_VAL;
  /// "aggregate": the count node N and the node X whose copies are summed.
  const Node* count_node = nullptr;
  const Node* term_node = nullptr;
};

/// The distributions of the two nodes of an "aggregate", over their states.
struct AggregateBeliefs {
  std::vector<double> count;
  std::vector<double> term;
};

/// The point that stands for an interval state [lo, hi) when the state is
/// evaluated once: the midpoint of a finite interval; just inside the finite
/// bound of a half-infinite one (hi * 0.999 or hi * 1.001, -1 at 0 for
/// (-inf, hi); lo * 1.001 or lo * 0.999, 1 at 0 for [lo, inf)); 0 for
/// (-inf, inf).
double interval_point(double lo, double hi) noexcept;

/// The points at which an interval state [lo, hi) is sampled: the midpoints
/// of `samples` equal parts of a finite interval (one point when hi == lo),
/// else the single interval_point().
std::vector<double> interval_samples(double lo, double hi, std::uint64_t samples);

/// The probabilities of the states of discrete `owner` under `dist`, written
/// into `out` (one per state).  Checks the operator's rules first; a
/// violation writes its message to `log` and throws Error
/// (inappropriate_arguments, invalid_expression, insufficient_state_range or
/// computation_failed).  `aggregate` supplies the beliefs of an "aggregate".
void discretise(const DistributionValue& dist, Node& owner, const GenerationLog& log,
                const AggregateBeliefs* aggregate, std::vector<double>& out);

/// Whether `op` is one of the continuous distributions ("Normal" to "PERT").
constexpr bool is_continuous_distribution(int op) noexcept { return op >= 60 && op <= 68; }

}  // namespace kelva
