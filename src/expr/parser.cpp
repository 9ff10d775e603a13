#include "expr/parser.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "expr/expression.h"
#include "lexer/lexer.h"
#include "network/domain.h"
#include "network/error.h"
#include "network/node.h"
#include "platform/locale_guard.h"

namespace kelva {

namespace {

// Frees a partial tree unless a composite has taken it over.
struct Releaser {
  void operator()(Expression* e) const noexcept { ExpressionFactory::release(e); }
};
using Tree = std::unique_ptr<Expression, Releaser>;

int comparison_operator(int token) noexcept {
  switch (token) {
    case TOKEN_EQ:
      return K_OP_EQUALS;
    case TOKEN_NE:
      return K_OP_NOT_EQUALS;
    case TOKEN_LT:
      return K_OP_LESS_THAN;
    case TOKEN_GT:
      return K_OP_GREATER_THAN;
    case TOKEN_LE:
      return K_OP_LESS_THAN_OR_EQUALS;
    case TOKEN_GE:
      return K_OP_GREATER_THAN_OR_EQUALS;
    default:
      return -1;
  }
}

// Recursive descent over the full token reader.  Every failure is reported
// through the lexer and thrown as Error; the Tree holders free whatever was
// built so far.
class Parser {
 public:
  Parser(Lexer& lexer, Domain& scope) noexcept : lexer_(lexer), scope_(scope) {}

  // whole: expression EOF
  Tree whole() {
    Tree e = expression();
    if (next() != TOKEN_EOF) fail("unexpected token");
    return e;
  }

  // expression: sum [comparison sum]
  // comparison: `==` | `=` | `!=` | `<>` | `<` | `>` | `<=` | `>=`
  Tree expression() {
    Tree left = sum();
    const int token = next();
    const int op = comparison_operator(token);
    if (op < 0) {
      lexer_.push_back(token);
      return left;
    }
    Tree right = sum();
    return make(op, std::move(left), std::move(right));
  }

 private:
  // Counts one level of nesting for as long as it lives.
  class Nesting {
   public:
    explicit Nesting(Parser& parser) : parser_(parser) {
      if (++parser_.depth_ > kMaxExpressionHeight) parser_.fail("expression too deeply nested");
    }
    ~Nesting() { --parser_.depth_; }
    Nesting(const Nesting&) = delete;
    Nesting& operator=(const Nesting&) = delete;

   private:
    Parser& parser_;
  };

  // sum: [`+` | `-`] term {(`+` | `-`) term}
  Tree sum() {
    int token = next();
    const bool negate = token == '-';
    if (token != '+' && token != '-') lexer_.push_back(token);
    Tree left = term();
    if (negate) left = negated(std::move(left));
    while ((token = next()) == '+' || token == '-') {
      Tree right = term();
      left = make(token == '+' ? K_OP_ADD : K_OP_SUBTRACT, std::move(left), std::move(right));
    }
    lexer_.push_back(token);
    return left;
  }

  // A signed number is a number, not a negation.
  [[gnu::noinline]] Tree negated(Tree operand) {
    if (operand->op() != K_OP_NUMBER) return make(K_OP_NEGATE, std::move(operand));
    const double value = -operand->number();
    return api([&] { return ExpressionFactory::number(value); });
  }

  // term: power {(`*` | `/`) power}
  Tree term() {
    Tree left = power();
    int token;
    while ((token = next()) == '*' || token == '/') {
      Tree right = power();
      left = make(token == '*' ? K_OP_MULTIPLY : K_OP_DIVIDE, std::move(left), std::move(right));
    }
    lexer_.push_back(token);
    return left;
  }

  // power: primary [`^` power]
  Tree power() {
    Tree base = primary();
    const int token = next();
    if (token != '^') {
      lexer_.push_back(token);
      return base;
    }
    Nesting nesting(*this);
    Tree exponent = power();
    return make(K_OP_POWER, std::move(base), std::move(exponent));
  }

  // primary: NUMBER | STRING | NAME `(` [expression {`,` expression}] `)`
  //        | NAME | DOTTED_NAME | `#` primary | `(` expression `)`
  // Kept small: it is on the recursion path of every nesting level, so the
  // other cases live in functions of their own.
  Tree primary() {
    const int token = next();
    if (token == '#') {
      Nesting nesting(*this);
      Tree operand = primary();
      return state_index(std::move(operand));
    }
    if (token == '(') {
      Nesting nesting(*this);
      Tree inner = expression();
      if (next() != ')') fail("`)' expected");
      return inner;
    }
    return simple_primary(token);
  }

  // The operand of `#` must be a discrete node.
  [[gnu::noinline]] Tree state_index(Tree operand) {
    if (operand->op() != K_OP_NODE || !operand->node()->is_discrete())
      fail("`#' must be followed by the name of a discrete node");
    return make(K_OP_STATE_INDEX, std::move(operand));
  }

  // NUMBER | STRING | NAME ... | DOTTED_NAME
  [[gnu::noinline]] Tree simple_primary(int token) {
    switch (token) {
      case TOKEN_NUMBER: {
        const double value = lexer_.number();
        return api([&] { return ExpressionFactory::number(value); });
      }
      case TOKEN_STRING:
        return api([&] { return ExpressionFactory::label(lexer_.text().c_str()); });
      case TOKEN_NAME:
        return name();
      case TOKEN_DOTTED_NAME:
        return dotted_name();
      default:
        fail("unexpected token");
    }
  }

  // NAME [`(` ...]: a function call when `(` follows, else a node or one of
  // the constants `true` and `false`.
  [[gnu::noinline]] Tree name() {
    std::string name = lexer_.text();
    const int token = next();
    if (token == '(') return call(function_operator(name.c_str()), name);
    lexer_.push_back(token);
    // A node named "true" or "false" wins over the constant.
    if (Node* node = scope_.find(name)) return api([&] { return ExpressionFactory::node(*node); });
    if (name == "true" || name == "false")
      return api([&] { return ExpressionFactory::boolean(name == "true"); });
    fail("no such node: " + name);
  }

  // call: NAME `(` [expression {`,` expression}] `)`, the `(` already read
  [[gnu::noinline]] Tree call(int op, const std::string& name) {
    if (op < 0) fail("unknown operator `" + name + "'");
    Nesting nesting(*this);
    std::vector<Tree> operands;
    int token = next();
    if (token != ')') {
      lexer_.push_back(token);
      for (;;) {
        operands.push_back(expression());
        token = next();
        if (token == ')') break;
        if (token != ',') fail("`,' or `)' expected");
      }
    }
    return make(op, std::move(operands));
  }

  // DOTTED_NAME: an instance node, `.`, and a name in the instance's class
  // (nested to any depth).  Instance nodes come with classes; until they
  // exist the first part can only fail to name one.
  [[gnu::noinline]] Tree dotted_name() {
    const std::string text = lexer_.text();
    const std::string head = text.substr(0, text.find('.'));
    if (scope_.find(head) == nullptr) fail("node `" + head + "' not found", K_ERROR_PARSE);
    fail("node `" + head + "' is not an instance node", K_ERROR_PARSE);
  }

  // The next token; a lexical failure ends the parse.
  int next() {
    const std::int64_t errors = lexer_.error_count();
    const int token = lexer_.next_token();
    if (token == TOKEN_ERROR) token_failed(errors);
    return token;
  }

  // The lexer has reported its failures except for the silent ones (a
  // number that does not convert, `\x` without a digit), reported here.
  [[noreturn, gnu::noinline]] void token_failed(std::int64_t errors_before) {
    if (lexer_.error_count() == errors_before) fail("unexpected token", K_ERROR_PARSE);
    const k_error_t code = lexer_.failure();
    throw Error(code != K_ERROR_NONE ? code : K_ERROR_PARSE);
  }

  [[noreturn, gnu::noinline]] void fail(const std::string& message,
                                        k_error_t code = K_ERROR_SYNTAX) {
    lexer_.report_error(message.c_str());
    throw Error(code);
  }

  // Runs a factory call; an engine failure becomes "API error: %s".
  template <class F>
  Tree api(F&& make_expression) {
    try {
      return Tree(make_expression());
    } catch (const Error& e) {
      api_failed(e.code());
    } catch (const std::bad_alloc&) {
      api_failed(K_ERROR_NO_MEMORY);
    }
  }

  [[noreturn, gnu::noinline]] void api_failed(k_error_t code) {
    const ErrorEntry* entry = find_error(code);
    fail(std::string("API error: ") + (entry != nullptr ? entry->description : ""), code);
  }

  [[gnu::noinline]] Tree make(int op, std::vector<Tree> operands) {
    std::vector<Expression*> raw;
    raw.reserve(operands.size());
    for (const Tree& t : operands) raw.push_back(t.get());
    // The composite holds the operands now; the holders' release is a no-op.
    return api([&] { return ExpressionFactory::composite(op, raw); });
  }
  [[gnu::noinline]] Tree make(int op, Tree operand) {
    std::vector<Tree> operands;
    operands.push_back(std::move(operand));
    return make(op, std::move(operands));
  }
  [[gnu::noinline]] Tree make(int op, Tree left, Tree right) {
    std::vector<Tree> operands;
    operands.push_back(std::move(left));
    operands.push_back(std::move(right));
    return make(op, std::move(operands));
  }

  Lexer& lexer_;
  Domain& scope_;
  int depth_ = 0;
};

}  // namespace

Expression* parse_expression(Lexer& lexer, Domain& scope) {
  return Parser(lexer, scope).expression().release();
}

Expression* parse_expression(const char* text, Domain& scope, k_parse_error_handler_t handler,
                             void* data) {
  require(text != nullptr);
  platform::CLocaleGuard locale;
  require(locale.ok(), K_ERROR_LOCALE);
  Lexer lexer(text, handler, data);
  lexer.set_reader(TokenReader::full);
  Tree e = Parser(lexer, scope).whole();
  // An error that the parse itself survived still fails it.
  if (lexer.error_count() > 0) throw Error(K_ERROR_PARSE);
  return e.release();
}

}  // namespace kelva
