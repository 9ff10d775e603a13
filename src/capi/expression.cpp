// The expression functions of the C API.
#include "expr/expression.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "capi/boundary.h"
#include "expr/model.h"

using kelva::Expression;
using kelva::ExpressionFactory;
using kelva::require;
using kelva::capi::get;
using kelva::capi::guard;
using kelva::capi::guard_status;
using kelva::capi::handle;
using kelva::capi::malloc_copy;

namespace {

// A leaf of operator `op`, or Error(usage).
Expression& leaf(k_expression_t h, int op) {
  Expression& e = get(h);
  require(e.op() == op);
  return e;
}

}  // namespace

extern "C" {

k_expression_t k_number_make_expression(double number) {
  return guard<k_expression_t>(nullptr, [&] { return handle(ExpressionFactory::number(number)); });
}

k_expression_t k_label_make_expression(const char* label) {
  return guard<k_expression_t>(nullptr, [&] { return handle(ExpressionFactory::label(label)); });
}

k_expression_t k_boolean_make_expression(int value) {
  return guard<k_expression_t>(nullptr,
                               [&] { return handle(ExpressionFactory::boolean(value != 0)); });
}

k_expression_t k_node_make_expression(k_node_t node) {
  return guard<k_expression_t>(nullptr, [&] { return handle(ExpressionFactory::node(get(node))); });
}

k_expression_t k_make_composite_expression(k_operator_t op, const k_expression_t* operands) {
  return guard<k_expression_t>(nullptr, [&] {
    require(operands != nullptr);
    std::vector<Expression*> list;
    for (const k_expression_t* p = operands; *p != nullptr; ++p) list.push_back(&get(*p));
    return handle(ExpressionFactory::composite(op, list));
  });
}

k_bool_t k_expression_is_composite(k_expression_t e) {
  return guard<k_bool_t>(-1, [&] { return k_bool_t{get(e).is_composite() ? 1 : 0}; });
}

k_operator_t k_expression_get_operator(k_expression_t e) {
  return guard<k_operator_t>(K_OP_ERROR, [&] { return static_cast<k_operator_t>(get(e).op()); });
}

k_expression_t* k_expression_get_operands(k_expression_t e) {
  return guard<k_expression_t*>(nullptr, [&] {
    Expression& x = get(e);
    require(x.is_composite());
    return reinterpret_cast<k_expression_t*>(const_cast<Expression**>(x.operands().data()));
  });
}

double k_expression_get_number(k_expression_t e) {
  return guard<double>(-1.0, [&] { return leaf(e, K_OP_NUMBER).number(); });
}

const char* k_expression_get_label(k_expression_t e) {
  return guard<const char*>(nullptr, [&] { return leaf(e, K_OP_LABEL).label().c_str(); });
}

k_node_t k_expression_get_node(k_expression_t e) {
  return guard<k_node_t>(nullptr, [&] { return handle(leaf(e, K_OP_NODE).node()); });
}

int k_expression_get_boolean(k_expression_t e) {
  return guard<int>(-1, [&] { return leaf(e, K_OP_BOOLEAN).boolean() ? 1 : 0; });
}

char* k_expression_to_string(k_expression_t e) {
  return guard<char*>(nullptr, [&] {
    const Expression* x = e == nullptr ? nullptr : &get(e);
    return malloc_copy(kelva::expression_to_string(x));
  });
}

k_expression_t k_string_parse_expression(const char* text, k_model_t m,
                                         k_parse_error_handler_t handler, void* data) {
  return guard<k_expression_t>(nullptr, [&] {
    require(text != nullptr);
    kelva::Domain& scope = get(m).owner().domain();
    return handle(kelva::parse_expression(text, scope, handler, data));
  });
}

k_status_t k_expression_delete(k_expression_t e) {
  return guard_status([&] { ExpressionFactory::release(&get(e)); });
}

}  // extern "C"
