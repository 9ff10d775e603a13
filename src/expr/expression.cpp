#include "expr/expression.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

#include "network/error.h"
#include "network/node.h"

namespace kelva {

namespace {

constexpr int kFirstOperator = K_OP_NORMAL;
constexpr int kLastFunction = K_OP_NOT;
constexpr int kLastComposite = K_OP_GREATER_THAN_OR_EQUALS;
constexpr int kAny = -1;  // no upper bound on the operand count

// Text form and operand counts of the composite operators, indexed by
// code - 60.  Beta (2 or 4) and NoisyOR (even) get extra checks in
// arity_ok().
struct OperatorRow {
  const char* name;
  int min_operands;
  int max_operands;
};

constexpr OperatorRow kOperators[] = {
    {"Normal", 2, 2},      {"LogNormal", 2, 3},
    {"Beta", 2, 4},        {"Gamma", 2, 3},
    {"Exponential", 1, 2}, {"Weibull", 2, 3},
    {"Uniform", 2, 2},     {"Triangular", 3, 3},
    {"PERT", 3, 4},        {"Binomial", 2, 2},
    {"Poisson", 1, 1},     {"NegativeBinomial", 2, 2},
    {"Geometric", 1, 1},   {"Distribution", 1, kAny},
    {"NoisyOR", 2, kAny},  {"truncate", 2, 3},
    {"aggregate", 2, 2},   {"probability", 1, 1},
    {"variance", 1, 1},    {"min", 1, kAny},
    {"max", 1, kAny},      {"log", 1, 1},
    {"log2", 1, 1},        {"log10", 1, 1},
    {"exp", 1, 1},         {"sin", 1, 1},
    {"cos", 1, 1},         {"tan", 1, 1},
    {"sinh", 1, 1},        {"cosh", 1, 1},
    {"tanh", 1, 1},        {"sqrt", 1, 1},
    {"abs", 1, 1},         {"floor", 1, 1},
    {"ceil", 1, 1},        {"mod", 2, 2},
    {"if", 3, 3},          {"and", 0, kAny},
    {"or", 0, kAny},       {"not", 1, 1},
    {"+", 2, 2},           {"-", 2, 2},
    {"*", 2, 2},           {"/", 2, 2},
    {"^", 2, 2},           {"-", 1, 1},
    {"#", 1, 1},           {"==", 2, 2},
    {"<", 2, 2},           {">", 2, 2},
    {"!=", 2, 2},          {"<=", 2, 2},
    {">=", 2, 2},
};
static_assert(std::size(kOperators) == kLastComposite - kFirstOperator + 1);

const OperatorRow& row(int op) noexcept { return kOperators[op - kFirstOperator]; }

bool arity_ok(int op, std::size_t n) noexcept {
  const OperatorRow& r = row(op);
  if (n < static_cast<std::size_t>(r.min_operands)) return false;
  if (r.max_operands != kAny && n > static_cast<std::size_t>(r.max_operands)) return false;
  if (op == K_OP_BETA) return n != 3;
  if (op == K_OP_NOISY_OR) return n % 2 == 0;
  return true;
}

bool is_num(ExprType t) noexcept { return t == ExprType::numeric || t == ExprType::node; }
bool is_bool(ExprType t) noexcept { return t == ExprType::boolean || t == ExprType::node; }
bool is_discrete_node_leaf(const Expression& e) noexcept {
  return e.op() == K_OP_NODE && e.node()->is_discrete();
}

[[noreturn]] void invalid() { throw Error(K_ERROR_INVALID_EXPRESSION); }
void check(bool condition) {
  if (!condition) invalid();
}

// The result of "if" from its branch types: equal types stay; otherwise the
// lattice of the pure types (1-4) and the "distribution or" types (5-9).
ExprType if_type(ExprType a, ExprType b) {
  if (a == b) return a;
  const int h = std::max(static_cast<int>(a), static_cast<int>(b));
  const int l = std::min(static_cast<int>(a), static_cast<int>(b));
  constexpr int kNode = static_cast<int>(ExprType::node);
  constexpr int kDistribution = static_cast<int>(ExprType::distribution);
  int result = 0;
  if (h < kNode) invalid();
  if (h == kNode) {
    result = l;
  } else if (h == kDistribution) {
    result = l + 5;
  } else if (h < static_cast<int>(ExprType::distribution_or_node)) {
    check(l == kDistribution || l == h - 5 || l == kNode);
    result = h;
  } else if (l == kDistribution) {
    result = h;
  } else {
    result = l < kDistribution ? l + 5 : l;
  }
  return static_cast<ExprType>(result);
}

// The result type of composite `op` over operands of types `types`; the
// operands themselves are needed where a rule asks for node leaves.
ExprType result_type(int op, const std::vector<Expression*>& operands,
                     const std::vector<ExprType>& types) {
  const std::size_t n = types.size();
  const auto all = [&](bool (*test)(ExprType)) {
    return std::all_of(types.begin(), types.end(), test);
  };
  switch (op) {
    case K_OP_NOISY_OR:
      for (std::size_t i = 0; i < n; i += 2) check(is_bool(types[i]) && is_num(types[i + 1]));
      return ExprType::distribution;
    case K_OP_TRUNCATE: {
      constexpr ExprType kDist = ExprType::distribution;
      const bool bounded_below =
          is_num(types[0]) && types[1] == kDist && (n == 2 || is_num(types[2]));
      const bool bounded_above = n == 2 && types[0] == kDist && is_num(types[1]);
      check(bounded_below || bounded_above);
      return kDist;
    }
    case K_OP_AGGREGATE:
      check(is_discrete_node_leaf(*operands[0]) && is_discrete_node_leaf(*operands[1]));
      return ExprType::distribution;
    case K_OP_PROBABILITY:
      check(all(is_bool));
      return ExprType::numeric;
    case K_OP_VARIANCE: {
      const Expression& e = *operands[0];
      check(e.op() == K_OP_NODE &&
            (e.node()->kind() == K_KIND_DISCRETE || e.node()->kind() == K_KIND_CONTINUOUS ||
             e.node()->category() == K_CATEGORY_UTILITY));
      return ExprType::numeric;
    }
    case K_OP_IF:
      check(is_bool(types[0]));
      return if_type(types[1], types[2]);
    case K_OP_AND:
    case K_OP_OR:
    case K_OP_NOT:
      check(all(is_bool));
      return ExprType::boolean;
    case K_OP_STATE_INDEX:
      check(is_discrete_node_leaf(*operands[0]));
      return ExprType::numeric;
    case K_OP_EQUALS:
    case K_OP_NOT_EQUALS: {
      const ExprType a = types[0], b = types[1];
      check(a < ExprType::distribution && b < ExprType::distribution);
      check(a == b || a == ExprType::node || b == ExprType::node);
      return ExprType::boolean;
    }
    case K_OP_LESS_THAN:
    case K_OP_GREATER_THAN:
    case K_OP_LESS_THAN_OR_EQUALS:
    case K_OP_GREATER_THAN_OR_EQUALS:
      check(all(is_num));
      return ExprType::boolean;
    default:
      // The distributions 60-73, the functions "min" to "mod" and the
      // arithmetic operators: numbers in.
      check(all(is_num));
      return op <= K_OP_DISTRIBUTION ? ExprType::distribution : ExprType::numeric;
  }
}

// The type of a leaf; discrete node leaves are `node` unless resolved.
ExprType leaf_type(Expression& e, bool resolve) {
  if (e.op() != K_OP_NODE) return e.type();
  const Node& n = *e.node();
  if (!n.is_discrete()) return ExprType::numeric;
  if (!resolve) return ExprType::node;
  ExprType t = ExprType::node;
  switch (n.subtype()) {
    case K_SUBTYPE_LABEL:
      t = ExprType::label;
      break;
    case K_SUBTYPE_BOOLEAN:
      t = ExprType::boolean;
      break;
    case K_SUBTYPE_NUMBER:
    case K_SUBTYPE_INTERVAL:
      t = ExprType::numeric;
      break;
    default:
      invalid();
  }
  e.set_type(t);
  return t;
}

// Operand rule of "probability": one discrete node inside, and no nested
// "probability".
void verify_probability_operand(const Expression& operand) {
  const Node* only = nullptr;
  bool same = true;
  for_each_node_leaf(operand, [&](const Node& n) {
    if (only == nullptr) only = &n;
    same = same && only == &n;
  });
  check(only != nullptr && same && only->is_discrete());
  check(!contains_operator(operand, K_OP_PROBABILITY));
}

}  // namespace

Expression* ExpressionFactory::number(double value) {
  auto* e = new Expression();
  e->op_ = K_OP_NUMBER;
  e->type_ = ExprType::numeric;
  e->number_ = value;
  return e;
}

Expression* ExpressionFactory::label(const char* text) {
  require(text != nullptr);
  std::string copy(text);
  auto* e = new Expression();
  e->label_ = std::move(copy);
  e->op_ = K_OP_LABEL;
  e->type_ = ExprType::label;
  return e;
}

Expression* ExpressionFactory::boolean(bool value) {
  auto* e = new Expression();
  e->op_ = K_OP_BOOLEAN;
  e->type_ = ExprType::boolean;
  e->boolean_ = value;
  return e;
}

Expression* ExpressionFactory::node(Node& node) {
  require(node.category() != K_CATEGORY_INSTANCE);
  auto* e = new Expression();
  e->op_ = K_OP_NODE;
  e->type_ = node.is_discrete() ? ExprType::node : ExprType::numeric;
  e->node_ = &node;
  return e;
}

Expression* ExpressionFactory::composite(int op, const std::vector<Expression*>& operands) {
  require(op >= kFirstOperator && op <= kLastComposite);
  for (const Expression* operand : operands) require(operand != nullptr);
  check(arity_ok(op, operands.size()));

  std::vector<ExprType> types;
  types.reserve(operands.size());
  int height = 0;
  for (std::size_t i = 0; i < operands.size(); ++i) {
    const Expression* operand = operands[i];
    types.push_back(leaf_type(*operands[i], false));  // composites: their own type
    const bool chain = i == 0 && continues_chain(op, *operand);
    height = std::max(height, operand->height_ + (chain ? 0 : 1));
  }
  const ExprType type = result_type(op, operands, types);
  if (op == K_OP_PROBABILITY) verify_probability_operand(*operands[0]);
  check(height <= kMaxExpressionHeight);

  auto* e = new Expression();
  try {
    e->operands_.reserve_more(operands.size());
  } catch (...) {
    delete e;
    throw;
  }
  e->op_ = op;
  e->type_ = type;
  e->height_ = height;
  for (Expression* operand : operands) {
    e->operands_.push_back(operand);  // cannot throw after the reserve
    ++operand->use_count_;
  }
  return e;
}

void ExpressionFactory::release(Expression* e) noexcept {
  // Recursion is bounded by kMaxExpressionHeight: the left operand that
  // continues a chain is released in the loop.
  while (e != nullptr && e->use_count_ == 0) {
    Expression* next = nullptr;
    for (std::size_t i = 0; i < e->operands_.size(); ++i) {
      Expression* operand = e->operands_[i];
      --operand->use_count_;
      if (i == 0 && continues_chain(e->op_, *operand)) next = operand;
      else release(operand);
    }
    delete e;
    e = next;
  }
}

void ExpressionFactory::hold(Expression* e) noexcept {
  if (e != nullptr) ++e->use_count_;
}

void ExpressionFactory::let_go(Expression* e) noexcept {
  if (e == nullptr) return;
  --e->use_count_;
  release(e);
}

Expression* copy_expression(const Expression& e, const NodeMap& map) {
  switch (e.op()) {
    case K_OP_NUMBER:
      return ExpressionFactory::number(e.number());
    case K_OP_LABEL:
      return ExpressionFactory::label(e.label().c_str());
    case K_OP_BOOLEAN:
      return ExpressionFactory::boolean(e.boolean());
    case K_OP_NODE:
      return ExpressionFactory::node(map ? map(*e.node()) : *e.node());
    default:
      break;
  }
  if (heads_chain(e)) {
    // Bottom up along the chain, each copy the left operand of the next.
    const std::vector<const Expression*> links = chain_links(e);
    Expression* made = copy_expression(*links.back()->operands()[0], map);
    for (std::size_t i = links.size(); i-- > 0;) {
      Expression* right = nullptr;
      try {
        right = copy_expression(*links[i]->operands()[1], map);
        made = ExpressionFactory::composite(links[i]->op(), {made, right});
      } catch (...) {
        ExpressionFactory::release(made);
        ExpressionFactory::release(right);
        throw;
      }
    }
    return made;
  }
  std::vector<Expression*> copies;
  try {
    copies.reserve(e.operands().size());
    for (const Expression* operand : e.operands()) copies.push_back(copy_expression(*operand, map));
    return ExpressionFactory::composite(e.op(), copies);
  } catch (...) {
    for (Expression* c : copies) ExpressionFactory::release(c);
    throw;
  }
}

ExprType verify_types(Expression& e, bool resolve) {
  if (!e.is_composite()) return leaf_type(e, resolve);
  if (heads_chain(e)) {
    // The operands of a chain link are its left neighbour and a right operand.
    const std::vector<const Expression*> links = chain_links(e);
    Expression* left = links.back()->operands()[0];
    ExprType type = verify_types(*left, resolve);
    for (std::size_t i = links.size(); i-- > 0;) {
      Expression* right = links[i]->operands()[1];
      const ExprType right_type = verify_types(*right, resolve);
      type = result_type(links[i]->op(), {left, right}, {type, right_type});
      left = const_cast<Expression*>(links[i]);
    }
    return type;
  }
  std::vector<ExprType> types;
  types.reserve(e.operands().size());
  for (Expression* operand : e.operands()) types.push_back(verify_types(*operand, resolve));
  const std::vector<Expression*> operands(e.operands().begin(), e.operands().end());
  return result_type(e.op(), operands, types);
}

bool contains_operator(const Expression& e, int op) noexcept {
  for (const Expression* x = &e; x != nullptr;) {
    if (x->op() == op) return true;
    const Expression* next = nullptr;
    const ExpressionList& operands = x->operands();
    for (std::size_t i = 0; i < operands.size(); ++i) {
      if (i == 0 && continues_chain(x->op(), *operands[0])) next = operands[0];
      else if (contains_operator(*operands[i], op)) return true;
    }
    x = next;
  }
  return false;
}

bool continues_chain(int op, const Expression& left) noexcept {
  const auto additive = [](int o) { return o == K_OP_ADD || o == K_OP_SUBTRACT; };
  const auto multiplicative = [](int o) { return o == K_OP_MULTIPLY || o == K_OP_DIVIDE; };
  return (additive(op) && additive(left.op())) || (multiplicative(op) && multiplicative(left.op()));
}

bool heads_chain(const Expression& e) noexcept {
  return !e.operands().empty() && continues_chain(e.op(), *e.operands()[0]);
}

std::vector<const Expression*> chain_links(const Expression& e) {
  std::vector<const Expression*> links{&e};
  while (heads_chain(*links.back())) links.push_back(links.back()->operands()[0]);
  return links;
}

int function_operator(const char* name) noexcept {
  if (name == nullptr) return -1;
  for (int op = kFirstOperator; op <= kLastFunction; ++op)
    if (std::strcmp(row(op).name, name) == 0) return op;
  return -1;
}

const char* operator_name(int op) noexcept {
  return op >= kFirstOperator && op <= kLastComposite ? row(op).name : nullptr;
}

}  // namespace kelva
