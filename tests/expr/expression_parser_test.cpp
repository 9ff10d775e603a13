// Reading expressions: the grammar, every message with its position, and
// the round trip print -> parse -> print over random trees of every
// operator.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "common/expect_code.h"
#include "expr/expression_fixture.h"
#include "expr/model.h"

namespace kelva {
namespace {

using test::ExprNet;

std::string text(const Expression* e) { return expression_to_string(e); }

// Same operators, values (bit for bit), nodes and shape.
bool same(const Expression& p, const Expression& q) {
  if (p.op() != q.op() || p.operands().size() != q.operands().size()) return false;
  switch (p.op()) {
    case K_OP_NUMBER: {
      const double u = p.number(), v = q.number();
      return std::memcmp(&u, &v, sizeof u) == 0;
    }
    case K_OP_LABEL:
      return p.label() == q.label();
    case K_OP_BOOLEAN:
      return p.boolean() == q.boolean();
    case K_OP_NODE:
      return p.node() == q.node();
    default:
      break;
  }
  if (p.type() != q.type()) return false;
  for (std::size_t i = 0; i < p.operands().size(); ++i)
    if (!same(*p.operands()[i], *q.operands()[i])) return false;
  return true;
}

TEST(ExpressionParser, SignsComparisonsAndConstants) {
  ExprNet net;
  Expression* e = net.parse("-2");
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(e->op(), K_OP_NUMBER);
  EXPECT_EQ(e->number(), -2);
  EXPECT_EQ(net.parse("-(2)")->number(), -2);  // the term is a number
  EXPECT_EQ(net.parse("+2")->number(), 2);

  e = net.parse("-x");
  EXPECT_EQ(e->op(), K_OP_NEGATE);
  EXPECT_EQ(e->operands()[0]->node(), reinterpret_cast<Node*>(net.x));
  e = net.parse("-2^2");
  ASSERT_EQ(e->op(), K_OP_NEGATE);
  EXPECT_EQ(e->operands()[0]->op(), K_OP_POWER);
  EXPECT_EQ(text(e), "-2 ^ 2");
  // The sign covers the whole first term only.
  EXPECT_EQ(text(net.parse("-x*y+1")), "-x * y + 1");
  EXPECT_EQ(net.parse("-x*y+1")->operands()[0]->op(), K_OP_NEGATE);

  EXPECT_EQ(net.parse("a = b")->op(), K_OP_EQUALS);
  EXPECT_EQ(text(net.parse("a <> b")), "a != b");
  EXPECT_EQ(text(net.parse("x>=-1")), "x >= -1");
  // Associativity and precedence are the round trip's to check (below).
  EXPECT_EQ(text(net.parse("((x ^ y)) ^ x")), "(x ^ y) ^ x");

  e = net.parse("and()");
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(e->operands().size(), 0u);
  EXPECT_EQ(text(e), "and ()");
  EXPECT_EQ(text(net.parse("Normal(x,1% a comment\n*2)")), "Normal (x, 1 * 2)");
  EXPECT_EQ(text(net.parse("#a + #(N)")), "#a + #N");

  EXPECT_EQ(net.parse("true")->op(), K_OP_BOOLEAN);
  EXPECT_FALSE(net.parse("false")->boolean());
  EXPECT_EQ(text(net.parse("\"t\\x41\\101\\7\"")), "\"tAA\\7\"");
  // A NUL escape ends the label; the warning does not fail the parse.
  e = net.parse("\"a\\0b\" == a");
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(e->operands()[0]->label(), "a");
  ASSERT_EQ(net.messages.size(), 1u);
  EXPECT_EQ(net.messages[0].text, "warning: null character in string");
  EXPECT_EQ(net.messages[0].position, 4u);

  // A node named "true" wins over the constant.
  k_node_t named = k_domain_new_node(net.d, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_BOOLEAN);
  ASSERT_EQ(k_node_set_name(named, "true"), 0);
  e = net.parse("true");
  EXPECT_EQ(e->op(), K_OP_NODE);
  EXPECT_EQ(e->node(), reinterpret_cast<Node*>(named));
  EXPECT_EQ(net.parse("false")->op(), K_OP_BOOLEAN);
}

TEST(ExpressionParser, MessagesAndPositions) {
  ExprNet net;
  const std::string deep =
      std::string(kMaxExpressionHeight + 1, '(') + "x" + std::string(kMaxExpressionHeight + 1, ')');
  std::string tall_power = "x";
  for (int i = 0; i <= kMaxExpressionHeight; ++i) tall_power += "^x";
  const std::string invalid =
      std::string("API error: ") + k_error_description(K_ERROR_INVALID_EXPRESSION);
  struct Case {
    std::string input;
    k_error_t code;
    std::string message;
    std::uint64_t position;
  };
  const std::vector<Case> cases = {
      {"a < b < c", K_ERROR_SYNTAX, "unexpected token", 7},
      {"2 - -3", K_ERROR_SYNTAX, "unexpected token", 5},
      {"1 2", K_ERROR_SYNTAX, "unexpected token", 3},
      {"", K_ERROR_SYNTAX, "unexpected token", 0},
      {"-", K_ERROR_SYNTAX, "unexpected token", 1},
      {"x *", K_ERROR_SYNTAX, "unexpected token", 3},
      {"and(", K_ERROR_SYNTAX, "unexpected token", 4},
      {"(x,", K_ERROR_SYNTAX, "`)' expected", 3},
      {"(a", K_ERROR_SYNTAX, "`)' expected", 2},
      {"zz + 1", K_ERROR_SYNTAX, "no such node: zz", 4},
      {"not x", K_ERROR_SYNTAX, "no such node: not", 5},
      {"foo(1)", K_ERROR_SYNTAX, "unknown operator `foo'", 4},
      {"normal(0, 1)", K_ERROR_SYNTAX, "unknown operator `normal'", 7},
      {"Normal(1 2)", K_ERROR_SYNTAX, "`,' or `)' expected", 10},
      {"#1", K_ERROR_SYNTAX, "`#' must be followed by the name of a discrete node", 2},
      {"#x + 1", K_ERROR_SYNTAX, "`#' must be followed by the name of a discrete node", 4},
      {"#(a + 1)", K_ERROR_SYNTAX, "`#' must be followed by the name of a discrete node", 8},
      {deep, K_ERROR_SYNTAX, "expression too deeply nested",
       static_cast<std::uint64_t>(kMaxExpressionHeight + 1)},
      {tall_power, K_ERROR_SYNTAX, "expression too deeply nested",
       static_cast<std::uint64_t>(2 * kMaxExpressionHeight + 2)},
      {"Beta(1, 2, 3)", K_ERROR_INVALID_EXPRESSION, invalid, 13},
      {"NoisyOR(B, 1, B)", K_ERROR_INVALID_EXPRESSION, invalid, 16},
      {"a + \"s\"", K_ERROR_INVALID_EXPRESSION, invalid, 7},
      {"-\"s\"", K_ERROR_INVALID_EXPRESSION, invalid, 4},
      {"Normal(0, 1) + 1", K_ERROR_INVALID_EXPRESSION, invalid, 16},
      {"x < y == a", K_ERROR_SYNTAX, "unexpected token", 8},
      // Lexical failures.
      {"a !b", K_ERROR_PARSE, "`!' must be followed by `='", 3},
      {"a ? b", K_ERROR_PARSE, "unexpected character: `?'", 3},
      {"\"abc", K_ERROR_PARSE, "string did not end", 4},
      {"\"a\\qb\"", K_ERROR_PARSE, "illegal escape sequence: `\\q'", 4},
      {"a.", K_ERROR_PARSE, "`.' must be followed by a letter or an `_'", 2},
      {"1 + .", K_ERROR_PARSE, "unexpected token", 4},
      {"\"\\x\"", K_ERROR_PARSE, "unexpected token", 3},
      // Dotted names need instance nodes.
      {"a.b", K_ERROR_PARSE, "node `a' is not an instance node", 3},
      {"zz.y.z + 1", K_ERROR_PARSE, "node `zz' not found", 6},
  };
  for (const Case& c : cases) {
    const std::string shown = c.input.size() > 40 ? c.input.substr(0, 40) + "..." : c.input;
    EXPECT_EQ(net.parse(c.input), nullptr) << shown;
    EXPECT_EQ(net.code, c.code) << shown;
    ASSERT_EQ(net.messages.size(), 1u) << shown;
    EXPECT_EQ(net.messages[0].text, c.message) << shown;
    EXPECT_EQ(net.messages[0].position, c.position) << shown;
  }

  // Just within the bounds.
  const std::string nested =
      std::string(kMaxExpressionHeight, '(') + "x" + std::string(kMaxExpressionHeight, ')');
  EXPECT_NE(net.parse(nested), nullptr);
  std::string power = "x";
  for (int i = 0; i < kMaxExpressionHeight; ++i) power += "^x";
  EXPECT_EQ(net.parse(power)->height(), kMaxExpressionHeight);
}

TEST(ExpressionParser, FlatChainsAreOneLevel) {
  // A 1,000-term sum of weights, and chains of 100,000 links, on which any
  // walk that recursed per link would run out of stack: each must parse,
  // print back as written, copy, check and generate its table.
  std::string weights = "0.1";
  double sum = 0.1;
  for (int i = 1; i < 1000; ++i) {
    weights += " + 0.1";
    sum += 0.1;
  }
  std::string sums = "1";
  std::string products = "2";
  for (int i = 0; i < 100000; ++i) {
    sums += " + 1 - 1";
    products += " * 3 / 3";
  }
  struct Case {
    std::string text;
    double first;  // probability of the first state
  };
  for (const Case& c : {Case{"Distribution (" + weights + ", 0.7)", sum / (sum + 0.7)},
                        Case{"Distribution (" + sums + ", " + products + ")", 1.0 / 3.0}}) {
    const std::string net =
        "node A { states = (\"y\" \"n\"); }\n"
        "potential (A) { model_nodes = (); model_data = (" +
        c.text + "); }\n";
    const k_domain_t d = k_net_parse_domain_string(net.c_str(), nullptr, nullptr);
    ASSERT_NE(d, nullptr) << k_error_name(k_error_code());
    const k_node_t a = k_domain_get_node_by_name(d, "A");
    const Expression& e = *reinterpret_cast<Node*>(a)->model()->expression(0);
    EXPECT_EQ(text(&e), c.text);
    Expression* copy = copy_expression(e);
    EXPECT_EQ(text(copy), c.text);
    EXPECT_EQ(verify_types(*copy, true), ExprType::distribution);
    EXPECT_FALSE(contains_operator(*copy, K_OP_NEGATE));
    ExpressionFactory::release(copy);
    ASSERT_EQ(k_node_generate_table(a), 0) << k_error_name(k_error_code());
    EXPECT_DOUBLE_EQ(k_table_get_data_item(k_node_get_table(a), 0), c.first);
    k_domain_delete(d);
  }
}

TEST(ExpressionParser, CFunction) {
  ExprNet net;
  kelva::Node& owner = *reinterpret_cast<Node*>(net.a);
  owner.model_slot().reset(new Model(owner, {}));
  auto model = reinterpret_cast<k_model_t>(owner.model());

  std::vector<test::Message> messages;
  k_expression_t e = k_string_parse_expression("b == \"s\"", model, test::collect, &messages);
  ASSERT_NE(e, nullptr);
  EXPECT_EQ(k_error_code(), K_ERROR_NONE);
  EXPECT_EQ(k_expression_get_node(k_expression_get_operands(e)[0]), net.b);
  EXPECT_EQ(k_expression_delete(e), 0);
  EXPECT_TRUE(messages.empty());

  EXPECT_NULL_WITH(k_string_parse_expression("b ==", model, test::collect, &messages),
                   K_ERROR_SYNTAX);
  EXPECT_EQ(messages.size(), 1u);
  // Without a handler the code still tells.
  EXPECT_NULL_WITH(k_string_parse_expression("b ?", model, nullptr, nullptr), K_ERROR_PARSE);

  EXPECT_NULL_WITH(k_string_parse_expression(nullptr, model, nullptr, nullptr), K_ERROR_USAGE);
  EXPECT_NULL_WITH(k_string_parse_expression("b", nullptr, nullptr, nullptr), K_ERROR_USAGE);
  EXPECT_EQ(k_string_parse_expression("b", reinterpret_cast<k_model_t>(net.d), nullptr, nullptr),
            nullptr);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
}

// Random well-typed trees of every operator, in the shapes the parser
// produces (a negation never holds a number leaf: "-2" is read as a number).
class TreeMaker {
 public:
  TreeMaker(ExprNet& net, unsigned seed) : net_(net), rng_(seed) {}

  Expression* any(int depth) {
    switch (pick(5)) {
      case 0:
        return number(depth);
      case 1:
        return boolean(depth);
      case 2:
        return label(depth);
      case 3:
        return distribution(depth);
      default:  // "distribution or ..." types
        return make(K_OP_IF, {boolean(depth - 1), distribution(depth - 1),
                              pick(2) ? number(depth - 1) : label(depth - 1)});
    }
  }

  std::set<int> seen;

 private:
  int pick(int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng_); }

  Expression* make(int op, std::vector<Expression*> operands) {
    seen.insert(op);
    return net_.keep(ExpressionFactory::composite(op, operands));
  }
  Expression* leaf(Expression* e) {
    seen.insert(e->op());
    return e;
  }
  std::vector<Expression*> numbers(int count, int depth) {
    std::vector<Expression*> v;
    for (int i = 0; i < count; ++i) v.push_back(number(depth - 1));
    return v;
  }

  Expression* number(int depth) {
    static const double values[] = {0,     1,  2.5,  42,    100000, 1e-07, 1.5e10,
                                    0.125, -3, -0.0, -0.25, -1e-07, -7e20};
    if (depth <= 0 || pick(4) == 0) {
      if (pick(3) == 0) {
        const k_node_t nodes[] = {net_.x, net_.y, net_.N, net_.I};
        return leaf(net_.leaf(nodes[pick(4)]));
      }
      return leaf(net_.num(values[pick(static_cast<int>(std::size(values)))]));
    }
    const int op = K_OP_PROBABILITY + pick(K_OP_STATE_INDEX - K_OP_PROBABILITY + 1);
    if (op >= K_OP_LOG && op <= K_OP_CEIL) return make(op, numbers(1, depth));
    if (op >= K_OP_ADD && op <= K_OP_POWER) return make(op, numbers(2, depth));
    switch (op) {
      case K_OP_PROBABILITY:
        return make(op, {make(K_OP_EQUALS, {leaf(net_.leaf(net_.a)), label(0)})});
      case K_OP_VARIANCE:
        return make(op, {leaf(net_.leaf(pick(2) ? net_.x : net_.N))});
      case K_OP_MIN:
      case K_OP_MAX:
        return make(op, numbers(1 + pick(3), depth));
      case K_OP_MOD:
        return make(op, numbers(2, depth));
      case K_OP_IF:
        return make(op, {boolean(depth - 1), number(depth - 1), number(depth - 1)});
      case K_OP_NEGATE: {
        Expression* operand = number(depth - 1);
        while (operand->op() == K_OP_NUMBER) operand = number(depth - 1);
        return make(op, {operand});
      }
      case K_OP_STATE_INDEX:
        return make(op, {leaf(net_.leaf(pick(2) ? net_.a : net_.I))});
      default:
        return number(depth);  // not a numeric operator: try again
    }
  }

  Expression* boolean(int depth) {
    if (depth <= 0 || pick(4) == 0) {
      if (pick(2)) return leaf(net_.leaf(net_.B));
      return leaf(net_.bln(pick(2) == 1));
    }
    switch (pick(6)) {
      case 0:
        return make(K_OP_LESS_THAN + pick(2), numbers(2, depth));  // < >
      case 1:
        return make(K_OP_LESS_THAN_OR_EQUALS + pick(2), numbers(2, depth));
      case 2: {
        const int op = pick(2) ? K_OP_EQUALS : K_OP_NOT_EQUALS;
        switch (pick(3)) {
          case 0:
            return make(op, numbers(2, depth));
          case 1:
            return make(op, {label(depth - 1), label(depth - 1)});
          default:
            return make(op, {boolean(depth - 1), boolean(depth - 1)});
        }
      }
      case 3: {
        std::vector<Expression*> v;
        for (int i = pick(4); i > 0; --i) v.push_back(boolean(depth - 1));
        return make(pick(2) ? K_OP_AND : K_OP_OR, v);
      }
      case 4:
        return make(K_OP_NOT, {boolean(depth - 1)});
      default:
        return make(K_OP_IF, {boolean(depth - 1), boolean(depth - 1), boolean(depth - 1)});
    }
  }

  Expression* label(int depth) {
    if (depth <= 0 || pick(3) != 0) {
      if (pick(4) == 0) return leaf(net_.leaf(net_.a));
      static const char bytes[] = {'s',  '7',  '0',   'x',    ' ',    '"',    '\\', '\t', '\n',
                                   '\r', '\1', '\10', '\177', '\200', '\377', '%',  '\''};
      std::string s;
      for (int n = pick(5); n > 0; --n) s += bytes[pick(static_cast<int>(sizeof bytes))];
      return leaf(net_.lab(s.c_str()));
    }
    return make(K_OP_IF, {boolean(depth - 1), label(depth - 1), label(depth - 1)});
  }

  Expression* distribution(int depth) {
    struct Counts {
      int op, low, high;
    };
    static const Counts counts[] = {
        {K_OP_NORMAL, 2, 2},
        {K_OP_LOGNORMAL, 2, 3},
        {K_OP_BETA, 2, 2},
        {K_OP_BETA, 4, 4},
        {K_OP_GAMMA, 2, 3},
        {K_OP_EXPONENTIAL, 1, 2},
        {K_OP_WEIBULL, 2, 3},
        {K_OP_UNIFORM, 2, 2},
        {K_OP_TRIANGULAR, 3, 3},
        {K_OP_PERT, 3, 4},
        {K_OP_BINOMIAL, 2, 2},
        {K_OP_POISSON, 1, 1},
        {K_OP_NEGATIVE_BINOMIAL, 2, 2},
        {K_OP_GEOMETRIC, 1, 1},
        {K_OP_DISTRIBUTION, 1, 4},
    };
    switch (depth <= 0 ? 0 : pick(5)) {
      case 1: {
        std::vector<Expression*> v;
        for (int i = 1 + pick(2); i > 0; --i) {
          v.push_back(boolean(depth - 1));
          v.push_back(number(depth - 1));
        }
        return make(K_OP_NOISY_OR, v);
      }
      case 2:
        if (pick(2)) return make(K_OP_TRUNCATE, {distribution(depth - 1), number(depth - 1)});
        if (pick(2)) return make(K_OP_TRUNCATE, {number(depth - 1), distribution(depth - 1)});
        return make(K_OP_TRUNCATE, {number(depth - 1), distribution(depth - 1), number(depth - 1)});
      case 3:
        return make(K_OP_AGGREGATE, {leaf(net_.leaf(net_.N)), leaf(net_.leaf(net_.I))});
      case 4:
        return make(K_OP_IF,
                    {boolean(depth - 1), distribution(depth - 1), distribution(depth - 1)});
      default: {
        const Counts& c = counts[pick(static_cast<int>(std::size(counts)))];
        return make(c.op, numbers(c.low + pick(c.high - c.low + 1), depth));
      }
    }
  }

  ExprNet& net_;
  std::mt19937 rng_;
};

TEST(ExpressionParser, PrintedTreesParseBackToTheSameTree) {
  ExprNet net;
  TreeMaker maker(net, 20261122);
  for (int i = 0; i < 3000; ++i) {
    Expression* tree = maker.any(1 + i % 5);
    const std::string printed = text(tree);
    Expression* parsed = net.parse(printed);
    ASSERT_NE(parsed, nullptr) << printed << "\n"
                               << (net.messages.empty() ? "" : net.messages[0].text);
    ASSERT_TRUE(same(*tree, *parsed)) << printed << "\nread back as\n" << text(parsed);
    ASSERT_EQ(text(parsed), printed);
  }
  for (int op = K_OP_NORMAL; op <= K_OP_BOOLEAN; ++op)
    EXPECT_TRUE(maker.seen.count(op)) << "operator " << op << " never generated";
}

}  // namespace
}  // namespace kelva
