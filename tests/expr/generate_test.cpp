// Table generation: slots, value expressions, operators, interval-parent
// sampling, function owners and the log, checked against values worked out
// here from the definitions.
#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdlib>
#include <functional>

#include "common/expect_code.h"
#include "generate_fixture.h"

namespace kelva::test {
namespace {

std::string fmt(const char* format, ...) {
  char buffer[512];
  va_list args;
  va_start(args, format);
  vsnprintf(buffer, sizeof buffer, format, args);
  va_end(args);
  return buffer;
}

const std::string kUsing = "Using model for B to generate a conditional probability table\n";

// Generating `e` over a node B of this subtype with these state values
// gives `expected`.
void generates(k_subtype_t subtype, const std::vector<double>& values, k_expression_t e,
               const std::vector<double>& expected) {
  GenNet net;
  k_node_t b = net.valued("B", subtype, values);
  set(model(b), 0, e);
  ASSERT_EQ(k_node_generate_table(b), 0) << k_error_name(k_error_code());
  expect_close(table_of(b), expected);
}

// ... or fails with `code`, logging `message`.
void refuses(k_subtype_t subtype, const std::vector<double>& values, k_expression_t e,
             k_error_t code, const std::string& message) {
  SCOPED_TRACE(message);
  GenNet net;
  net.open_log();
  k_node_t b = net.valued("B", subtype, values);
  set(model(b), 0, e);
  EXPECT_NE(k_node_generate_table(b), 0);
  EXPECT_EQ(k_error_code(), code);
  EXPECT_EQ(net.log(), kUsing + message);
}

TEST(Generate, SlotsFollowTheModelNodesWhateverTheTableOrder) {
  GenNet net;
  k_node_t a = net.labelled("A", {"a0", "a1", "a2"});
  k_node_t c = net.labelled("C", {"c0", "c1"});
  k_node_t b = net.labelled("B", {"b0", "b1"});
  link(a, b);
  link(c, b);  // table order: C, A, B

  // No model nodes: the one slot serves every configuration.
  set(model(b), 0, op(K_OP_DISTRIBUTION, {num(1), num(4)}));
  ASSERT_EQ(k_node_generate_table(b), 0);
  expect_close(table_of(b),
               std::vector<double>{0.2, 0.8, 0.2, 0.8, 0.2, 0.8, 0.2, 0.8, 0.2, 0.8, 0.2, 0.8});

  k_model_t m = model(b, {a, c});  // slot = a * 2 + c
  for (int slot = 0; slot < 6; ++slot) set(m, slot, op(K_OP_DISTRIBUTION, {num(slot + 1), num(1)}));
  ASSERT_EQ(k_node_generate_table(b), 0);
  std::vector<double> expected;
  for (int ci = 0; ci < 2; ++ci)
    for (int ai = 0; ai < 3; ++ai) {
      const double w = ai * 2 + ci + 1;
      expected.push_back(w / (w + 1));
      expected.push_back(1 / (w + 1));
    }
  expect_close(table_of(b), expected);
}

TEST(Generate, EverySlotIsCheckedAndLoggedBeforeFailing) {
  GenNet net;
  net.open_log();
  k_node_t a = net.labelled("A", {"a0", "a1", "a2"});
  k_node_t b = net.labelled("B", {"b0", "b1"});
  link(a, b);
  k_model_t m = model(b, {a});
  EXPECT_FAILS(k_node_generate_table(b), K_ERROR_INVALID_EXPRESSION);
  EXPECT_EQ(net.log(), "Model for B is unspecified\n");

  // A label node does not add up: valid unresolved, invalid resolved.
  set(m, 1, op(K_OP_ADD, {leaf(a), num(1)}));
  EXPECT_FAILS(k_node_generate_table(b), K_ERROR_INVALID_EXPRESSION);
  EXPECT_EQ(net.log(), "Model for B is unspecified\n" + kUsing +
                           "No expression at index 0\n"
                           "Invalid expression at index 1\n"
                           "No expression at index 2\n");
  EXPECT_EQ(k_model_table_is_generated(m), 1);
  expect_close(table_of(b), std::vector<double>(6, 0.0));
}

TEST(Generate, StateValuesMustIncreaseAndBeInfiniteOnlyAtTheEnds) {
  const char* increasing = "do not form an increasing sequence";
  const char* infinite = "use infinite values incorrectly";
  const struct {
    k_subtype_t subtype;
    std::vector<double> values;
    const char* problem;
  } cases[] = {
      {K_SUBTYPE_NUMBER, {0, 2, 1}, increasing},  {K_SUBTYPE_NUMBER, {0, 1, 1}, increasing},
      {K_SUBTYPE_NUMBER, {0, kInf}, infinite},    {K_SUBTYPE_INTERVAL, {0, kInf, kInf}, infinite},
      {K_SUBTYPE_INTERVAL, {0, -kInf}, infinite}, {K_SUBTYPE_INTERVAL, {0, 2, 1}, increasing},
  };
  for (const auto& c : cases) {
    GenNet net;
    net.open_log();
    k_node_t p = net.valued("P", c.subtype, c.values);
    k_node_t b = net.labelled("B", {"b0", "b1"});
    link(p, b);
    set(model(b), 0, op(K_OP_DISTRIBUTION, {num(1), num(1)}));
    EXPECT_FAILS(k_node_generate_table(b), K_ERROR_INVALID_STATE_VALUES);
    EXPECT_EQ(net.log(), kUsing + "The state values of node P " + c.problem + ".\n");
  }
  // Equal bounds make an empty interval, which is allowed.
  generates(K_SUBTYPE_INTERVAL, {-kInf, 1, 1, kInf}, op(K_OP_NORMAL, {num(0), num(1)}),
            {phi(1), 0, 1 - phi(1)});
}

TEST(Generate, ValueExpressionsPickAState) {
  GenNet net;
  net.open_log();
  k_node_t a = net.labelled("A", {"a0", "a1"});
  k_node_t p = net.numbered("P", {2.5, 7});
  k_node_t label = net.labelled("B", {"x", "y", "z"});
  k_node_t number = net.numbered("N", {0, 2.5, 7});
  k_node_t range = net.interval("I", {0, 1, 5, kInf});
  k_node_t truth = net.node("T", K_SUBTYPE_BOOLEAN, 2);
  for (k_node_t child : {label, number, range, truth}) {
    link(a, child);
    link(p, child);
  }
  // Rows: P (newest parent) slowest, then A.
  set(model(label), 0, op(K_OP_IF, {op(K_OP_EQUALS, {leaf(a), lab("a0")}), lab("y"), lab("z")}));
  set(model(number), 0, leaf(p));
  set(model(range), 0, op(K_OP_MULTIPLY, {leaf(p), op(K_OP_STATE_INDEX, {leaf(a)})}));
  set(model(truth), 0, op(K_OP_EQUALS, {leaf(a), lab("a1")}));
  ASSERT_EQ(k_domain_generate_tables(net.d), 0) << k_error_name(k_error_code());
  expect_close(table_of(label), {0, 1, 0, 0, 0, 1, 0, 1, 0, 0, 0, 1});
  expect_close(table_of(number), {0, 1, 0, 0, 1, 0, 0, 0, 1, 0, 0, 1});
  expect_close(table_of(range), {1, 0, 0, 0, 1, 0, 1, 0, 0, 0, 0, 1});
  expect_close(table_of(truth), {1, 0, 0, 1, 1, 0, 0, 1});

  // No matching state: the message names the node and the value.
  set(model(label), 0, lab("w"));
  set(model(number), 0, op(K_OP_ADD, {leaf(p), num(0.5)}));
  set(model(range), 0, op(K_OP_NEGATE, {leaf(p)}));
  for (k_node_t n : {label, number, range}) {
    EXPECT_FAILS(k_node_generate_table(n), K_ERROR_INVALID_EXPRESSION);
  }
  EXPECT_EQ(net.log(),
            "Using model for T to generate a conditional probability table\n"
            "Using model for I to generate a conditional probability table\n"
            "Using model for N to generate a conditional probability table\n" +
                kUsing + kUsing +
                "Node B does not have a (unique) state labeled `w'\n"
                "Using model for N to generate a conditional probability table\n"
                "Node N does not have a state with value 3\n"
                "Using model for I to generate a conditional probability table\n"
                "Value for node I is out of bounds: -2.5\n");
}

TEST(Generate, OperatorsAndTheirErrors) {
  GenNet net;
  k_node_t p = net.numbered("P", {3});
  k_node_t q = net.interval("Q", {2, 2});  // one empty interval: evaluated once, at 2
  k_node_t l = net.labelled("L", {"only"});
  k_node_t b = net.numbered("B", {0});
  for (k_node_t parent : {p, q, l}) link(parent, b);
  k_model_t m = model(b);
  auto cond = [](k_expression_t c, double yes, double no) {
    return op(K_OP_IF, {c, num(yes), num(no)});
  };
  auto milli = [](k_operator_t f, double x) {  // floor(1000 * f(x))
    return op(K_OP_FLOOR, {op(K_OP_MULTIPLY, {num(1000), op(f, {num(x)})})});
  };
  auto truth = [](int v) { return k_boolean_make_expression(v); };
  const struct {
    k_expression_t e;
    double value;
  } values[] = {
      {op(K_OP_POWER, {num(2), num(10)}), 1024},
      {op(K_OP_MOD, {num(-1), num(3)}), 2},
      {op(K_OP_MOD, {num(7), num(-3)}), -2},
      {op(K_OP_FLOOR, {num(-1.5)}), -2},
      {op(K_OP_CEIL, {num(-1.5)}), -1},
      {op(K_OP_ABS, {num(-4)}), 4},
      {op(K_OP_MIN, {num(3), num(1), num(2)}), 1},
      {op(K_OP_MAX, {num(3), num(1), num(2)}), 3},
      {op(K_OP_LOG2, {num(8)}), 3},
      {op(K_OP_LOG, {num(1)}), 0},
      {op(K_OP_SQRT, {num(16)}), 4},
      {op(K_OP_EXP, {num(0)}), 1},
      {op(K_OP_ADD, {op(K_OP_MULTIPLY, {leaf(p), leaf(q)}), num(1)}), 7},
      {op(K_OP_DIVIDE, {leaf(p), num(2)}), 1.5},
      {op(K_OP_SUBTRACT, {leaf(p), num(5)}), -2},
      {op(K_OP_NEGATE, {leaf(p)}), -3},
      {op(K_OP_STATE_INDEX, {leaf(l)}), 0},
      {cond(op(K_OP_LESS_THAN, {leaf(p), num(4)}), 5, 6), 5},
      {cond(op(K_OP_GREATER_THAN_OR_EQUALS, {leaf(q), num(2)}), 5, 6), 5},
      {milli(K_OP_SIN, 1), 841},
      {milli(K_OP_COS, 1), 540},
      {milli(K_OP_TAN, 1), 1557},
      {milli(K_OP_SINH, 1), 1175},
      {milli(K_OP_COSH, 1), 1543},
      {milli(K_OP_TANH, 1), 761},
      {cond(op(K_OP_GREATER_THAN, {leaf(p), num(2)}), 5, 6), 5},
      {cond(op(K_OP_LESS_THAN_OR_EQUALS, {leaf(p), num(2)}), 5, 6), 6},
      {cond(op(K_OP_EQUALS, {truth(1), truth(0)}), 1, 0), 0},
      {cond(op(K_OP_AND, {truth(1), truth(0)}), 1, 0), 0},
      {cond(op(K_OP_AND, {}), 1, 0), 1},
      {cond(op(K_OP_OR, {}), 1, 0), 0},
      {cond(op(K_OP_NOT, {op(K_OP_EQUALS, {leaf(p), num(3)})}), 1, 0), 0},
      {cond(op(K_OP_NOT_EQUALS, {leaf(l), lab("only")}), 1, 0), 0},
      {cond(op(K_OP_OR, {op(K_OP_EQUALS, {leaf(l), lab("only")}),
                         op(K_OP_EQUALS, {op(K_OP_DIVIDE, {num(1), num(0)}), num(0)})}),
            1, 0),
       1},  // "or" stops at the first true operand
  };
  for (const auto& v : values) {
    ASSERT_EQ(k_node_set_state_value(b, 0, v.value), 0);
    set(m, 0, v.e);
    EXPECT_EQ(k_node_generate_table(b), 0) << v.value << ": " << k_error_name(k_error_code());
  }
  const struct {
    k_expression_t e;
    k_error_t code;
  } errors[] = {
      {op(K_OP_DIVIDE, {leaf(p), num(0)}), K_ERROR_DIVISION_BY_ZERO},
      {op(K_OP_MOD, {num(1), num(0)}), K_ERROR_DIVISION_BY_ZERO},
      {op(K_OP_POWER, {num(0), num(-1)}), K_ERROR_DIVISION_BY_ZERO},
      {op(K_OP_LOG, {num(0)}), K_ERROR_INAPPROPRIATE_ARGUMENTS},
      {op(K_OP_LOG10, {num(-1)}), K_ERROR_INAPPROPRIATE_ARGUMENTS},
      {op(K_OP_SQRT, {num(-1)}), K_ERROR_INAPPROPRIATE_ARGUMENTS},
      {op(K_OP_POWER, {num(-8), num(0.5)}), K_ERROR_INAPPROPRIATE_ARGUMENTS},
      {op(K_OP_EXP, {num(1000)}), K_ERROR_COMPUTATION_FAILED},
      {op(K_OP_MULTIPLY, {num(1e300), num(1e300)}), K_ERROR_COMPUTATION_FAILED},
  };
  for (const auto& e : errors) {
    set(m, 0, e.e);
    EXPECT_NE(k_node_generate_table(b), 0);
    EXPECT_EQ(k_error_code(), e.code);
  }
}

// The regularised incomplete beta function for integer shapes.
double beta_cdf(int a, int b, double t) {
  if (t <= 0) return 0;
  if (t >= 1) return 1;
  const int n = a + b - 1;
  double sum = 0;
  for (int j = a; j <= n; ++j) {
    double choose = 1;
    for (int i = 1; i <= j; ++i) choose = choose * (n - j + i) / i;
    sum += choose * std::pow(t, j) * std::pow(1 - t, n - j);
  }
  return sum;
}

TEST(Generate, ContinuousDistributionsMatchTheirDistributionFunctions) {
  using Cdf = std::function<double(double)>;
  auto normal = [](double mu, double var) {
    return [=](double x) { return phi((x - mu) / std::sqrt(var)); };
  };
  auto expo = [](double rate, double loc) {
    return [=](double x) { return x <= loc ? 0 : 1 - std::exp(-rate * (x - loc)); };
  };
  auto gamma2 = [](double scale, double loc) {  // shape 2
    return [=](double x) {
      const double t = (x - loc) / scale;
      return x <= loc ? 0 : 1 - std::exp(-t) * (1 + t);
    };
  };
  auto beta = [](int a, int b, double lo, double hi) {
    return [=](double x) { return beta_cdf(a, b, (x - lo) / (hi - lo)); };
  };
  auto weibull = [](double a, double b, double loc) {
    return [=](double x) { return x <= loc ? 0 : 1 - std::exp(-std::pow((x - loc) / b, a)); };
  };
  auto lognormal = [](double loc) {
    return [=](double x) { return x <= loc ? 0 : phi(std::log(x - loc)); };
  };
  auto uniform = [](double x) { return std::clamp(x / 4, 0.0, 1.0); };
  auto triangular = [](double x) {  // (0, 1, 4)
    if (x <= 0) return 0.0;
    if (x <= 1) return x * x / 4;
    if (x >= 4) return 1.0;
    return 1 - (4 - x) * (4 - x) / 12;
  };
  // Generating `e` over an interval node B with these bounds gives each
  // state the mass of `cdf` between its bounds, inside the truncation [lo, hi].
  auto expect_cdf = [](k_expression_t e, const std::vector<double>& bounds, const Cdf& cdf,
                       double lo = -kInf, double hi = kInf) {
    char* text = k_expression_to_string(e);
    SCOPED_TRACE(text);
    std::free(text);
    GenNet net;
    k_node_t b = net.interval("B", bounds);
    set(model(b), 0, e);
    ASSERT_EQ(k_node_generate_table(b), 0) << k_error_name(k_error_code());
    auto at = [&](double x) {
      const double y = std::clamp(x, lo, hi);
      return std::isinf(y) ? (y > 0 ? 1.0 : 0.0) : cdf(y);
    };
    const double mass = at(hi) - at(lo);
    std::vector<double> expected;
    for (std::size_t i = 0; i + 1 < bounds.size(); ++i)
      expected.push_back((at(bounds[i + 1]) - at(bounds[i])) / mass);
    expect_close(table_of(b), expected);
  };
  expect_cdf(op(K_OP_NORMAL, {num(1), num(4)}), {-kInf, -1, 0.5, 2, 4, kInf}, normal(1, 4));
  expect_cdf(op(K_OP_TRUNCATE, {num(0), op(K_OP_NORMAL, {num(1), num(4)}), num(3)}), {0, 1, 2, 3},
             normal(1, 4), 0, 3);
  expect_cdf(op(K_OP_TRUNCATE, {op(K_OP_NORMAL, {num(0), num(1)}), num(0)}), {-kInf, -1, 0},
             normal(0, 1), -kInf, 0);
  expect_cdf(
      op(K_OP_TRUNCATE, {num(-1), op(K_OP_TRUNCATE, {op(K_OP_NORMAL, {num(0), num(1)}), num(1)})}),
      {-1, 0, 1}, normal(0, 1), -1, 1);
  expect_cdf(op(K_OP_UNIFORM, {num(0), num(4)}), {-1, 1, 2, 10}, uniform);
  expect_cdf(op(K_OP_TRIANGULAR, {num(0), num(1), num(4)}), {0, 0.5, 2, 4}, triangular);
  expect_cdf(op(K_OP_EXPONENTIAL, {num(2), num(1)}), {0, 1.5, 3, kInf}, expo(2, 1));
  expect_cdf(op(K_OP_EXPONENTIAL, {num(0.5)}), {0, 1, kInf}, expo(0.5, 0));
  expect_cdf(op(K_OP_WEIBULL, {num(2), num(3)}), {0, 1, 4, kInf}, weibull(2, 3, 0));
  expect_cdf(op(K_OP_WEIBULL, {num(2), num(3), num(-1)}), {-1, 1, 4, kInf}, weibull(2, 3, -1));
  expect_cdf(op(K_OP_LOGNORMAL, {num(0), num(1)}), {0, 1, 2, kInf}, lognormal(0));
  expect_cdf(op(K_OP_LOGNORMAL, {num(0), num(1), num(2)}), {2, 3, 4, kInf}, lognormal(2));
  expect_cdf(op(K_OP_GAMMA, {num(2), num(0.5)}), {0, 1, 2, kInf}, gamma2(0.5, 0));
  expect_cdf(op(K_OP_GAMMA, {num(2), num(0.5), num(1)}), {0, 1.5, 2, kInf}, gamma2(0.5, 1));
  expect_cdf(op(K_OP_BETA, {num(2), num(2)}), {0, 0.25, 0.5, 1}, beta(2, 2, 0, 1));
  expect_cdf(op(K_OP_BETA, {num(2), num(3), num(10), num(14)}), {10, 11, 12, 14},
             beta(2, 3, 10, 14));
  expect_cdf(op(K_OP_PERT, {num(0), num(0.5), num(1)}), {0, 0.25, 0.5, 1}, beta(3, 3, 0, 1));
  expect_cdf(op(K_OP_PERT, {num(0), num(0.25), num(1), num(8)}), {-1, 0.25, 0.5, 1},
             beta(3, 7, 0, 1));
}

TEST(Generate, TheStatesMustCoverTheSupport) {
  auto fails = [](k_expression_t e, const std::vector<double>& bounds, k_error_t code,
                  const std::string& message) {
    refuses(K_SUBTYPE_INTERVAL, bounds, e, code, message);
  };
  const std::vector<double> line{-kInf, kInf};
  fails(op(K_OP_NORMAL, {num(0), num(1)}), {0, 1, kInf}, K_ERROR_INSUFFICIENT_STATE_RANGE,
        "Node B: State range must include (-inf, inf) for Normal distribution\n");
  fails(op(K_OP_TRUNCATE, {num(0), op(K_OP_NORMAL, {num(0), num(1)})}), {1, 2, kInf},
        K_ERROR_INSUFFICIENT_STATE_RANGE,
        "Node B: State range must include [0, inf) for truncated Normal distribution\n");
  fails(op(K_OP_TRUNCATE, {op(K_OP_EXPONENTIAL, {num(1)}), num(2.5)}), {0, 2},
        K_ERROR_INSUFFICIENT_STATE_RANGE,
        "Node B: State range must include [0, 2.5] for truncated Exponential distribution\n");
  fails(op(K_OP_UNIFORM, {num(0), num(5)}), {0, 1, 4}, K_ERROR_INSUFFICIENT_STATE_RANGE,
        "Node B: State range must include [0, 5] for Uniform distribution\n");
  fails(op(K_OP_TRUNCATE, {num(100), op(K_OP_NORMAL, {num(0), num(1)}), num(101)}), line,
        K_ERROR_INVALID_EXPRESSION,
        "Invalid truncation of the Normal distribution (insufficient probability mass)\n");
  fails(op(K_OP_NORMAL, {num(0), num(0)}), line, K_ERROR_INAPPROPRIATE_ARGUMENTS,
        "Variance for a Normal distribution must be positive (observed: 0)\n");
  fails(op(K_OP_LOGNORMAL, {num(0), num(-1)}), line, K_ERROR_INAPPROPRIATE_ARGUMENTS,
        "The variance parameter of a LogNormal distribution must be positive (observed: -1)\n");
  fails(op(K_OP_BETA, {num(0), num(0), num(2), num(2)}), line, K_ERROR_INAPPROPRIATE_ARGUMENTS,
        "Beta distribution: Interval must have positive length (observed: [2, 2])\n");
  fails(op(K_OP_BETA, {num(0), num(1)}), line, K_ERROR_INAPPROPRIATE_ARGUMENTS,
        "Beta distribution (shape) parameters must be positive (observed: 0 and 1)\n");
  fails(op(K_OP_GAMMA, {num(1), num(-2)}), line, K_ERROR_INAPPROPRIATE_ARGUMENTS,
        "Gamma distribution parameters must be positive (observed: shape = 1, scale = -2)\n");
  fails(op(K_OP_EXPONENTIAL, {num(-0.5)}), line, K_ERROR_INAPPROPRIATE_ARGUMENTS,
        "Exponential distribution parameter must be positive (observed: -0.5)\n");
  fails(op(K_OP_WEIBULL, {num(0), num(1)}), line, K_ERROR_INAPPROPRIATE_ARGUMENTS,
        "Weibull distribution parameters must be positive (observed: a = 0, b = 1)\n");
  fails(op(K_OP_UNIFORM, {num(3), num(1)}), line, K_ERROR_INAPPROPRIATE_ARGUMENTS,
        "Uniform distribution: Interval must have positive length (observed: [3, 1])\n");
  fails(op(K_OP_TRIANGULAR, {num(0), num(2), num(1)}), line, K_ERROR_INAPPROPRIATE_ARGUMENTS,
        "Triangular distribution parameters must obey a <= m <= b and a < b "
        "(observed: a = 0, m = 2, b = 1)\n");
  fails(op(K_OP_PERT, {num(0), num(0), num(1)}), line, K_ERROR_INAPPROPRIATE_ARGUMENTS,
        "PERT parameters must obey a < m < b (observed: a = 0, m = 0, b = 1)\n");
  fails(op(K_OP_PERT, {num(0), num(0.5), num(1), num(0)}), line, K_ERROR_INAPPROPRIATE_ARGUMENTS,
        "The fourth parameter of a PERT distribution must be positive (observed: 0)\n");
  // Continuous distributions need an interval owner.
  refuses(K_SUBTYPE_NUMBER, {0, 1}, op(K_OP_NORMAL, {num(0), num(1)}), K_ERROR_INVALID_EXPRESSION,
          "The Normal distribution can only be applied to interval nodes\n");
}

TEST(Generate, CountingDistributions) {
  const double lambda = 1.5;
  const double e = std::exp(-lambda);
  const double p0 = e, p1 = e * lambda, p2 = e * lambda * lambda / 2;
  auto binomial = [](int k) {  // n = 4, p = 0.3
    const double choose[] = {1, 4, 6, 4, 1};
    return choose[k] * std::pow(0.3, k) * std::pow(0.7, 4 - k);
  };
  generates(K_SUBTYPE_NUMBER, {0, 1, 2, 3}, op(K_OP_POISSON, {num(lambda)}),
            {p0, p1, p2, 1 - p0 - p1 - p2});
  generates(K_SUBTYPE_INTERVAL, {0, 2, kInf}, op(K_OP_POISSON, {num(lambda)}),
            {p0 + p1, 1 - p0 - p1});
  generates(K_SUBTYPE_INTERVAL, {-1, 1, 2.5, 10}, op(K_OP_BINOMIAL, {num(4), num(0.3)}),
            {binomial(0), binomial(1) + binomial(2), binomial(3) + binomial(4)});
  generates(K_SUBTYPE_NUMBER, {0, 1, 2, 3, 4, 5}, op(K_OP_BINOMIAL, {num(4), num(0.3)}),
            {binomial(0), binomial(1), binomial(2), binomial(3), binomial(4), 0});
  generates(K_SUBTYPE_NUMBER, {0, 1, 2}, op(K_OP_GEOMETRIC, {num(0.25)}), {0.25, 0.1875, 0.5625});
  // Negative binomial (2, 0.5): (k + 1) / 2^(k + 2).
  generates(K_SUBTYPE_NUMBER, {0, 1, 2, 3}, op(K_OP_NEGATIVE_BINOMIAL, {num(2), num(0.5)}),
            {0.25, 0.25, 0.1875, 0.3125});
  refuses(K_SUBTYPE_NUMBER, {1, 2, 3}, op(K_OP_POISSON, {num(1)}), K_ERROR_INSUFFICIENT_STATE_RANGE,
          "");
  refuses(K_SUBTYPE_INTERVAL, {0, 1, 4}, op(K_OP_BINOMIAL, {num(4), num(0.3)}),
          K_ERROR_INSUFFICIENT_STATE_RANGE,
          "Node B: State range must include [0, 4] for Binomial distribution\n");
  refuses(K_SUBTYPE_LABEL, {0, 0}, op(K_OP_POISSON, {num(1)}), K_ERROR_INVALID_EXPRESSION,
          "The Poisson distribution can only be applied to numbered or interval nodes\n");
  refuses(K_SUBTYPE_NUMBER, {0, 1, 2}, op(K_OP_BINOMIAL, {num(1.5), num(0.5)}),
          K_ERROR_INAPPROPRIATE_ARGUMENTS,
          "Binomial distribution parameters must obey n = 0, 1, 2, ... and 0 <= p <= 1 "
          "(observed: n = 1.5, p = 0.5)\n");
  refuses(K_SUBTYPE_NUMBER, {0, 1}, op(K_OP_NEGATIVE_BINOMIAL, {num(0), num(0.5)}),
          K_ERROR_INAPPROPRIATE_ARGUMENTS,
          "NegativeBinomial distribution parameters must obey r > 0 and 0 < p <= 1 "
          "(observed: r = 0, p = 0.5)\n");
  refuses(K_SUBTYPE_NUMBER, {0, 1}, op(K_OP_GEOMETRIC, {num(1.5)}), K_ERROR_INAPPROPRIATE_ARGUMENTS,
          "Geometric distribution parameter must obey 0 < p <= 1 (observed: 1.5)\n");
  refuses(K_SUBTYPE_NUMBER, {0, 1}, op(K_OP_TRUNCATE, {num(0), op(K_OP_GEOMETRIC, {num(0.5)})}),
          K_ERROR_INVALID_EXPRESSION,
          "Truncation is not supported for the Geometric distribution\n");
}

TEST(Generate, DistributionAndNoisyOr) {
  GenNet net;
  k_node_t a1 = net.node("A1", K_SUBTYPE_BOOLEAN, 2);
  k_node_t a2 = net.node("A2", K_SUBTYPE_BOOLEAN, 2);
  k_node_t o = net.node("O", K_SUBTYPE_BOOLEAN, 2);
  link(a1, o);
  link(a2, o);  // table order: A2, A1, O
  set(model(o), 0,
      op(K_OP_NOISY_OR,
         {leaf(a1), num(0.2), leaf(a2), num(0.5), k_boolean_make_expression(1), num(0.9)}));
  ASSERT_EQ(k_node_generate_table(o), 0) << k_error_name(k_error_code());
  std::vector<double> expected;
  for (int s2 = 0; s2 < 2; ++s2)
    for (int s1 = 0; s1 < 2; ++s1) {
      const double off = 0.9 * (s1 ? 0.2 : 1) * (s2 ? 0.5 : 1);
      expected.insert(expected.end(), {off, 1 - off});
    }
  expect_close(table_of(o), expected);

  const std::vector<double> three{0, 0, 0};  // three unnamed labels
  generates(K_SUBTYPE_LABEL, three, op(K_OP_DISTRIBUTION, {num(1), num(2), num(1)}),
            {0.25, 0.5, 0.25});
  refuses(K_SUBTYPE_LABEL, three, op(K_OP_DISTRIBUTION, {num(1), num(2)}),
          K_ERROR_INAPPROPRIATE_ARGUMENTS,
          "The number of arguments of a Distribution expression must match the number of states\n");
  refuses(K_SUBTYPE_LABEL, three, op(K_OP_DISTRIBUTION, {num(1), num(-1), num(0)}),
          K_ERROR_INAPPROPRIATE_ARGUMENTS, "Negative value in Distribution expression (state 1)\n");
  refuses(K_SUBTYPE_LABEL, three, op(K_OP_DISTRIBUTION, {num(0), num(0), num(0)}),
          K_ERROR_INAPPROPRIATE_ARGUMENTS,
          "At least one argument of a Distribution expression must be positive\n");
  refuses(K_SUBTYPE_LABEL, three, op(K_OP_NOISY_OR, {k_boolean_make_expression(0), num(0.5)}),
          K_ERROR_INVALID_EXPRESSION,
          "A NoisyOR distribution can only be applied to boolean nodes\n");
  refuses(K_SUBTYPE_BOOLEAN, {0, 0}, op(K_OP_NOISY_OR, {k_boolean_make_expression(1), num(1.5)}),
          K_ERROR_INAPPROPRIATE_ARGUMENTS,
          "NoisyOR inhibitor probabilities must lie in [0, 1] (observed: 1.5)\n");
  refuses(K_SUBTYPE_LABEL, three, k_boolean_make_expression(1), K_ERROR_INVALID_EXPRESSION,
          "Node B does not have a (unique) state labeled `true'\n");
}

TEST(Generate, IntervalParentsAreSampledAndTheSpreadLogged) {
  GenNet net;
  net.open_log();
  k_node_t p = net.interval("P", {-kInf, 0, 2, 2, kInf});
  k_node_t b = net.node("B", K_SUBTYPE_BOOLEAN, 2);
  link(p, b);
  k_model_t m = model(b);
  ASSERT_EQ(k_model_set_number_of_samples_per_interval(m, 4), 0);
  // P(true) = x^2 / (1 + x^2) at the parent's value x.
  set(m, 0, op(K_OP_DISTRIBUTION, {num(1), op(K_OP_POWER, {leaf(p), num(2)})}));
  ASSERT_EQ(k_node_generate_table(b), 0) << k_error_name(k_error_code());

  auto row = [](double x) { return std::vector<double>{1 / (1 + x * x), x * x / (1 + x * x)}; };
  std::vector<double> expected;
  auto add = [&](const std::vector<double>& r) {
    expected.insert(expected.end(), r.begin(), r.end());
  };
  add(row(-1.0));  // (-inf, 0)
  std::vector<double> sum{0, 0}, lo{1, 1}, hi{0, 0};
  for (double x : {0.25, 0.75, 1.25, 1.75}) {  // [0, 2): midpoints of 4 parts
    for (int i = 0; i < 2; ++i) {
      sum[i] += row(x)[i];
      lo[i] = std::min(lo[i], row(x)[i]);
      hi[i] = std::max(hi[i], row(x)[i]);
    }
  }
  add({sum[0] / 4, sum[1] / 4});
  add(row(2));          // [2, 2): once, at 2
  add(row(2 * 1.001));  // [2, inf)
  expect_close(table_of(b), expected);
  EXPECT_EQ(net.log(), kUsing + fmt("(1,0): %g (min=%g, max=%g)\n", sum[0] / 4, lo[0], hi[0]) +
                           fmt("(1,1): %g (min=%g, max=%g)\n", sum[1] / 4, lo[1], hi[1]));

  // Points just inside a single finite bound, and 0 for the whole line.
  const struct {
    std::vector<double> bounds;
    std::vector<double> points;
  } edges[] = {{{-kInf, 3, kInf}, {3 * 0.999, 3 * 1.001}},
               {{-kInf, -3, kInf}, {-3 * 1.001, -3 * 0.999}},
               {{-kInf, 0, kInf}, {-1.0, 1.0}},
               {{-kInf, kInf}, {0.0}}};
  for (const auto& edge : edges) {
    GenNet n;
    k_node_t q = n.interval("Q", edge.bounds);
    k_node_t c = n.node("B", K_SUBTYPE_BOOLEAN, 2);
    link(q, c);
    set(model(c), 0, op(K_OP_DISTRIBUTION, {num(1), op(K_OP_EXP, {leaf(q)})}));
    ASSERT_EQ(k_node_generate_table(c), 0);
    std::vector<double> want;  // logistic rows at the points
    for (double x : edge.points)
      want.insert(want.end(), {1 / (1 + std::exp(x)), std::exp(x) / (1 + std::exp(x))});
    expect_close(table_of(c), want);
  }
}

TEST(Generate, SamplingNestsOverSeveralIntervalParents) {
  GenNet net;
  net.open_log();
  k_node_t x = net.interval("X", {0, 1});
  k_node_t y = net.interval("Y", {0, 2});
  k_node_t u = k_domain_new_node(net.d, K_CATEGORY_UTILITY, K_KIND_OTHER, K_SUBTYPE_LABEL);
  ASSERT_EQ(k_node_set_name(u, "U"), 0);
  k_node_t b = net.node("B", K_SUBTYPE_BOOLEAN, 2);
  for (k_node_t child : {b, u}) {
    link(x, child);
    link(y, child);
  }
  k_model_t m = model(b);
  ASSERT_EQ(k_model_set_number_of_samples_per_interval(m, 3), 0);
  set(m, 0, op(K_OP_DISTRIBUTION, {num(1), op(K_OP_ADD, {leaf(x), leaf(y)})}));
  k_model_t mu = model(u);
  ASSERT_EQ(k_model_set_number_of_samples_per_interval(mu, 2), 0);
  set(mu, 0, op(K_OP_SUBTRACT, {leaf(x), num(1)}));  // utilities may be negative

  ASSERT_EQ(k_node_generate_table(b), 0);
  double sum[2] = {0, 0}, lo[2] = {1, 1}, hi[2] = {0, 0};
  for (double xv : {1.0 / 6, 0.5, 5.0 / 6})
    for (double yv : {1.0 / 3, 1.0, 5.0 / 3}) {
      const double r[2] = {1 / (1 + xv + yv), (xv + yv) / (1 + xv + yv)};
      for (int i = 0; i < 2; ++i) {
        sum[i] += r[i];
        lo[i] = std::min(lo[i], r[i]);
        hi[i] = std::max(hi[i], r[i]);
      }
    }
  expect_close(table_of(b), {sum[0] / 9, sum[1] / 9});

  ASSERT_EQ(k_node_generate_table(u), 0);
  expect_close(table_of(u), {-0.5});
  EXPECT_EQ(net.log(), kUsing + fmt("(0,0,0): %g (min=%g, max=%g)\n", sum[0] / 9, lo[0], hi[0]) +
                           fmt("(0,0,1): %g (min=%g, max=%g)\n", sum[1] / 9, lo[1], hi[1]) +
                           "Using model for U to generate a utility table\n"
                           "(0,0,0): -0.5 (min=-0.75, max=-0.25)\n");
}

TEST(Generate, FunctionNodesUseWhatIsKnownOfTheirParents) {
  GenNet net;
  net.open_log();
  k_node_t n = net.numbered("N", {0, 1, 2});
  k_node_t x = net.interval("X", {0, 1, 2});
  k_node_t d = net.interval("D", {0, 1, 2, 3, 4}, K_CATEGORY_FUNCTION);
  k_node_t e = net.node("E", K_SUBTYPE_BOOLEAN, 2, K_CATEGORY_FUNCTION);
  const double pn[] = {0.2, 0.5, 0.3};
  const double px[] = {0.6, 0.4};
  ASSERT_EQ(k_table_set_data(k_node_get_table(n), pn, 3, 0, 3), 0);
  ASSERT_EQ(k_table_set_data(k_node_get_table(x), px, 2, 0, 2), 0);
  link(n, d);
  link(x, d);
  link(n, e);

  // The sum of N copies of X, each at its interval's midpoint (0.5 or 1.5).
  set(model(d), 0, op(K_OP_AGGREGATE, {leaf(n), leaf(x)}));
  ASSERT_EQ(k_node_generate_table(d), 0) << k_error_name(k_error_code());
  expect_close(table_of(d), {0.2 + 0.5 * 0.6, 0.5 * 0.4 + 0.3 * 0.6 * 0.6, 0.3 * 2 * 0.6 * 0.4,
                             0.3 * 0.4 * 0.4});

  // Weights P(N < 1) and the variance of N.
  set(model(e), 0,
      op(K_OP_DISTRIBUTION,
         {op(K_OP_SUBTRACT,
             {num(1), op(K_OP_PROBABILITY, {op(K_OP_GREATER_THAN_OR_EQUALS, {leaf(n), num(1)})})}),
          op(K_OP_VARIANCE, {leaf(n)})}));
  ASSERT_EQ(k_node_generate_table(e), 0) << k_error_name(k_error_code());
  const double mean = 0.5 + 0.6;
  const double var =
      0.2 * mean * mean + 0.5 * (1 - mean) * (1 - mean) + 0.3 * (2 - mean) * (2 - mean);
  expect_close(table_of(e), {0.2 / (0.2 + var), var / (0.2 + var)});

  // A parent with parents of its own is not known without inference.
  k_node_t g = net.labelled("G", {"g0", "g1"}, K_CATEGORY_FUNCTION);
  link(e, g);
  set(model(g), 0, op(K_OP_DISTRIBUTION, {num(1), num(1)}));
  EXPECT_FAILS(k_node_generate_table(g), K_ERROR_NOT_COMPILED);
  // A real-valued function parent the model uses must have a value.
  k_node_t r = k_domain_new_node(net.d, K_CATEGORY_FUNCTION, K_KIND_OTHER, K_SUBTYPE_LABEL);
  ASSERT_EQ(k_node_set_name(r, "R"), 0);
  k_node_t h0 = net.numbered("H0", {0}, K_CATEGORY_FUNCTION);
  link(r, h0);
  set(model(h0), 0, leaf(r));
  EXPECT_FAILS(k_node_generate_table(h0), K_ERROR_NO_VALUE);

  // The sums must fit the owner's states.
  ASSERT_EQ(k_node_set_state_value(d, 4, 3), 0);
  EXPECT_FAILS(k_node_generate_table(d), K_ERROR_INSUFFICIENT_STATE_RANGE);

  // N must be numbered, X interval, and the owner an interval function node.
  k_node_t h = net.labelled("H", {"h0", "h1"}, K_CATEGORY_FUNCTION);
  link(n, h);
  link(x, h);
  set(model(h), 0, op(K_OP_AGGREGATE, {leaf(n), leaf(x)}));
  EXPECT_FAILS(k_node_generate_table(h), K_ERROR_INVALID_EXPRESSION);
  for (k_expression_t bad :
       {op(K_OP_AGGREGATE, {leaf(x), leaf(x)}), op(K_OP_AGGREGATE, {leaf(n), leaf(n)})}) {
    set(k_node_get_model(d), 0, bad);
    EXPECT_FAILS(k_node_generate_table(d), K_ERROR_INVALID_EXPRESSION);
  }
  const std::string using_d = "Using model for D to generate a conditional probability table\n";
  EXPECT_EQ(net.log(),
            using_d +
                "Using model for E to generate a conditional probability table\n"
                "Using model for G to generate a conditional probability table\n"
                "Evaluation of parent E failed\n"
                "Using model for H0 to generate a conditional probability table\n"
                "Evaluation of function node R failed\n" +
                using_d + "Node D: State range must include [0, 3] for aggregate distribution\n" +
                "Using model for H to generate a conditional probability table\n"
                "Aggregate distributions are only valid for interval discrete function nodes\n" +
                using_d + "Aggregate distribution: `X' must be a numbered node.\n" + using_d +
                "Aggregate distribution: `N' must be an interval node.\n");
}

TEST(Generate, RealValuedFunctionParentsFollowTheConfiguration) {
  GenNet net;
  net.open_log();
  k_node_t a = net.labelled("A", {"a0", "a1"});
  k_node_t f = k_domain_new_node(net.d, K_CATEGORY_FUNCTION, K_KIND_OTHER, K_SUBTYPE_LABEL);
  ASSERT_EQ(k_node_set_name(f, "F"), 0);
  k_node_t b = net.node("B", K_SUBTYPE_BOOLEAN, 2);
  link(a, f);
  link(a, b);
  link(f, b);
  set(model(b), 0, op(K_OP_DISTRIBUTION, {num(1), leaf(f)}));
  k_model_t fm = model(f);
  EXPECT_FAILS(k_node_generate_table(b), K_ERROR_INVALID_EXPRESSION);
  set(fm, 0, op(K_OP_IF, {op(K_OP_EQUALS, {leaf(a), lab("a0")}), num(1), num(3)}));
  ASSERT_EQ(k_node_generate_table(b), 0) << k_error_name(k_error_code());
  expect_close(table_of(b), {0.5, 0.5, 0.25, 0.75});
  EXPECT_EQ(net.log(), kUsing + "Evaluation of function node F failed\n" + kUsing);
}

TEST(Generate, DomainGenerationRunsInNodeOrderAndStopsAtTheFirstFailure) {
  GenNet net;
  net.open_log();
  k_node_t first = net.labelled("B1", {"x", "y"});
  k_node_t plain = net.labelled("P", {"x", "y"});
  k_node_t second = net.labelled("B2", {"x", "y"});
  k_node_t f = k_domain_new_node(net.d, K_CATEGORY_FUNCTION, K_KIND_OTHER, K_SUBTYPE_LABEL);
  set(model(f), 0, num(1));
  k_model_t m1 = model(first);
  k_model_t m2 = model(second);
  set(m1, 0, lab("x"));
  set(m2, 0, lab("w"));
  EXPECT_FAILS(k_domain_generate_tables(net.d), K_ERROR_INVALID_EXPRESSION);
  EXPECT_EQ(k_model_table_is_generated(m1), 1);
  set(m2, 0, lab("y"));
  ASSERT_EQ(k_domain_generate_tables(net.d), 0);
  expect_close(table_of(first), {1, 0});
  expect_close(table_of(second), {0, 1});
  expect_close(table_of(plain), {0, 0});
  EXPECT_EQ(net.log(),
            "Using model for B2 to generate a conditional probability table\n"
            "Node B2 does not have a (unique) state labeled `w'\n"
            "Using model for B2 to generate a conditional probability table\n"
            "Using model for B1 to generate a conditional probability table\n");
}

}  // namespace
}  // namespace kelva::test
