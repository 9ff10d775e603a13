// The printed form of expressions: the text that the parser reads back into
// the same tree.
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "expr/expression.h"
#include "network/error.h"
#include "network/node.h"
#include "platform/locale_guard.h"

namespace kelva {

namespace {

bool is_additive(const Expression& e) noexcept {
  return e.op() == K_OP_ADD || e.op() == K_OP_SUBTRACT || e.op() == K_OP_NEGATE;
}
bool is_multiplicative(const Expression& e) noexcept {
  return e.op() == K_OP_MULTIPLY || e.op() == K_OP_DIVIDE;
}
bool is_comparison(const Expression& e) noexcept {
  return e.op() >= K_OP_EQUALS && e.op() <= K_OP_GREATER_THAN_OR_EQUALS;
}
// Negative zero counts as negative: printed without parentheses, its sign
// would be read as a second sign of a sum.
bool is_negative_number(const Expression& e) noexcept {
  return e.op() == K_OP_NUMBER && std::signbit(e.number());
}

// Whether operand `side` (0 left, 1 right) of `parent` needs parentheses.
bool needs_parentheses(const Expression& parent, int side, const Expression& operand) noexcept {
  const bool a_or_negative = is_additive(operand) || is_negative_number(operand);
  switch (parent.op()) {
    case K_OP_ADD:
    case K_OP_SUBTRACT:
      return side == 1 && a_or_negative;
    case K_OP_MULTIPLY:
    case K_OP_DIVIDE:
      return a_or_negative || (side == 1 && is_multiplicative(operand));
    case K_OP_POWER:
      return a_or_negative || is_multiplicative(operand) ||
             (side == 0 && operand.op() == K_OP_POWER);
    case K_OP_NEGATE:
      return a_or_negative;
    default:
      return is_comparison(parent) && is_comparison(operand);
  }
}

void append_number(std::string& out, double value, int digits) {
  char buffer[64];
  const int n = digits == 0 ? std::snprintf(buffer, sizeof buffer, "%G", value)
                            : std::snprintf(buffer, sizeof buffer, "%.*G", digits, value);
  out.append(buffer, static_cast<std::size_t>(n));
}

bool is_octal_digit(char c) noexcept { return c >= '0' && c <= '7'; }

void append_label(std::string& out, const std::string& text) {
  out += '"';
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    switch (c) {
      case '\t':
        out += "\\t";
        continue;
      case '\n':
        out += "\\n";
        continue;
      case '\r':
        out += "\\r";
        continue;
      case '"':
        out += "\\\"";
        continue;
      case '\\':
        out += "\\\\";
        continue;
      default:
        break;
    }
    if (c >= 0x20 && c < 0x7F) {  // printable in the "C" locale
      out += static_cast<char>(c);
      continue;
    }
    // Three digits when a digit follows, so that the escape cannot take it.
    const bool digit_follows = i + 1 < text.size() && is_octal_digit(text[i + 1]);
    char buffer[8];
    const int n = std::snprintf(buffer, sizeof buffer, digit_follows ? "\\%03o" : "\\%o", c);
    out.append(buffer, static_cast<std::size_t>(n));
  }
  out += '"';
}

void print(std::string& out, const Expression& e, int digits);

void print_operand(std::string& out, const Expression& parent, int side, const Expression& operand,
                   int digits) {
  if (needs_parentheses(parent, side, operand)) {
    out += '(';
    print(out, operand, digits);
    out += ')';
  } else {
    print(out, operand, digits);
  }
}

void print(std::string& out, const Expression& e, int digits) {
  switch (e.op()) {
    case K_OP_NUMBER:
      append_number(out, e.number(), digits);
      return;
    case K_OP_LABEL:
      append_label(out, e.label());
      return;
    case K_OP_BOOLEAN:
      out += e.boolean() ? "true" : "false";
      return;
    case K_OP_NODE:
      out += e.node()->name_or_generate();
      return;
    default:
      break;
  }
  const ExpressionList& operands = e.operands();
  if (e.op() <= K_OP_NOT) {
    out += operator_name(e.op());
    out += " (";
    for (std::size_t i = 0; i < operands.size(); ++i) {
      if (i > 0) out += ", ";
      print(out, *operands[i], digits);
    }
    out += ')';
  } else if (e.op() == K_OP_NEGATE || e.op() == K_OP_STATE_INDEX) {
    out += operator_name(e.op());
    print_operand(out, e, 0, *operands[0], digits);
  } else {
    // A chain of "+"/"-" (or "*"/"/") is printed in a loop from its
    // innermost left operand out; the links themselves need no parentheses.
    const std::vector<const Expression*> links = chain_links(e);
    print_operand(out, *links.back(), 0, *links.back()->operands()[0], digits);
    for (std::size_t i = links.size(); i-- > 0;) {
      out += ' ';
      out += operator_name(links[i]->op());
      out += ' ';
      print_operand(out, *links[i], 1, *links[i]->operands()[1], digits);
    }
  }
}

}  // namespace

std::string expression_to_string(const Expression* e, int digits) {
  platform::CLocaleGuard locale;
  require(locale.ok(), K_ERROR_LOCALE);
  std::string out;
  if (e != nullptr) print(out, *e, digits);
  return out;
}

}  // namespace kelva
