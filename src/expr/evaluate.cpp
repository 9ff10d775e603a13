#include "expr/evaluate.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>
#include <vector>

#include "expr/expression.h"
#include "expr/model.h"
#include "network/node.h"
#include "table/table.h"

namespace kelva {

namespace {

double finite(double r) {
  if (!std::isfinite(r)) throw Error(K_ERROR_COMPUTATION_FAILED);
  return r;
}

void refuse_arguments() { throw Error(K_ERROR_INAPPROPRIATE_ARGUMENTS); }

Value number_value(double v) {
  Value r;
  r.kind = Value::Kind::number;
  r.number = v;
  return r;
}

Value boolean_value(bool b) {
  Value r;
  r.kind = Value::Kind::boolean;
  r.boolean = b;
  return r;
}

Value label_value(const char* text) {
  Value r;
  r.kind = Value::Kind::label;
  r.label = text;
  return r;
}

bool is_real_function(const Node& n) noexcept {
  return n.category() == K_CATEGORY_FUNCTION && n.kind() == K_KIND_OTHER;
}

// The numeric value that stands for state s of a numbered or interval node.
double state_point(const Node& n, std::size_t s) noexcept {
  if (n.subtype() == K_SUBTYPE_INTERVAL)
    return interval_point(n.state_value(s), n.state_value(s + 1));
  return n.state_value(s);
}

bool equal_values(const Value& a, const Value& b) {
  if (a.kind != b.kind) refuse_arguments();
  switch (a.kind) {
    case Value::Kind::number:
      return a.number == b.number;
    case Value::Kind::label:
      return std::strcmp(a.label, b.label) == 0;
    case Value::Kind::boolean:
      return a.boolean == b.boolean;
    default:
      refuse_arguments();
  }
  return false;
}

}  // namespace

bool PriorBeliefs::distribution(const Node& node, std::vector<double>& out) const {
  const Table* table = node.table();
  if (node.category() != K_CATEGORY_CHANCE || !node.is_discrete() || !node.parents().empty() ||
      table == nullptr || table->size() != node.state_count())
    return false;
  const double* data = table->data();
  double total = 0.0;
  for (std::size_t i = 0; i < node.state_count(); ++i) total += data[i];
  if (!(total > 0.0) || !std::isfinite(total)) return false;
  out.assign(data, data + node.state_count());
  for (double& p : out) p /= total;
  return true;
}

bool PriorBeliefs::moments(const Node&, double&, double&) const { return false; }

std::size_t Evaluator::bind(const Node& node, std::size_t state, double value) {
  bindings_.push_back({&node, state, value});
  return bindings_.size() - 1;
}

const Evaluator::Binding* Evaluator::find(const Node& node) const noexcept {
  for (const Binding& b : bindings_)
    if (b.node == &node) return &b;
  return nullptr;
}

std::size_t Evaluator::state_of(const Node& node) {
  if (const Binding* b = find(node)) return b->state;
  if (auto it = known_states_.find(&node); it != known_states_.end()) return it->second;
  std::vector<double> p;
  if (!beliefs_->distribution(node, p)) throw Error(K_ERROR_NOT_COMPILED);
  for (std::size_t s = 0; s < p.size(); ++s)
    if (p[s] == 1.0) {
      known_states_.emplace(&node, s);
      return s;
    }
  throw Error(K_ERROR_NO_VALUE);
}

void Evaluator::distribution_of(const Node& node, std::vector<double>& out) {
  if (const Binding* b = find(node)) {
    out.assign(node.state_count(), 0.0);
    out[b->state] = 1.0;
    return;
  }
  if (!beliefs_->distribution(node, out) || out.size() != node.state_count())
    throw Error(K_ERROR_NOT_COMPILED);
}

Value Evaluator::evaluate(const Expression& e) {
  switch (e.op()) {
    case K_OP_NUMBER:
      return number_value(e.number());
    case K_OP_LABEL:
      return label_value(e.label().c_str());
    case K_OP_BOOLEAN:
      return boolean_value(e.boolean());
    case K_OP_NODE:
      return value_of(*e.node());
    default:
      return call(e);
  }
}

Value Evaluator::value_of(const Node& node) {
  if (node.is_discrete()) {
    const std::size_t s = state_of(node);
    switch (node.subtype()) {
      case K_SUBTYPE_LABEL:
        return label_value(node.state_label(s));
      case K_SUBTYPE_BOOLEAN:
        return boolean_value(s == 1);
      case K_SUBTYPE_INTERVAL:
        if (const Binding* b = find(node)) return number_value(b->value);
        return number_value(state_point(node, s));
      default:
        return number_value(node.state_value(s));
    }
  }
  if (is_real_function(node)) return number_value(function_value(node));
  double mean = 0.0;
  double var = 0.0;
  if (!beliefs_->moments(node, mean, var)) throw Error(K_ERROR_NOT_COMPILED);
  if (node.is_continuous() && var != 0.0) throw Error(K_ERROR_NO_VALUE);
  return number_value(mean);
}

double Evaluator::function_value(const Node& node) {
  const bool outermost = function_depth_ == 0;
  ++function_depth_;
  try {
    const Model* model = node.model();
    if (model == nullptr) throw Error(K_ERROR_NO_VALUE);
    std::uint64_t index = 0;
    for (const Node* n : model->nodes()) index = index * n->state_count() + state_of(*n);
    Expression* e = model->expression(index);
    if (e == nullptr) throw Error(K_ERROR_INVALID_EXPRESSION);
    if (checked_functions_.insert(&node).second) {
      try {
        verify_types(*e, true);
      } catch (...) {
        checked_functions_.erase(&node);
        throw;
      }
    }
    const Value v = evaluate(*e);
    if (v.kind != Value::Kind::number) throw Error(K_ERROR_INVALID_EXPRESSION);
    --function_depth_;
    return v.number;
  } catch (const Error& err) {
    --function_depth_;
    if (outermost) throw FunctionNodeFailure(err.code(), node);
    throw;
  } catch (...) {
    --function_depth_;
    throw;
  }
}

double Evaluator::number(const Expression& e) {
  if (e.op() == K_OP_NUMBER) return e.number();
  const Value v = evaluate(e);
  if (v.kind != Value::Kind::number) refuse_arguments();
  return v.number;
}

bool Evaluator::truth(const Expression& e) {
  if (e.op() == K_OP_BOOLEAN) return e.boolean();
  const Value v = evaluate(e);
  if (v.kind != Value::Kind::boolean) refuse_arguments();
  return v.boolean;
}

Value Evaluator::call(const Expression& e) {
  const ExpressionList& ops = e.operands();
  auto arg = [&](std::size_t i) { return number(*ops[i]); };
  const int op = e.op();
  if (op <= K_OP_AGGREGATE) return distribution(e);
  switch (op) {
    case K_OP_PROBABILITY:
      return number_value(probability(*ops[0]));
    case K_OP_VARIANCE:
      return number_value(variance(*ops[0]->node()));
    case K_OP_MIN:
    case K_OP_MAX: {
      double r = arg(0);
      for (std::size_t i = 1; i < ops.size(); ++i)
        r = op == K_OP_MIN ? std::min(r, arg(i)) : std::max(r, arg(i));
      return number_value(r);
    }
    case K_OP_LOG:
    case K_OP_LOG2:
    case K_OP_LOG10: {
      const double x = arg(0);
      if (!(x > 0.0)) refuse_arguments();
      return number_value(finite(op == K_OP_LOG    ? std::log(x)
                                 : op == K_OP_LOG2 ? std::log2(x)
                                                   : std::log10(x)));
    }
    case K_OP_EXP:
      return number_value(finite(std::exp(arg(0))));
    case K_OP_SIN:
      return number_value(finite(std::sin(arg(0))));
    case K_OP_COS:
      return number_value(finite(std::cos(arg(0))));
    case K_OP_TAN:
      return number_value(finite(std::tan(arg(0))));
    case K_OP_SINH:
      return number_value(finite(std::sinh(arg(0))));
    case K_OP_COSH:
      return number_value(finite(std::cosh(arg(0))));
    case K_OP_TANH:
      return number_value(finite(std::tanh(arg(0))));
    case K_OP_SQRT: {
      const double x = arg(0);
      if (x < 0.0) refuse_arguments();
      return number_value(finite(std::sqrt(x)));
    }
    case K_OP_ABS:
      return number_value(std::fabs(arg(0)));
    case K_OP_FLOOR:
      return number_value(std::floor(arg(0)));
    case K_OP_CEIL:
      return number_value(std::ceil(arg(0)));
    case K_OP_MOD: {
      const double a = arg(0);
      const double b = arg(1);
      if (b == 0.0) throw Error(K_ERROR_DIVISION_BY_ZERO);
      return number_value(finite(a - b * std::floor(a / b)));
    }
    case K_OP_IF:
      return truth(*ops[0]) ? evaluate(*ops[1]) : evaluate(*ops[2]);
    case K_OP_AND:
      for (const Expression* o : ops)
        if (!truth(*o)) return boolean_value(false);
      return boolean_value(true);
    case K_OP_OR:
      for (const Expression* o : ops)
        if (truth(*o)) return boolean_value(true);
      return boolean_value(false);
    case K_OP_NOT:
      return boolean_value(!truth(*ops[0]));
    case K_OP_ADD:
    case K_OP_SUBTRACT:
    case K_OP_MULTIPLY:
    case K_OP_DIVIDE: {
      // A chain (a flat sum, say) in a loop, left to right.
      const std::vector<const Expression*> links = chain_links(e);
      double a = number(*links.back()->operands()[0]);
      for (std::size_t i = links.size(); i-- > 0;) {
        const double b = number(*links[i]->operands()[1]);
        switch (links[i]->op()) {
          case K_OP_ADD:
            a = finite(a + b);
            break;
          case K_OP_SUBTRACT:
            a = finite(a - b);
            break;
          case K_OP_MULTIPLY:
            a = finite(a * b);
            break;
          default:
            if (b == 0.0) throw Error(K_ERROR_DIVISION_BY_ZERO);
            a = finite(a / b);
            break;
        }
      }
      return number_value(a);
    }
    case K_OP_POWER: {
      const double a = arg(0);
      const double b = arg(1);
      if (a == 0.0 && b < 0.0) throw Error(K_ERROR_DIVISION_BY_ZERO);
      if (a < 0.0 && std::floor(b) != b) refuse_arguments();
      return number_value(finite(std::pow(a, b)));
    }
    case K_OP_NEGATE:
      return number_value(-arg(0));
    case K_OP_STATE_INDEX:
      return number_value(static_cast<double>(state_of(*ops[0]->node())));
    case K_OP_EQUALS:
      return boolean_value(equal_values(evaluate(*ops[0]), evaluate(*ops[1])));
    case K_OP_NOT_EQUALS:
      return boolean_value(!equal_values(evaluate(*ops[0]), evaluate(*ops[1])));
    case K_OP_LESS_THAN:
      return boolean_value(arg(0) < arg(1));
    case K_OP_GREATER_THAN:
      return boolean_value(arg(0) > arg(1));
    case K_OP_LESS_THAN_OR_EQUALS:
      return boolean_value(arg(0) <= arg(1));
    case K_OP_GREATER_THAN_OR_EQUALS:
      return boolean_value(arg(0) >= arg(1));
    default:
      throw Error(K_ERROR_INVALID_EXPRESSION);
  }
}

Value Evaluator::distribution(const Expression& e) {
  const ExpressionList& ops = e.operands();
  Value r;
  r.kind = Value::Kind::distribution;
  DistributionValue& d = r.distribution;
  switch (e.op()) {
    case K_OP_TRUNCATE: {
      // (lower, distribution [, upper]) or (distribution, upper).
      Value first = evaluate(*ops[0]);
      double lower = -HUGE_VAL;
      double upper = HUGE_VAL;
      Value inner;
      if (first.kind == Value::Kind::distribution) {
        inner = std::move(first);
        upper = number(*ops[1]);
      } else {
        if (first.kind != Value::Kind::number) refuse_arguments();
        lower = first.number;
        inner = evaluate(*ops[1]);
        if (ops.size() == 3) upper = number(*ops[2]);
      }
      if (inner.kind != Value::Kind::distribution) refuse_arguments();
      if (std::isnan(lower) || std::isnan(upper)) refuse_arguments();
      inner.distribution.truncated = true;
      inner.distribution.lower = std::max(inner.distribution.lower, lower);
      inner.distribution.upper = std::min(inner.distribution.upper, upper);
      return inner;
    }
    case K_OP_NOISY_OR:
      d.op = K_OP_NOISY_OR;
      for (std::size_t i = 0; i + 1 < ops.size(); i += 2) {
        d.args.push_back(truth(*ops[i]) ? 1.0 : 0.0);
        d.args.push_back(number(*ops[i + 1]));
      }
      return r;
    case K_OP_AGGREGATE:
      d.op = K_OP_AGGREGATE;
      d.count_node = ops[0]->node();
      d.term_node = ops[1]->node();
      return r;
    default:
      d.op = e.op();
      d.args.reserve(ops.size());
      for (const Expression* o : ops) d.args.push_back(number(*o));
      return r;
  }
}

double Evaluator::probability(const Expression& condition) {
  const Node* node = nullptr;
  for_each_node_leaf(condition, [&](const Node& n) {
    if (node == nullptr) node = &n;
  });
  if (node == nullptr || !node->is_discrete()) refuse_arguments();
  if (find(*node) != nullptr) return truth(condition) ? 1.0 : 0.0;
  std::vector<double> p;
  distribution_of(*node, p);
  double sum = 0.0;
  const std::size_t saved = bindings_.size();
  try {
    for (std::size_t s = 0; s < p.size(); ++s) {
      if (p[s] == 0.0) continue;
      bindings_.resize(saved);
      bind(*node, s,
           node->subtype() == K_SUBTYPE_NUMBER || node->subtype() == K_SUBTYPE_INTERVAL
               ? state_point(*node, s)
               : 0.0);
      if (truth(condition)) sum += p[s];
    }
  } catch (...) {
    bindings_.resize(saved);
    throw;
  }
  bindings_.resize(saved);
  return sum;
}

double Evaluator::variance(const Node& node) {
  if (!node.is_discrete()) {
    double mean = 0.0;
    double var = 0.0;
    if (!beliefs_->moments(node, mean, var)) throw Error(K_ERROR_NOT_COMPILED);
    return var;
  }
  if (node.subtype() != K_SUBTYPE_NUMBER && node.subtype() != K_SUBTYPE_INTERVAL)
    refuse_arguments();
  std::vector<double> p;
  distribution_of(node, p);
  double mean = 0.0;
  for (std::size_t s = 0; s < p.size(); ++s)
    if (p[s] > 0.0) mean += p[s] * state_point(node, s);
  double var = 0.0;
  for (std::size_t s = 0; s < p.size(); ++s)
    if (p[s] > 0.0) var += p[s] * (state_point(node, s) - mean) * (state_point(node, s) - mean);
  return finite(var);
}

}  // namespace kelva
