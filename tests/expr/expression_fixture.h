#pragma once

// A domain with named nodes of every sort that expressions distinguish, and
// helpers to build, parse and print expressions in it.

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "expr/expression.h"
#include "kelva/kelva.h"
#include "network/domain.h"
#include "network/error.h"
#include "network/node.h"

namespace kelva::test {

/// One message given to a parse error handler.
struct Message {
  std::uint64_t position;
  std::string text;
};

/// A parse error handler that collects the messages in a vector<Message>
/// (handlers are called from C and must not throw: a message that cannot be
/// stored is dropped).
inline void collect(std::uint64_t position, const char* message, void* data) noexcept {
  try {
    static_cast<std::vector<Message>*>(data)->push_back({position, message});
  } catch (...) {
  }
}

/// Labelled nodes a, b, c (two states), boolean B, numbered N, interval I,
/// continuous x and y.  Utility and real-valued function nodes live in a
/// second domain (`u`: utility U, function F), since a domain with
/// continuous nodes cannot have utility nodes.
class ExprNet {
 public:
  ExprNet() {
    a = make(d, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL, "a");
    b = make(d, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL, "b");
    c = make(d, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL, "c");
    B = make(d, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_BOOLEAN, "B");
    N = make(d, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_NUMBER, "N");
    I = make(d, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_INTERVAL, "I");
    x = make(d, K_CATEGORY_CHANCE, K_KIND_CONTINUOUS, K_SUBTYPE_LABEL, "x");
    y = make(d, K_CATEGORY_CHANCE, K_KIND_CONTINUOUS, K_SUBTYPE_LABEL, "y");
    U = make(u, K_CATEGORY_UTILITY, K_KIND_OTHER, K_SUBTYPE_LABEL, "U");
    F = make(u, K_CATEGORY_FUNCTION, K_KIND_OTHER, K_SUBTYPE_LABEL, "F");
  }
  ~ExprNet() {
    for (Expression* e : made_) ExpressionFactory::release(e);
    k_domain_delete(d);
    k_domain_delete(u);
  }
  ExprNet(const ExprNet&) = delete;
  ExprNet& operator=(const ExprNet&) = delete;

  Domain& domain() const { return *reinterpret_cast<Domain*>(d); }

  /// Leaves, freed at the end of the test unless a composite holds them.
  Expression* num(double v) { return keep(ExpressionFactory::number(v)); }
  Expression* lab(const char* s) { return keep(ExpressionFactory::label(s)); }
  Expression* bln(bool v) { return keep(ExpressionFactory::boolean(v)); }
  Expression* leaf(k_node_t n) {
    return keep(ExpressionFactory::node(*reinterpret_cast<Node*>(n)));
  }
  /// A composite; fails the test when it is refused.
  Expression* op(int code, std::initializer_list<Expression*> operands) {
    Expression* e = ExpressionFactory::composite(code, operands);
    return keep(e);
  }
  /// The code a composite is refused with, or K_ERROR_NONE when it is made.
  k_error_t refusal(int code, std::initializer_list<Expression*> operands) {
    try {
      keep(ExpressionFactory::composite(code, operands));
      return K_ERROR_NONE;
    } catch (const Error& e) {
      return e.code();
    }
  }

  /// Parses `text` in the main domain; null on failure, with the code and
  /// messages left in `code` and `messages`.
  Expression* parse(const std::string& text) {
    messages.clear();
    code = K_ERROR_NONE;
    try {
      return keep(parse_expression(text.c_str(), domain(), collect, &messages));
    } catch (const Error& e) {
      code = e.code();
      return nullptr;
    }
  }

  /// Remembers `e` for release at the end.  Released oldest first: an
  /// expression still held then is skipped, and freed later by its holder
  /// (always younger), so nothing is touched after it is freed.
  Expression* keep(Expression* e) {
    made_.push_back(e);
    return e;
  }

  k_domain_t d = k_new_domain();
  k_domain_t u = k_new_domain();
  k_node_t a, b, c, B, N, I, x, y, U, F;
  k_error_t code = K_ERROR_NONE;
  std::vector<Message> messages;

 private:
  static k_node_t make(k_domain_t dom, k_category_t category, k_kind_t kind, k_subtype_t subtype,
                       const char* name) {
    k_node_t n = k_domain_new_node(dom, category, kind, subtype);
    EXPECT_NE(n, nullptr) << name;
    EXPECT_EQ(k_node_set_name(n, name), 0) << name;
    return n;
  }

  std::vector<Expression*> made_;
};

}  // namespace kelva::test
