// The node functions of the C API.
#include <cmath>
#include <string>
#include <vector>

#include "capi/boundary.h"
#include "expr/expression.h"
#include "expr/model.h"
#include "platform/memory.h"
#include "structure/structure.h"

using kelva::require;
using kelva::capi::get;
using kelva::capi::guard;
using kelva::capi::guard_status;
using kelva::capi::handle;

namespace {

bool is_numeric(const kelva::Node& n) noexcept {
  return n.subtype() == K_SUBTYPE_NUMBER || n.subtype() == K_SUBTYPE_INTERVAL;
}

// A discrete node, or Error(usage).
kelva::Node& discrete(k_node_t h) {
  kelva::Node& n = get(h);
  require(n.is_discrete());
  return n;
}

// Value slots of a numeric node: one per state, and for an interval node one
// more for the upper bound of the last interval.
kelva::Node& numeric_slot(k_node_t h, k_size_t slot) {
  kelva::Node& n = get(h);
  require(n.is_discrete() && is_numeric(n));
  require(slot < n.state_count() + (n.subtype() == K_SUBTYPE_INTERVAL ? 1 : 0));
  return n;
}

// A discrete node and a state index below its count, or Error(usage).
kelva::Node& discrete_state(k_node_t h, k_size_t state) {
  kelva::Node& n = discrete(h);
  require(state < n.state_count());
  return n;
}

// A model that refers to a parent that is gone (as a model node or in an
// expression) cannot describe the table any more: it is deleted.
void forget_model_using(kelva::Node& child, const kelva::Node& gone) noexcept {
  if (child.model() != nullptr && kelva::model_refers_to(*child.model(), gone))
    child.model_slot().reset();
}

// The slots of the children's models that have `node` as a model node,
// reshaped before a change of the node's states and put in place after it,
// so that each slot stays with its configuration.
class ModelReshape {
 public:
  template <class Mapping>
  ModelReshape(kelva::Node& node, std::size_t old_count, Mapping mapping) {
    std::vector<std::size_t> new_to_old;
    bool mapped = false;
    for (kelva::Node* c : node.children()) {
      kelva::Model* m = c->model();
      if (m == nullptr || !m->nodes().contains(&node)) continue;
      if (!mapped) {
        new_to_old = mapping();
        mapped = true;
      }
      pending_.emplace_back(m, m->reshaped_slots(node, old_count, new_to_old));
    }
  }
  void commit() noexcept {
    for (auto& [model, slots] : pending_) model->commit_slots(std::move(slots));
  }

 private:
  std::vector<std::pair<kelva::Model*, std::vector<kelva::Expression*>>> pending_;
};

}  // namespace

extern "C" {

k_status_t k_node_delete(k_node_t node) {
  return guard_status([&] {
    kelva::Node& n = get(node);
    kelva::require(n.master == nullptr);  // output clones follow their class
    const std::vector<kelva::Node*> children(n.children().begin(), n.children().end());
    kelva::delete_node(n);
    for (kelva::Node* c : children) forget_model_using(*c, n);  // compares addresses only
  });
}

k_domain_t k_node_get_home_domain(k_node_t node) {
  return guard<k_domain_t>(nullptr, [&] { return handle(&get(node).domain()); });
}

k_node_t k_node_get_next(k_node_t node) {
  return guard<k_node_t>(nullptr, [&] { return handle(get(node).next); });
}

k_category_t k_node_get_category(k_node_t node) {
  return guard<k_category_t>(K_CATEGORY_ERROR, [&] { return get(node).category(); });
}

k_kind_t k_node_get_kind(k_node_t node) {
  return guard<k_kind_t>(K_KIND_ERROR, [&] { return get(node).kind(); });
}

k_subtype_t k_node_get_subtype(k_node_t node) {
  return guard<k_subtype_t>(K_SUBTYPE_ERROR, [&] { return discrete(node).subtype(); });
}

k_status_t k_node_set_discrete_type(k_node_t node, k_subtype_t subtype) {
  return guard_status([&] { kelva::set_discrete_type(get(node), subtype); });
}

const char* k_node_get_name(k_node_t node) {
  return guard<const char*>(nullptr, [&] { return get(node).name_or_generate().c_str(); });
}

k_status_t k_node_set_name(k_node_t node, const char* name) {
  return guard_status([&] {
    kelva::Node& n = get(node);
    n.domain().rename(n, name);
  });
}

const char* k_node_get_label(k_node_t node) {
  return guard<const char*>(nullptr, [&] {
    const kelva::Node& n = get(node);
    return n.label ? n.label->c_str() : "";
  });
}

k_status_t k_node_set_label(k_node_t node, const char* label) {
  return guard_status([&] {
    kelva::Node& n = get(node);
    require(label != nullptr);
    n.label = label;
  });
}

k_status_t k_node_set_position(k_node_t node, int x, int y) {
  return guard_status([&] {
    kelva::Node& n = get(node);
    n.x = x;
    n.y = y;
  });
}

int k_node_get_x_coordinate(k_node_t node) {
  return guard<int>(0, [&] { return get(node).x; });
}

int k_node_get_y_coordinate(k_node_t node) {
  return guard<int>(0, [&] { return get(node).y; });
}

k_size_t k_node_get_number_of_states(k_node_t node) {
  return guard<k_size_t>(K_SIZE_ERROR, [&] { return k_size_t{discrete(node).state_count()}; });
}

k_status_t k_node_set_number_of_states(k_node_t node, k_size_t count) {
  return guard_status([&] {
    kelva::Node& n = get(node);
    const std::size_t old = n.is_discrete() ? n.state_count() : 0;
    // Kept states keep their slots; new ones (index not below `old`) are empty.
    ModelReshape models(n, old, [&] {
      require(kelva::platform::allocation_possible(count * sizeof(std::size_t)), K_ERROR_NO_MEMORY);
      std::vector<std::size_t> new_to_old(static_cast<std::size_t>(count));
      for (std::size_t t = 0; t < new_to_old.size(); ++t) new_to_old[t] = t;
      return new_to_old;
    });
    kelva::set_number_of_states(n, static_cast<std::size_t>(count));
    models.commit();
  });
}

// Children's model slots follow the intervals: both halves of a split
// interval keep its expression, a merged pair keeps the lower one's.
k_status_t k_node_double_number_of_intervals(k_node_t node) {
  return guard_status([&] {
    kelva::Node& n = get(node);
    const std::size_t old = n.is_discrete() ? n.state_count() : 0;
    ModelReshape models(n, old, [&] {
      std::vector<std::size_t> new_to_old(2 * old);
      for (std::size_t t = 0; t < new_to_old.size(); ++t) new_to_old[t] = t / 2;
      return new_to_old;
    });
    kelva::double_number_of_intervals(n);
    models.commit();
  });
}

k_status_t k_node_halve_number_of_intervals(k_node_t node) {
  return guard_status([&] {
    kelva::Node& n = get(node);
    const std::size_t old = n.is_discrete() ? n.state_count() : 0;
    ModelReshape models(n, old, [&] {
      std::vector<std::size_t> new_to_old(old / 2);
      for (std::size_t t = 0; t < new_to_old.size(); ++t) new_to_old[t] = 2 * t;
      return new_to_old;
    });
    kelva::halve_number_of_intervals(n);
    models.commit();
  });
}

const char* k_node_get_state_label(k_node_t node, k_size_t state) {
  return guard<const char*>(nullptr,
                            [&] { return discrete_state(node, state).state_label(state); });
}

k_status_t k_node_set_state_label(k_node_t node, k_size_t state, const char* label) {
  return guard_status([&] {
    kelva::Node& n = discrete_state(node, state);
    require(label != nullptr);
    n.set_state_label(state, label);
  });
}

int64_t k_node_get_state_index_from_label(k_node_t node, const char* label) {
  return guard<int64_t>(-1, [&] {
    const kelva::Node& n = discrete(node);
    require(label != nullptr);
    const std::string_view wanted(label);
    int64_t found = -1;
    for (std::size_t i = 0; i < n.state_count(); ++i) {
      if (wanted != n.state_label(i)) continue;
      if (found >= 0) return int64_t{-1};  // ambiguous: deliberately "none"
      found = static_cast<int64_t>(i);
    }
    return found;
  });
}

double k_node_get_state_value(k_node_t node, k_size_t state) {
  return guard<double>(-1.0, [&] { return numeric_slot(node, state).state_value(state); });
}

k_status_t k_node_set_state_value(k_node_t node, k_size_t state, double value) {
  return guard_status([&] {
    kelva::Node& n = numeric_slot(node, state);
    require(!std::isnan(value));
    n.set_state_value(state, value);
    kelva::flag_for_generation(n, true);
  });
}

int64_t k_node_get_state_index_from_value(k_node_t node, double value) {
  return guard<int64_t>(-1, [&] {
    const kelva::Node& n = discrete(node);
    require(is_numeric(n) && !std::isnan(value));
    const std::size_t count = n.state_count();
    if (n.subtype() == K_SUBTYPE_NUMBER) {
      for (std::size_t i = 0; i < count; ++i)
        if (n.state_value(i) == value) return static_cast<int64_t>(i);
      return int64_t{-1};
    }
    // Interval node: state i holds [v(i), v(i+1)).
    for (std::size_t i = 0; i < count; ++i)
      if (n.state_value(i) <= value && value < n.state_value(i + 1)) return static_cast<int64_t>(i);
    return int64_t{-1};
  });
}

k_status_t k_node_reorder_states(k_node_t node, const char* const* order) {
  return guard_status([&] {
    kelva::Node& n = get(node);
    require(order != nullptr);
    std::vector<const char*> labels;
    for (const char* const* p = order; *p != nullptr; ++p) labels.push_back(*p);
    ModelReshape models(n, n.is_discrete() ? n.state_count() : 0,
                        [&] { return kelva::state_order(n, labels); });
    kelva::reorder_states(n, labels);
    models.commit();
  });
}

k_status_t k_node_set_attribute(k_node_t node, const char* key, const char* value) {
  return guard_status([&] {
    kelva::Node& n = get(node);
    n.attributes().set(kelva::capi::attribute_key(key), value);
  });
}

const char* k_node_get_attribute(k_node_t node, const char* key) {
  return guard<const char*>(nullptr, [&] {
    kelva::Node& n = get(node);
    require(key != nullptr);
    return n.attributes().get(key);
  });
}

k_attribute_t k_node_get_first_attribute(k_node_t node) {
  return guard<k_attribute_t>(nullptr, [&] { return handle(get(node).attributes().first()); });
}

k_status_t k_node_set_backpointer(k_node_t node, void* data) {
  return guard_status([&] { get(node).backpointer = data; });
}

void* k_node_get_backpointer(k_node_t node) {
  return guard<void*>(nullptr, [&] { return get(node).backpointer; });
}

k_status_t k_node_add_parent(k_node_t child, k_node_t parent) {
  return guard_status([&] {
    kelva::Node& c = get(child);
    kelva::add_parent(c, get(parent));
  });
}

k_status_t k_node_remove_parent(k_node_t child, k_node_t parent) {
  return guard_status([&] {
    kelva::Node& c = get(child);
    kelva::Node& p = get(parent);
    kelva::remove_parent(c, p);
    forget_model_using(c, p);
  });
}

k_status_t k_node_switch_parent(k_node_t child, k_node_t old_parent, k_node_t new_parent) {
  return guard_status([&] {
    kelva::Node& c = get(child);
    kelva::Node& o = get(old_parent);
    kelva::switch_parent(c, o, get(new_parent));
    forget_model_using(c, o);
  });
}

k_status_t k_node_reverse_edge(k_node_t node1, k_node_t node2) {
  return guard_status([&] {
    kelva::Node& a = get(node1);
    kelva::Node& b = get(node2);
    kelva::reverse_edge(a, b);
    forget_model_using(b, a);
  });
}

k_node_t* k_node_get_parents(k_node_t node) {
  return guard<k_node_t*>(nullptr, [&] { return handle(get(node).parents().data()); });
}

k_node_t* k_node_get_children(k_node_t node) {
  return guard<k_node_t*>(nullptr, [&] { return handle(get(node).children().data()); });
}

k_table_t k_node_get_table(k_node_t node) {
  return guard<k_table_t>(nullptr, [&] { return handle(&kelva::node_table(get(node))); });
}

k_bool_t k_node_has_table(k_node_t node) {
  return guard<k_bool_t>(-1, [&] { return k_bool_t{get(node).table() != nullptr}; });
}

k_table_t k_node_get_experience_table(k_node_t node) {
  return guard<k_table_t>(nullptr, [&] { return handle(&kelva::experience_table(get(node))); });
}

k_bool_t k_node_has_experience_table(k_node_t node) {
  return guard<k_bool_t>(-1, [&] { return k_bool_t{get(node).experience_table() != nullptr}; });
}

k_table_t k_node_get_fading_table(k_node_t node) {
  return guard<k_table_t>(nullptr, [&] { return handle(&kelva::fading_table(get(node))); });
}

k_bool_t k_node_has_fading_table(k_node_t node) {
  return guard<k_bool_t>(-1, [&] { return k_bool_t{get(node).fading_table() != nullptr}; });
}

}  // extern "C"
