// Expression trees: operand counts and type rules of every operator, use
// counts, deep copies, the printed text, and the C functions.
#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "expr/expression_fixture.h"

namespace kelva {
namespace {

using test::ExprNet;

std::string text(const Expression* e) { return expression_to_string(e); }

TEST(ExpressionFactory, OperandCountsOfEveryOperator) {
  ExprNet net;
  // A discrete node leaf passes every operand rule except truncate's
  // distribution, so only the count decides.  Accepted counts among 0..5:
  const std::vector<std::pair<int, const char*>> accepted = {
      {K_OP_NORMAL, "2"},    {K_OP_LOGNORMAL, "23"},       {K_OP_BETA, "24"},
      {K_OP_GAMMA, "23"},    {K_OP_EXPONENTIAL, "12"},     {K_OP_WEIBULL, "23"},
      {K_OP_UNIFORM, "2"},   {K_OP_TRIANGULAR, "3"},       {K_OP_PERT, "34"},
      {K_OP_BINOMIAL, "2"},  {K_OP_POISSON, "1"},          {K_OP_NEGATIVE_BINOMIAL, "2"},
      {K_OP_GEOMETRIC, "1"}, {K_OP_DISTRIBUTION, "12345"}, {K_OP_NOISY_OR, "24"},
      {K_OP_AGGREGATE, "2"}, {K_OP_PROBABILITY, "1"},      {K_OP_VARIANCE, "1"},
      {K_OP_MIN, "12345"},   {K_OP_MAX, "12345"},          {K_OP_MOD, "2"},
      {K_OP_IF, "3"},        {K_OP_AND, "012345"},         {K_OP_OR, "012345"},
      {K_OP_NOT, "1"},       {K_OP_NEGATE, "1"},           {K_OP_STATE_INDEX, "1"},
  };
  auto expected = [&](int op) -> std::string {
    for (const auto& [code, counts] : accepted)
      if (code == op) return counts;
    if (op >= K_OP_LOG && op <= K_OP_CEIL) return "1";
    return "2";  // the infix operators
  };
  for (int op = K_OP_NORMAL; op <= K_OP_GREATER_THAN_OR_EQUALS; ++op) {
    if (op == K_OP_TRUNCATE) continue;
    for (int n = 0; n <= 5; ++n) {
      Expression* operand = net.leaf(net.a);
      std::vector<Expression*> operands(static_cast<std::size_t>(n), operand);
      const bool ok = expected(op).find(static_cast<char>('0' + n)) != std::string::npos;
      try {
        Expression* e = net.keep(ExpressionFactory::composite(op, operands));
        EXPECT_TRUE(ok) << op << " with " << n;
        EXPECT_EQ(operand->use_count(), n);
        EXPECT_EQ(e->operands().size(), static_cast<std::size_t>(n));
        EXPECT_EQ(e->operands().data()[n], nullptr);
      } catch (const Error& error) {
        EXPECT_FALSE(ok) << op << " with " << n;
        EXPECT_EQ(error.code(), K_ERROR_INVALID_EXPRESSION);
        EXPECT_EQ(operand->use_count(), 0);
      }
    }
  }
  // Outside 60..112 and null operands are usage errors.
  for (int op : {59, 113, 116, 117}) EXPECT_EQ(net.refusal(op, {}), K_ERROR_USAGE);
  EXPECT_EQ(net.refusal(K_OP_ADD, {net.num(1), nullptr}), K_ERROR_USAGE);
}

TEST(ExpressionFactory, TypeRules) {
  ExprNet net;
  auto normal = [&] { return net.op(K_OP_NORMAL, {net.num(0), net.num(1)}); };
  auto is_s = [&](k_node_t n) { return net.op(K_OP_EQUALS, {net.leaf(n), net.lab("s")}); };
  // Making `op` over `operands` gives `type` (0: refused, and the operands
  // keep their use counts).
  auto rule = [&](const char* what, int op, std::vector<Expression*> operands, int type) {
    SCOPED_TRACE(what);
    std::vector<int> before;
    for (Expression* e : operands) before.push_back(e->use_count());
    try {
      Expression* e = net.keep(ExpressionFactory::composite(op, operands));
      EXPECT_EQ(static_cast<int>(e->type()), type);
      EXPECT_EQ(static_cast<int>(verify_types(*e, false)), type);
    } catch (const Error& error) {
      EXPECT_EQ(type, 0);
      EXPECT_EQ(error.code(), K_ERROR_INVALID_EXPRESSION);
      for (std::size_t i = 0; i < operands.size(); ++i)
        EXPECT_EQ(operands[i]->use_count(), before[i]);
    }
  };
  rule("Normal of numbers and nodes", K_OP_NORMAL, {net.leaf(net.x), net.leaf(net.N)}, 5);
  rule("Normal of a label", K_OP_NORMAL, {net.lab("s"), net.num(1)}, 0);
  rule("Distribution of a distribution", K_OP_DISTRIBUTION, {normal()}, 0);
  rule("NoisyOR pairs", K_OP_NOISY_OR,
       {net.leaf(net.B), net.num(0.1), net.leaf(net.a), net.num(0.2)}, 5);
  rule("NoisyOR number first", K_OP_NOISY_OR, {net.num(1), net.num(0.1)}, 0);
  rule("NoisyOR boolean second", K_OP_NOISY_OR, {net.leaf(net.B), net.bln(true)}, 0);
  rule("truncate low, dist, high", K_OP_TRUNCATE, {net.num(0), normal(), net.leaf(net.x)}, 5);
  rule("truncate dist, high", K_OP_TRUNCATE, {normal(), net.num(1)}, 5);
  rule("truncate dist, high, more", K_OP_TRUNCATE, {normal(), net.num(1), net.num(2)}, 0);
  rule("truncate without dist", K_OP_TRUNCATE, {net.num(0), net.num(1)}, 0);
  rule("truncate of dist or number", K_OP_TRUNCATE,
       {net.num(0), net.op(K_OP_IF, {net.leaf(net.B), normal(), net.num(1)})}, 0);
  rule("aggregate of discrete nodes", K_OP_AGGREGATE, {net.leaf(net.N), net.leaf(net.I)}, 5);
  rule("aggregate of a continuous node", K_OP_AGGREGATE, {net.leaf(net.N), net.leaf(net.x)}, 0);
  rule("variance of a discrete node", K_OP_VARIANCE, {net.leaf(net.a)}, 1);
  rule("variance of a utility node", K_OP_VARIANCE, {net.leaf(net.U)}, 1);
  rule("variance of a real-valued function node", K_OP_VARIANCE, {net.leaf(net.F)}, 0);
  rule("# of a discrete node", K_OP_STATE_INDEX, {net.leaf(net.I)}, 1);
  rule("# of a composite", K_OP_STATE_INDEX, {net.op(K_OP_NEGATE, {net.leaf(net.N)})}, 0);
  rule("== node and label", K_OP_EQUALS, {net.leaf(net.a), net.lab("s")}, 3);
  rule("!= booleans", K_OP_NOT_EQUALS, {net.leaf(net.B), net.bln(false)}, 3);
  rule("== label and number", K_OP_EQUALS, {net.lab("s"), net.num(1)}, 0);
  rule("== continuous node and label", K_OP_EQUALS, {net.leaf(net.x), net.lab("s")}, 0);
  rule("== distribution and node", K_OP_EQUALS, {normal(), net.leaf(net.a)}, 0);
  rule("!= distribution or node and node", K_OP_NOT_EQUALS,
       {net.op(K_OP_IF, {net.leaf(net.B), normal(), net.leaf(net.a)}), net.leaf(net.a)}, 0);
  rule("< of labels", K_OP_LESS_THAN, {net.lab("s"), net.lab("t")}, 0);
  rule("and of booleans and nodes", K_OP_AND, {net.leaf(net.B), net.leaf(net.a), net.bln(true)}, 3);
  rule("or of a number", K_OP_OR, {net.num(1)}, 0);
  rule("not of a continuous node", K_OP_NOT, {net.leaf(net.x)}, 0);
  rule("if with a number condition", K_OP_IF, {net.num(1), net.num(1), net.num(2)}, 0);
  rule("+ of a comparison", K_OP_ADD, {is_s(net.a), net.num(1)}, 0);
  // "probability": one discrete node inside, no nested "probability".
  rule("probability of one node", K_OP_PROBABILITY, {is_s(net.a)}, 1);
  rule("probability of a node leaf", K_OP_PROBABILITY, {net.leaf(net.B)}, 1);
  rule("probability of two nodes", K_OP_PROBABILITY, {net.op(K_OP_AND, {is_s(net.a), is_s(net.b)})},
       0);
  rule("probability without a node", K_OP_PROBABILITY, {net.bln(true)}, 0);
  rule("probability of a continuous node", K_OP_PROBABILITY,
       {net.op(K_OP_GREATER_THAN, {net.leaf(net.x), net.num(0)})}, 0);
  rule("probability inside probability", K_OP_PROBABILITY,
       {net.op(K_OP_AND,
               {is_s(net.a), net.op(K_OP_GREATER_THAN,
                                    {net.op(K_OP_PROBABILITY, {is_s(net.a)}), net.num(0.5)})})},
       0);
}

TEST(ExpressionFactory, IfLattice) {
  ExprNet net;
  // One branch of each type 1..9: 6..9 are "distribution or" 1..4.
  auto normal = [&] { return net.op(K_OP_NORMAL, {net.num(0), net.num(1)}); };
  std::function<Expression*(int)> branch = [&](int type) -> Expression* {
    if (type == 1) return net.num(1);
    if (type == 2) return net.lab("s");
    if (type == 3) return net.bln(true);
    if (type == 4) return net.leaf(net.a);
    if (type == 5) return normal();
    return net.op(K_OP_IF, {net.leaf(net.B), normal(), branch(type - 5)});
  };
  // Result of "if" for branch types (row, column); 0: refused.
  const int lattice[9][9] = {
      {1, 0, 0, 1, 6, 6, 0, 0, 6}, {0, 2, 0, 2, 7, 0, 7, 0, 7}, {0, 0, 3, 3, 8, 0, 0, 8, 8},
      {1, 2, 3, 4, 9, 6, 7, 8, 9}, {6, 7, 8, 9, 5, 6, 7, 8, 9}, {6, 0, 0, 6, 6, 6, 0, 0, 6},
      {0, 7, 0, 7, 7, 0, 7, 0, 7}, {0, 0, 8, 8, 8, 0, 0, 8, 8}, {6, 7, 8, 9, 9, 6, 7, 8, 9},
  };
  for (int row = 1; row <= 9; ++row) {
    for (int column = 1; column <= 9; ++column) {
      Expression* then = branch(row);
      Expression* otherwise = branch(column);
      ASSERT_EQ(static_cast<int>(then->type()), row);
      const int expected = lattice[row - 1][column - 1];
      const k_error_t code = net.refusal(K_OP_IF, {net.leaf(net.B), then, otherwise});
      EXPECT_EQ(code, expected == 0 ? K_ERROR_INVALID_EXPRESSION : K_ERROR_NONE)
          << row << ", " << column;
      if (expected != 0) {
        Expression* e = net.op(K_OP_IF, {net.leaf(net.B), then, otherwise});
        EXPECT_EQ(static_cast<int>(e->type()), expected) << row << ", " << column;
      }
    }
  }
}

TEST(ExpressionFactory, ResolvedTypesFollowTheNodeSubtypes) {
  ExprNet net;
  // Unresolved, a discrete node matches anything; resolved, it is what its
  // subtype says, and the leaf keeps the resolved type.
  Expression* a = net.leaf(net.a);
  Expression* on_a = net.op(K_OP_IF, {net.leaf(net.B), a, net.num(1)});
  EXPECT_EQ(verify_types(*on_a, false), ExprType::numeric);
  EXPECT_THROW(verify_types(*on_a, true), Error);
  EXPECT_EQ(a->type(), ExprType::label);
  EXPECT_EQ(verify_types(*on_a, false), ExprType::numeric);
  // A composite made after the resolution still sees a node.
  EXPECT_EQ(net.op(K_OP_ADD, {a, net.num(1)})->type(), ExprType::numeric);

  Expression* on_n = net.op(K_OP_IF, {net.leaf(net.B), net.leaf(net.N), net.num(1)});
  EXPECT_EQ(verify_types(*on_n, true), ExprType::numeric);
  Expression* on_i = net.op(K_OP_IF, {net.leaf(net.I), net.num(1), net.num(2)});
  EXPECT_THROW(verify_types(*on_i, true), Error);  // a condition must be boolean
  Expression* on_b = net.op(K_OP_IF, {net.leaf(net.B), net.leaf(net.B), net.bln(false)});
  EXPECT_EQ(verify_types(*on_b, true), ExprType::boolean);
  Expression* mixed = net.op(
      K_OP_IF, {net.leaf(net.B), net.op(K_OP_NORMAL, {net.num(0), net.num(1)}), net.leaf(net.a)});
  EXPECT_EQ(mixed->type(), ExprType::distribution_or_node);
  EXPECT_EQ(verify_types(*mixed, true), ExprType::distribution_or_label);
  EXPECT_EQ(mixed->type(), ExprType::distribution_or_node);  // composites keep theirs

  // Leaves of nodes that are not discrete are numbers.
  EXPECT_EQ(net.leaf(net.x)->type(), ExprType::numeric);
  EXPECT_EQ(net.leaf(net.F)->type(), ExprType::numeric);
  EXPECT_EQ(net.leaf(net.N)->type(), ExprType::node);
}

TEST(ExpressionFactory, UseCountsShareAndReleaseOperands) {
  ExprNet net;
  k_expression_t one = k_number_make_expression(1);
  k_expression_t x = k_node_make_expression(net.x);
  const k_expression_t sum_operands[] = {x, one, nullptr};
  k_expression_t sum = k_make_composite_expression(K_OP_ADD, sum_operands);
  const k_expression_t product_operands[] = {sum, x, nullptr};
  k_expression_t product = k_make_composite_expression(K_OP_MULTIPLY, product_operands);
  ASSERT_NE(product, nullptr);
  auto uses = [](k_expression_t e) { return reinterpret_cast<Expression*>(e)->use_count(); };
  EXPECT_EQ(uses(x), 2);
  EXPECT_EQ(uses(sum), 1);

  // Deleting an operand of a live composite does nothing.
  EXPECT_EQ(k_expression_delete(x), 0);
  EXPECT_EQ(k_expression_delete(sum), 0);
  EXPECT_EQ(k_expression_get_node(x), net.x);
  EXPECT_EQ(k_expression_get_operator(sum), K_OP_ADD);

  // A refused composite leaves its operands as they were.
  const k_expression_t bad[] = {product, k_label_make_expression("s"), nullptr};
  EXPECT_EQ(k_make_composite_expression(K_OP_SUBTRACT, bad), nullptr);
  EXPECT_EQ(k_error_code(), K_ERROR_INVALID_EXPRESSION);
  EXPECT_EQ(uses(product), 0);
  EXPECT_EQ(k_expression_delete(bad[1]), 0);

  // A model slot holds an expression like a composite does.
  ExpressionFactory::hold(reinterpret_cast<Expression*>(product));
  EXPECT_EQ(k_expression_delete(product), 0);
  EXPECT_EQ(k_expression_get_operator(product), K_OP_MULTIPLY);
  // Letting go frees the whole tree (the sanitizer build checks for leaks).
  ExpressionFactory::let_go(reinterpret_cast<Expression*>(product));
}

TEST(ExpressionFactory, HeightIsBounded) {
  ExprNet net;
  Expression* e = net.leaf(net.x);
  for (int i = 0; i < kMaxExpressionHeight; ++i) e = net.op(K_OP_NEGATE, {e});
  EXPECT_EQ(e->height(), kMaxExpressionHeight);
  EXPECT_EQ(net.refusal(K_OP_ADD, {net.num(1), e}), K_ERROR_INVALID_EXPRESSION);
  EXPECT_EQ(e->use_count(), 0);
  // The tallest tree still prints ("-(-(...-x...))"), copies and checks.
  EXPECT_EQ(text(e).size(), static_cast<std::size_t>(3 * kMaxExpressionHeight - 1));
  Expression* copy = net.keep(copy_expression(*e));
  EXPECT_EQ(text(copy), text(e));
  EXPECT_EQ(verify_types(*copy, true), ExprType::numeric);
}

TEST(ExpressionFactory, CopiesAreDeepAndKeepNodes) {
  ExprNet net;
  Expression* shared = net.op(K_OP_EQUALS, {net.leaf(net.a), net.lab("s\1")});
  Expression* e = net.op(
      K_OP_IF,
      {net.op(K_OP_AND, {shared, shared, net.bln(true)}),
       net.op(K_OP_TRUNCATE, {net.num(-1.5), net.op(K_OP_NORMAL, {net.leaf(net.x), net.num(2)})}),
       net.op(K_OP_DISTRIBUTION, {net.op(K_OP_STATE_INDEX, {net.leaf(net.N)})})});
  Expression* copy = net.keep(copy_expression(*e));
  EXPECT_EQ(text(copy), text(e));
  EXPECT_EQ(copy->type(), e->type());
  EXPECT_EQ(copy->use_count(), 0);
  // Shared operands become separate copies; nodes are the same nodes.
  const Expression* conjunction = copy->operands()[0];
  EXPECT_NE(conjunction->operands()[0], shared);
  EXPECT_NE(conjunction->operands()[0], conjunction->operands()[1]);
  EXPECT_EQ(conjunction->operands()[0]->operands()[0]->node(), reinterpret_cast<Node*>(net.a));
  EXPECT_EQ(shared->use_count(), 2);

  EXPECT_TRUE(contains_operator(*copy, K_OP_NORMAL));
  EXPECT_TRUE(contains_operator(*copy, K_OP_NODE));
  EXPECT_TRUE(contains_operator(*copy, K_OP_IF));
  EXPECT_FALSE(contains_operator(*copy, K_OP_PROBABILITY));
  int leaves = 0;
  for_each_node_leaf(*copy, [&](const Node&) { ++leaves; });
  EXPECT_EQ(leaves, 4);
}

TEST(ExpressionFactory, OperatorNames) {
  // Function names only, exact and case-sensitive.
  for (int op = K_OP_NORMAL; op <= K_OP_NOT; ++op)
    EXPECT_EQ(function_operator(operator_name(op)), op);
  for (const char* name : {"normal", "Not", "+", "", "Normal "})
    EXPECT_EQ(function_operator(name), -1);
  EXPECT_STREQ(operator_name(K_OP_NEGATE), "-");
  EXPECT_EQ(operator_name(K_OP_NUMBER), nullptr);
}

TEST(ExpressionPrinter, LeavesAndForms) {
  ExprNet net;
  const std::vector<std::pair<Expression*, const char*>> cases = {
      {net.num(0.5), "0.5"},
      {net.num(1e-7), "1E-07"},
      {net.num(1234567), "1.23457E+06"},
      {net.num(-2), "-2"},
      {net.bln(true), "true"},
      {net.leaf(net.a), "a"},
      {net.lab(""), "\"\""},
      {net.lab("tab\tnl\ncr\rq\"bs\\"), "\"tab\\tnl\\ncr\\rq\\\"bs\\\\\""},
      {net.lab("\0017"), "\"\\0017\""},
      {net.lab("\1x"), "\"\\1x\""},
      {net.lab("\1"
               "8"),
       "\"\\18\""},
      {net.lab("\377\177 ~'?"), "\"\\377\\177 ~'?\""},
      {net.lab("\2000"), "\"\\2000\""},
      {net.op(K_OP_AND, {}), "and ()"},
      {net.op(K_OP_NORMAL, {net.leaf(net.x), net.num(1)}), "Normal (x, 1)"},
      {net.op(K_OP_NEGATE, {net.leaf(net.x)}), "-x"},
      {net.op(K_OP_STATE_INDEX, {net.leaf(net.a)}), "#a"},
      {net.op(K_OP_NOT_EQUALS, {net.leaf(net.a), net.leaf(net.b)}), "a != b"},
      {net.op(K_OP_AND, {net.op(K_OP_LESS_THAN, {net.leaf(net.x), net.num(1)})}), "and (x < 1)"},
  };
  for (const auto& [e, expected] : cases) EXPECT_EQ(text(e), expected);
  EXPECT_EQ(text(nullptr), "");

  // A node without a name is given one.
  k_node_t unnamed =
      k_domain_new_node(net.d, K_CATEGORY_CHANCE, K_KIND_CONTINUOUS, K_SUBTYPE_LABEL);
  Expression* e = net.leaf(unnamed);
  const std::string name = text(e);
  EXPECT_EQ(name.substr(0, 1), "C");
  EXPECT_STREQ(k_node_get_name(unnamed), name.c_str());
}

TEST(ExpressionPrinter, Parentheses) {
  ExprNet net;
  Expression* a = net.leaf(net.x);
  Expression* b = net.leaf(net.y);
  Expression* n = net.leaf(net.N);
  Expression* neg = net.num(-2);
  auto op = [&](int code, Expression* l, Expression* r) { return net.op(code, {l, r}); };
  Expression* sum = op(K_OP_ADD, a, b);
  Expression* diff = op(K_OP_SUBTRACT, a, b);
  Expression* minus = net.op(K_OP_NEGATE, {a});
  Expression* prod = op(K_OP_MULTIPLY, a, b);
  Expression* quot = op(K_OP_DIVIDE, a, b);
  Expression* pow = op(K_OP_POWER, a, b);
  Expression* less = op(K_OP_LESS_THAN, a, b);
  const std::vector<std::pair<Expression*, const char*>> cases = {
      // "+" and "-": the right side only.
      {op(K_OP_ADD, sum, sum), "x + y + (x + y)"},
      {op(K_OP_SUBTRACT, diff, diff), "x - y - (x - y)"},
      {op(K_OP_SUBTRACT, minus, minus), "-x - (-x)"},
      {op(K_OP_ADD, neg, neg), "-2 + (-2)"},
      {op(K_OP_ADD, prod, pow), "x * y + x ^ y"},
      {op(K_OP_SUBTRACT, a, net.num(-0.0)), "x - (-0)"},
      // "*" and "/": additive or negative on both sides, "*" and "/" on the right.
      {op(K_OP_MULTIPLY, sum, diff), "(x + y) * (x - y)"},
      {op(K_OP_DIVIDE, minus, neg), "(-x) / (-2)"},
      {op(K_OP_MULTIPLY, prod, quot), "x * y * (x / y)"},
      {op(K_OP_DIVIDE, quot, prod), "x / y / (x * y)"},
      {op(K_OP_MULTIPLY, pow, pow), "x ^ y * x ^ y"},
      // "^": also "^" on the left; never "^" on the right.
      {op(K_OP_POWER, pow, pow), "(x ^ y) ^ x ^ y"},
      {op(K_OP_POWER, prod, quot), "(x * y) ^ (x / y)"},
      {op(K_OP_POWER, neg, minus), "(-2) ^ (-x)"},
      {op(K_OP_POWER, sum, n), "(x + y) ^ N"},
      // Negation: additive or negative.
      {net.op(K_OP_NEGATE, {sum}), "-(x + y)"},
      {net.op(K_OP_NEGATE, {minus}), "-(-x)"},
      {net.op(K_OP_NEGATE, {neg}), "-(-2)"},
      {net.op(K_OP_NEGATE, {prod}), "-x * y"},
      {net.op(K_OP_NEGATE, {pow}), "-x ^ y"},
      // Comparisons: comparisons on either side.
      {op(K_OP_EQUALS, less, less), "(x < y) == (x < y)"},
      {op(K_OP_LESS_THAN, sum, minus), "x + y < -x"},
      {op(K_OP_GREATER_THAN_OR_EQUALS, neg, prod), "-2 >= x * y"},
      {net.op(K_OP_MIN, {sum, neg, minus}), "min (x + y, -2, -x)"},
  };
  for (const auto& [e, expected] : cases) EXPECT_EQ(text(e), expected);
}

TEST(ExpressionPrinter, IgnoresTheProcessLocale) {
  const char* chosen = nullptr;
  for (const char* name : {"de_DE.UTF-8", "de_DE.utf8", "fr_FR.UTF-8", "nl_NL.UTF-8"})
    if (std::setlocale(LC_NUMERIC, name) != nullptr) {
      chosen = name;
      break;
    }
  if (chosen == nullptr) GTEST_SKIP() << "no locale with a decimal comma is installed";
  ExprNet net;
  EXPECT_EQ(text(net.num(0.5)), "0.5");
  Expression* parsed = net.parse("1.5 + x");
  std::setlocale(LC_NUMERIC, "C");
  ASSERT_NE(parsed, nullptr);
  EXPECT_EQ(parsed->operands()[0]->number(), 1.5);
}

TEST(ExpressionApi, GettersAndErrors) {
  ExprNet net;
  k_expression_t num = k_number_make_expression(2.5);
  k_expression_t lab = k_label_make_expression("s");
  k_expression_t yes = k_boolean_make_expression(7);
  k_expression_t no = k_boolean_make_expression(0);
  k_expression_t node = k_node_make_expression(net.a);
  const k_expression_t operands[] = {node, lab, nullptr};
  k_expression_t eq = k_make_composite_expression(K_OP_EQUALS, operands);
  ASSERT_NE(eq, nullptr);
  EXPECT_EQ(k_error_code(), K_ERROR_NONE);

  EXPECT_EQ(k_expression_get_number(num), 2.5);
  EXPECT_STREQ(k_expression_get_label(lab), "s");
  EXPECT_EQ(k_expression_get_boolean(yes), 1);
  EXPECT_EQ(k_expression_get_boolean(no), 0);
  EXPECT_EQ(k_expression_get_node(node), net.a);
  EXPECT_EQ(k_expression_is_composite(eq), 1);
  EXPECT_EQ(k_expression_is_composite(num), 0);
  EXPECT_EQ(k_expression_get_operator(eq), K_OP_EQUALS);
  EXPECT_EQ(k_expression_get_operator(lab), K_OP_LABEL);
  k_expression_t* list = k_expression_get_operands(eq);
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(list[0], node);
  EXPECT_EQ(list[1], lab);
  EXPECT_EQ(list[2], nullptr);
  char* s = k_expression_to_string(eq);
  EXPECT_STREQ(s, "a == \"s\"");
  std::free(s);
  s = k_expression_to_string(nullptr);
  EXPECT_STREQ(s, "");
  std::free(s);

  // Wrong kinds, null and foreign handles: "usage" and the neutral value.
  auto usage = [](bool neutral) { return neutral && k_error_code() == K_ERROR_USAGE; };
  auto* foreign = reinterpret_cast<k_expression_t>(net.a);
  const k_expression_t leaf_op[] = {num, nullptr};
  const k_expression_t with_foreign[] = {num, foreign, nullptr};
  EXPECT_TRUE(usage(k_expression_get_number(lab) == -1.0));
  EXPECT_TRUE(usage(k_expression_get_label(num) == nullptr));
  EXPECT_TRUE(usage(k_expression_get_node(eq) == nullptr));
  EXPECT_TRUE(usage(k_expression_get_boolean(node) == -1));
  EXPECT_TRUE(usage(k_expression_get_operands(num) == nullptr));
  EXPECT_TRUE(usage(k_expression_is_composite(nullptr) == -1));
  EXPECT_TRUE(usage(k_expression_get_operator(nullptr) == K_OP_ERROR));
  EXPECT_TRUE(usage(k_expression_get_operator(foreign) == K_OP_ERROR));
  EXPECT_TRUE(usage(k_expression_delete(nullptr) != 0));
  EXPECT_TRUE(usage(k_label_make_expression(nullptr) == nullptr));
  EXPECT_TRUE(usage(k_node_make_expression(nullptr) == nullptr));
  EXPECT_TRUE(usage(k_make_composite_expression(K_OP_ADD, nullptr) == nullptr));
  EXPECT_TRUE(
      usage(k_make_composite_expression(static_cast<k_operator_t>(59), leaf_op) == nullptr));
  EXPECT_TRUE(usage(k_make_composite_expression(K_OP_NUMBER, leaf_op) == nullptr));
  EXPECT_TRUE(usage(k_make_composite_expression(K_OP_ADD, with_foreign) == nullptr));

  for (k_expression_t e : {eq, num, yes, no}) EXPECT_EQ(k_expression_delete(e), 0);
}

}  // namespace
}  // namespace kelva
