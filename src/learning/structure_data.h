#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kelva {

class Domain;
class Node;

/// The stored cases as structure learning reads them: one column of states
/// per discrete chance node (-1 where the case leaves it unset) and each
/// case's count as its weight.
struct LearningData {
  std::vector<Node*> nodes;  ///< the variables, oldest node first
  std::vector<std::size_t> states;
  std::vector<std::vector<std::int16_t>> columns;
  std::vector<double> weights;
  double total = 0.0;  ///< the sum of the weights

  std::size_t variables() const noexcept { return nodes.size(); }
  std::size_t cases() const noexcept { return weights.size(); }
  /// The variable of `node`, or npos.
  std::size_t index_of(const Node* node) const noexcept;
  static constexpr std::size_t npos = static_cast<std::size_t>(-1);
};

/// Reads the domain's cases.  Throws Error(usage) with a message that names
/// the cause when structure learning cannot use them: a node that is not a
/// discrete chance node, fewer than two nodes or two cases, a total count
/// of zero, or a node whose observed cases all have one state (or none).
LearningData learning_data(const Domain& domain);

/// Joint counts of `vars` (the first variable varying slowest) over the cases
/// in which all of them are observed.
/// Dense: the caller keeps the product of the state counts small.
std::vector<double> joint_counts(const LearningData& data, const std::vector<std::size_t>& vars);

/// Empirical mutual information (nats) of x and y, given z when z is not
/// npos, over the cases that observe all of them.
double mutual_information(const LearningData& data, std::size_t x, std::size_t y,
                          std::size_t z = LearningData::npos);

}  // namespace kelva
