#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "kelva/kelva.h"
#include "network/node_list.h"
#include "network/object.h"

namespace kelva {

class Domain;
class Node;

/// The value types of expressions.  The numbers are fixed: the "if" rule
/// computes with them.
enum class ExprType : int {
  numeric = 1,
  label = 2,
  boolean = 3,
  node = 4,  // a discrete node not yet resolved: matches numeric, label, boolean
  distribution = 5,
  distribution_or_numeric = 6,
  distribution_or_label = 7,
  distribution_or_boolean = 8,
  distribution_or_node = 9,
};

class Expression;
using ExpressionList = PtrList<Expression>;

/// The greatest height of an expression tree (a leaf has height 0).  Every
/// walk over a tree recurses once per level, so the bound keeps the stack
/// safe on threads with small stacks (those of a Java VM, say); a deeper
/// composite is refused as "invalid_expression", and the parser refuses
/// deeper nesting as a syntax error.  A left-associative chain (a flat sum
/// `a + b - c + ...`, or product) is one level however long: walks go down
/// its left operands in a loop.
inline constexpr int kMaxExpressionHeight = 500;

/// One node of an expression tree.  Operands are shared between composites
/// and counted by `use_count`; a tree is fixed in shape once built.
class Expression : public Object {
 public:
  int op() const noexcept { return op_; }
  ExprType type() const noexcept { return type_; }
  /// The resolving type check writes the resolved type into node leaves.
  void set_type(ExprType type) noexcept { type_ = type; }
  int use_count() const noexcept { return use_count_; }
  bool is_composite() const noexcept { return op_ < K_OP_NUMBER; }
  /// Levels below this one: 0 for a leaf, else one more than the highest
  /// operand, except that a left operand continuing the chain counts as
  /// its own height (see continues_chain).
  int height() const noexcept { return height_; }

  double number() const noexcept { return number_; }
  const std::string& label() const noexcept { return label_; }
  Node* node() const noexcept { return node_; }
  bool boolean() const noexcept { return boolean_; }
  /// Operands of a composite, null-ended.
  const ExpressionList& operands() const noexcept { return operands_; }

 private:
  friend class ExpressionFactory;
  Expression() : Object(ObjectTag::expression) {}
  ~Expression() = default;

  int op_ = K_OP_ERROR;
  ExprType type_ = ExprType::numeric;
  int use_count_ = 0;
  int height_ = 0;
  double number_ = 0.0;
  std::string label_;
  Node* node_ = nullptr;
  bool boolean_ = false;
  ExpressionList operands_;
};

/// Makes and frees expressions.  Every function either returns a new
/// expression (use count 0) or throws kelva::Error and creates nothing.
class ExpressionFactory {
 public:
  static Expression* number(double value);
  static Expression* label(const char* text);
  static Expression* boolean(bool value);
  /// A node leaf: `node` for a discrete node, `numeric` for any other (a
  /// continuous node, or a utility or real-valued function node, whose
  /// values are numbers); Error(usage) for an instance node.
  static Expression* node(Node& node);
  /// A composite after the arity, type and "probability" checks, in order
  /// (Error(usage) for an operator outside 60..112 or a null operand,
  /// Error(invalid_expression) otherwise, also for a tree higher than
  /// kMaxExpressionHeight).  Each operand's use count goes up by one; on
  /// failure the operands are untouched.
  static Expression* composite(int op, const std::vector<Expression*>& operands);
  /// Frees `e` when no composite holds it (use count 0); a composite then
  /// releases its operands by the same rule.  Null is ignored.
  static void release(Expression* e) noexcept;
  /// Holds / lets go of an expression on behalf of an owner that is not a
  /// composite (a model slot): the use count goes up / down, and an
  /// expression let go of is freed when nothing else holds it.
  static void hold(Expression* e) noexcept;
  static void let_go(Expression* e) noexcept;
};

/// Whether `left`, as the left operand of an operator `op`, continues a
/// left-associative chain: both are "+" or two-operand "-", or both are "*"
/// or "/".
bool continues_chain(int op, const Expression& left) noexcept;

/// Whether the first operand of `e` continues a chain with it.
bool heads_chain(const Expression& e) noexcept;

/// The links of the chain that `e` heads, from `e` down (each the left
/// operand of the one before); just `e` when it heads none.  The first
/// operand of the last link is where evaluation starts.
std::vector<const Expression*> chain_links(const Expression& e);

/// Maps a node of an expression being copied to the node its copy names.
using NodeMap = std::function<Node&(Node&)>;

/// A deep copy of `e`: node pointers kept, or mapped through `map` (node
/// leaves are resolved again when tables are generated); Error on failure,
/// with nothing left behind.
Expression* copy_expression(const Expression& e, const NodeMap& map = nullptr);

/// The type of `e` by the type rules, computed bottom-up; with `resolve`,
/// discrete node leaves are resolved by their node's subtype (label,
/// boolean, or numeric for number and interval nodes) and the resolved type
/// is written into them (composites keep the unresolved type they were made
/// with).  Without `resolve` every discrete node leaf counts as `node`.
/// Throws Error(invalid_expression) when a rule fails.
ExprType verify_types(Expression& e, bool resolve);

/// Whether `e` contains operator `op` anywhere.
bool contains_operator(const Expression& e, int op) noexcept;
/// Calls f(node) for every node leaf of `e`.  A chain's links are visited
/// in a loop, so recursion stays within the tree's height.
template <class F>
void for_each_node_leaf(const Expression& e, F&& f) {
  for (const Expression* x = &e; x != nullptr;) {
    if (x->op() == K_OP_NODE) f(*x->node());
    const Expression* next = nullptr;
    const ExpressionList& operands = x->operands();
    for (std::size_t i = 0; i < operands.size(); ++i) {
      if (i == 0 && continues_chain(x->op(), *operands[0])) next = operands[0];
      else for_each_node_leaf(*operands[i], f);
    }
    x = next;
  }
}

/// The printed form of `e` (the empty text for null): numbers with "%G", or
/// with `digits` significant digits when that is not 0.  Throws
/// Error(locale) when the "C" locale cannot be established.
std::string expression_to_string(const Expression* e, int digits = 0);

/// Parses `text` into a new expression whose names are resolved among the
/// nodes of `scope`, under the "C" locale.  Grammar errors set "syntax"
/// (also nesting deeper than kMaxExpressionHeight: "expression too deeply
/// nested"), lexical ones "parse"; messages go to `handler` with the count
/// of characters consumed.  Throws Error on failure, with every partial tree
/// freed.
Expression* parse_expression(const char* text, Domain& scope, k_parse_error_handler_t handler,
                             void* data);

/// The operator with function name `name` (codes 60..99), or -1.
int function_operator(const char* name) noexcept;
/// The text form of operator `op` (function name or symbol), or null.
const char* operator_name(int op) noexcept;

}  // namespace kelva
