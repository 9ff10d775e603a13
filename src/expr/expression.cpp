#include "expr/expression.h"

#include <string>
#include <utility>

#include "model/error.h"
#include "model/node.h"

namespace kelva {

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
  e->type_ = node.is_continuous() ? ExprType::numeric : ExprType::node;
  e->node_ = &node;
  return e;
}

void ExpressionFactory::release(Expression* e) noexcept {
  // Iterative over a work list would avoid deep recursion; trees are bounded
  // by the parser's depth guard, so recursion is fine here.
  if (e == nullptr || e->use_count_ > 0) return;
  for (Expression* operand : e->operands_) {
    --operand->use_count_;
    release(operand);
  }
  delete e;
}

void ExpressionFactory::hold(Expression* e) noexcept {
  if (e != nullptr) ++e->use_count_;
}

void ExpressionFactory::let_go(Expression* e) noexcept {
  if (e == nullptr) return;
  --e->use_count_;
  release(e);
}

}  // namespace kelva
