// The model and table-generation functions of the C API.
#include "expr/model.h"

#include <memory>
#include <vector>

#include "capi/boundary.h"
#include "expr/evaluate.h"
#include "expr/expression.h"
#include "expr/generate.h"
#include "table/size.h"

using kelva::Expression;
using kelva::Model;
using kelva::Node;
using kelva::require;
using kelva::capi::get;
using kelva::capi::guard;
using kelva::capi::guard_status;
using kelva::capi::handle;

extern "C" {

k_model_t k_node_new_model(k_node_t node, const k_node_t* model_nodes) {
  return guard<k_model_t>(nullptr, [&] {
    Node& owner = get(node);
    require(model_nodes != nullptr);
    // The owner is refused before the list is looked at.
    kelva::verify_model_owner(owner);
    return handle(&kelva::new_model(owner, kelva::capi::node_list(model_nodes)));
  });
}

k_model_t k_node_get_model(k_node_t node) {
  return guard<k_model_t>(nullptr, [&] { return handle(get(node).model()); });
}

k_status_t k_model_delete(k_model_t model) {
  return guard_status([&] {
    Model& m = get(model);
    m.owner().model_slot().reset();
  });
}

k_node_t* k_model_get_nodes(k_model_t model) {
  return guard<k_node_t*>(nullptr, [&] { return handle(get(model).nodes().data()); });
}

k_size_t k_model_get_size(k_model_t model) {
  return guard<k_size_t>(K_SIZE_ERROR, [&] {
    const std::uint64_t size = get(model).size();
    require(size != kelva::kSizeTooLarge, K_ERROR_SIZE_TOO_LARGE);
    return size;
  });
}

k_status_t k_model_set_expression(k_model_t model, k_size_t index, k_expression_t expression) {
  return guard_status([&] {
    Model& m = get(model);
    require(index < m.size());
    kelva::set_model_expression(m, index, expression == nullptr ? nullptr : &get(expression));
  });
}

k_status_t k_model_set_expression_from_string(k_model_t model, k_size_t index, const char* text,
                                              k_parse_error_handler_t handler, void* data) {
  return guard_status([&] {
    Model& m = get(model);
    require(index < m.size() && text != nullptr);
    Expression* e = kelva::parse_expression(text, m.owner().domain(), handler, data);
    try {
      kelva::set_model_expression(m, index, e);
    } catch (...) {
      kelva::ExpressionFactory::release(e);
      throw;
    }
  });
}

k_expression_t k_model_get_expression(k_model_t model, k_size_t index) {
  return guard<k_expression_t>(nullptr, [&] {
    const Model& m = get(model);
    require(index < m.size());
    return handle(m.expression(index));
  });
}

k_status_t k_model_set_number_of_samples_per_interval(k_model_t model, k_size_t count) {
  return guard_status([&] { kelva::set_samples_per_interval(get(model), count); });
}

k_size_t k_model_get_number_of_samples_per_interval(k_model_t model) {
  return guard<k_size_t>(K_SIZE_ERROR, [&] { return get(model).samples_per_interval; });
}

k_bool_t k_model_table_is_generated(k_model_t model) {
  return guard<k_bool_t>(-1, [&] { return get(model).owner().needs_generation ? 1 : 0; });
}

k_status_t k_model_set_backpointer(k_model_t model, void* data) {
  return guard_status([&] { get(model).backpointer = data; });
}

void* k_model_get_backpointer(k_model_t model) {
  return guard<void*>(nullptr, [&] { return get(model).backpointer; });
}

k_status_t k_node_generate_table(k_node_t node) {
  return guard_status([&] { kelva::generate_table(get(node), kelva::PriorBeliefs()); });
}

k_status_t k_domain_generate_tables(k_domain_t domain) {
  return guard_status([&] { kelva::generate_tables(get(domain), kelva::PriorBeliefs()); });
}

}  // extern "C"
