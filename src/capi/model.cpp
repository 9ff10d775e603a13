// The model and table-generation functions of the C API.
#include <algorithm>
#include <memory>
#include <vector>

#include "capi/boundary.h"
#include "expr/evaluate.h"
#include "expr/expression.h"
#include "expr/generate.h"
#include "expr/model.h"
#include "table/size.h"

using kelva::Expression;
using kelva::Model;
using kelva::Node;
using kelva::capi::get;
using kelva::capi::guard;
using kelva::capi::guard_status;
using kelva::capi::handle;
using kelva::require;

namespace {

bool is_real_function(const Node& n) noexcept {
  return n.category() == K_CATEGORY_FUNCTION && n.kind() == K_KIND_OTHER;
}

// The checks an expression must pass before a model of `owner` may hold it.
void check_for_owner(Expression& e, const Node& owner) {
  auto invalid = [](bool failed) { require(!failed, K_ERROR_INVALID_EXPRESSION); };
  bool stranger = false;
  kelva::for_each_node_leaf(e, [&](const Node& n) {
    stranger = stranger || !owner.parents().contains(&n);
  });
  invalid(stranger);
  const kelva::ExprType type = kelva::check_types(e, false);
  invalid(is_real_function(owner) && type != kelva::ExprType::numeric &&
          type != kelva::ExprType::node);
  const bool function = owner.category() == K_CATEGORY_FUNCTION;
  invalid(!function && (kelva::contains_operator(e, K_OP_PROBABILITY) ||
                        kelva::contains_operator(e, K_OP_VARIANCE)));
  invalid(!(function && owner.is_discrete()) && kelva::contains_operator(e, K_OP_AGGREGATE));
}

// Stores `e` (null clears) in slot `index` after its checks; marks the owner.
void store(Model& m, k_size_t index, Expression* e) {
  require(index < m.size());
  if (e != nullptr) check_for_owner(*e, m.owner());
  m.set_expression(index, e);
  m.owner().needs_generation = true;
}

}  // namespace

extern "C" {

k_model_t k_node_new_model(k_node_t node, const k_node_t* model_nodes) {
  return guard<k_model_t>(nullptr, [&] {
    Node& owner = get(node);
    require(model_nodes != nullptr);
    require(owner.category() != K_CATEGORY_INSTANCE && !owner.is_continuous());
    const std::vector<Node*> nodes = kelva::capi::node_list(model_nodes);
    for (std::size_t i = 0; i < nodes.size(); ++i) {
      const Node& n = *nodes[i];
      require(&n.domain() == &owner.domain());
      require(n.is_discrete());
      require(owner.parents().contains(&n));
      require(std::find(nodes.begin(), nodes.begin() + i, &n) == nodes.begin() + i);
    }
    kelva::ModelPtr fresh(new Model(owner, nodes));
    Model* result = fresh.get();
    owner.model_slot() = std::move(fresh);
    owner.needs_generation = true;
    return handle(result);
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
    store(m, index, expression == nullptr ? nullptr : &get(expression));
  });
}

k_status_t k_model_set_expression_from_string(k_model_t model, k_size_t index, const char* text,
                                              k_parse_error_handler_t handler, void* data) {
  return guard_status([&] {
    Model& m = get(model);
    require(index < m.size() && text != nullptr);
    Expression* e = kelva::parse_expression(text, m.owner().domain(), handler, data);
    try {
      store(m, index, e);
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
  return guard_status([&] {
    Model& m = get(model);
    require(count > 0);
    m.samples_per_interval = count;
    if (!is_real_function(m.owner())) m.owner().needs_generation = true;
  });
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
