#pragma once

#include <cstddef>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "expr/distributions.h"
#include "network/error.h"

namespace kelva {

class Expression;
class Node;

/// The value of an expression: a number, a label, a truth value or a
/// distribution over the owner's states.
struct Value {
  enum class Kind { number, label, boolean, distribution };
  Kind kind = Kind::number;
  double number = 0.0;
  /// Points into the expression or a node's state labels; valid while they are.
  const char* label = nullptr;
  bool boolean = false;
  DistributionValue distribution;
};

/// What inference knows about nodes whose state the configuration being
/// generated does not fix: the parents of function nodes, and the nodes
/// inside "probability", "variance" and "aggregate".
class Beliefs {
 public:
  virtual ~Beliefs() = default;
  /// The distribution of discrete `node` over its states into `out`; false
  /// when it is not known.
  virtual bool distribution(const Node& node, std::vector<double>& out) const = 0;
  /// The mean and variance of a continuous node (the expected utility and
  /// its variance for a utility node); false when they are not known.
  virtual bool moments(const Node& node, double& mean, double& variance) const = 0;
};

/// What is known without inference (no junction forest, no evidence): the
/// distribution of a discrete chance node without parents is its own table,
/// normalised.  Nothing else is known.
class PriorBeliefs final : public Beliefs {
 public:
  bool distribution(const Node& node, std::vector<double>& out) const override;
  bool moments(const Node& node, double& mean, double& variance) const override;
};

/// The failure of a real-valued function node whose value an expression
/// needed; carries the node so the caller can name it.
class FunctionNodeFailure : public Error {
 public:
  FunctionNodeFailure(k_error_t code, const Node& node) noexcept : Error(code), node_(&node) {}
  /// The function node that could not be evaluated.
  const Node& node() const noexcept { return *node_; }

 private:
  const Node* node_;
};

/// Evaluates expressions for one configuration of nodes.  Discrete nodes
/// take their state (and numeric value) from bind(); other nodes come from
/// the beliefs: a discrete node whose distribution puts all mass on one
/// state is in that state, a continuous node with variance 0 has its mean,
/// and a real-valued function node is evaluated through its own model.
///
/// Operators: the arithmetic of doubles; "/" and "mod" by 0 and 0 raised to
/// a negative power are "division_by_zero"; log of a non-positive number,
/// sqrt of a negative one and a negative number raised to a fractional power
/// are "inappropriate_arguments"; any other result that is not finite is
/// "computation_failed".  mod(a, b) = a - b floor(a / b) (the sign of b).
/// "and" and "or" stop at the first deciding operand; "and ()" is true and
/// "or ()" false.  "probability" sums the belief of its node over the states
/// that make the condition true; "variance" is the variance of the belief
/// (interval states at their interval_point()).  A node whose state or value
/// is needed but not known is "no_value"; one whose belief is needed but not
/// known is "not_compiled".
class Evaluator {
 public:
  explicit Evaluator(const Beliefs& beliefs) : beliefs_(&beliefs) {}

  /// Fixes discrete `node` in `state` with numeric value `value` (the
  /// sampled point of an interval state); returns the binding's slot.
  std::size_t bind(const Node& node, std::size_t state, double value);
  /// Changes the numeric value of binding `slot`.
  void set_value(std::size_t slot, double value) noexcept { bindings_[slot].value = value; }
  /// Removes every binding.
  void clear() noexcept { bindings_.clear(); }

  /// The value of `e`, whose node leaves carry their resolved types.
  /// Throws Error (see the class comment) or FunctionNodeFailure.
  Value evaluate(const Expression& e);

  /// The state of discrete `node`: bound, or known from the beliefs;
  /// Error(no_value) or Error(not_compiled) otherwise.
  std::size_t state_of(const Node& node);
  /// The value of `node` as a node leaf gives it.
  Value value_of(const Node& node);
  /// The distribution of discrete `node` into `out`: a single state when it
  /// is bound, else the beliefs; Error(not_compiled) when unknown.
  void distribution_of(const Node& node, std::vector<double>& out);

 private:
  struct Binding {
    const Node* node;
    std::size_t state;
    double value;
  };

  const Binding* find(const Node& node) const noexcept;
  double function_value(const Node& node);
  double number(const Expression& e);
  bool truth(const Expression& e);
  Value call(const Expression& e);
  Value distribution(const Expression& e);
  double probability(const Expression& condition);
  double variance(const Node& node);

  const Beliefs* beliefs_;
  std::vector<Binding> bindings_;
  std::unordered_map<const Node*, std::size_t> known_states_;
  std::unordered_set<const Node*> checked_functions_;
  int function_depth_ = 0;
};

}  // namespace kelva
