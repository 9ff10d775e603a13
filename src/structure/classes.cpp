#include "structure/classes.h"

#include <algorithm>
#include <string>
#include <vector>

#include "network/error.h"
#include "network/names.h"
#include "structure/structure.h"

namespace kelva {

namespace {

Class* home_class(const Node& node) noexcept { return class_of(node.domain()); }

bool compatible(const Node& input, const Node& actual) noexcept {
  if (input.kind() != actual.kind()) return false;
  return !input.is_discrete() || input.state_count() == actual.state_count();
}

// The instance nodes of a class body.
std::vector<Node*> instance_nodes(const Domain& body) {
  std::vector<Node*> result;
  for (Node* n = body.first_node(); n != nullptr; n = n->next)
    if (n->instance_data != nullptr) result.push_back(n);
  return result;
}

// Deletes an output clone with its links, dropping the models of its
// children that refer to it.
void delete_clone(Node& clone) {
  const std::vector<Node*> children(clone.children().begin(), clone.children().end());
  delete_node(clone);
  if (drop_model_referring != nullptr)
    for (Node* c : children) drop_model_referring(*c, clone);
}

// A new output clone of `output` beside `instance`: the output's sort and
// states.
Node& make_clone(Node& instance, Node& output) {
  Domain& home = instance.domain();
  InstanceData& data = *instance.instance_data;
  data.clones.reserve(data.clones.size() + 1);
  Node* clone = home.new_node(output.category(), output.kind(), output.subtype());
  try {
    if (output.is_discrete()) {
      clone->resize_states(output.state_count());
      for (std::size_t i = 0; i < output.state_count(); ++i) {
        clone->set_state_label(i, output.state_label(i));
        clone->set_state_value(i, output.state_value(i));
      }
      clone->set_state_value(output.state_count(), output.state_value(output.state_count()));
    }
  } catch (...) {
    home.destroy_node(clone);
    throw;
  }
  clone->master = &output;
  clone->clone_instance = &instance;
  data.clones.push_back({&output, clone});
  return *clone;
}

bool valid_class_name(const char* name) { return name != nullptr && is_valid_name(name, false); }

}  // namespace

Class& new_class(ClassCollection& collection, const char* name) {
  require(name != nullptr);
  if (!valid_class_name(name)) throw Error(K_ERROR_INVALID_NAME);
  if (collection.find(name) != nullptr) throw Error(K_ERROR_TWICE);
  return collection.add(name);
}

Class& add_domain_as_class(ClassCollection& collection, Domain& domain, const char* name) {
  require(name != nullptr && !domain.is_class() && domain.chain_components.empty());
  if (!valid_class_name(name)) throw Error(K_ERROR_INVALID_NAME);
  if (collection.find(name) != nullptr) throw Error(K_ERROR_TWICE);
  for (const Node* n = domain.first_node(); n != nullptr; n = n->next)
    require(n->name().find('.') == std::string::npos);
  Class& cls = collection.adopt(name, domain);
  domain.uncompile();
  if (domain.unfolded_from != nullptr) {
    for (Node* n = domain.first_node(); n != nullptr; n = n->next) n->source.clear();
    domain.unfolded_from->remove_unfolded(domain);
  }
  return cls;
}

void add_classes(ClassCollection& collection, ClassCollection& other) {
  require(&collection != &other);
  for (const Class* c : other.members())
    if (collection.find(c->name()) != nullptr) throw Error(K_ERROR_TWICE);
  collection.take_classes(other);
}

void rename_class(Class& cls, const char* name) {
  require(name != nullptr);
  if (cls.name() == name) return;
  if (!valid_class_name(name)) throw Error(K_ERROR_INVALID_NAME);
  if (cls.collection().find(name) != nullptr) throw Error(K_ERROR_TWICE);
  cls.set_name(name);
}

void delete_class(Class& cls) {
  while (!cls.instances.empty()) delete_node(*cls.instances[0]);
  cls.collection().destroy(cls);
}

bool instantiates(const Class& outer, const Class& inner) noexcept {
  if (&outer == &inner) return true;
  for (Node* n = outer.body().first_node(); n != nullptr; n = n->next)
    if (n->instance_data != nullptr && instantiates(*n->instance_data->of, inner)) return true;
  return false;
}

Node& new_instance(Class& home, Class& of) {
  require(&home.collection() == &of.collection());
  if (instantiates(of, home)) throw Error(K_ERROR_CYCLIC_INSTANCE_HIERARCHY);
  of.instances.reserve_more(1);
  auto data = std::make_unique<InstanceData>();
  data->of = &of;
  Node* node = home.body().new_node(K_CATEGORY_INSTANCE, K_KIND_OTHER, K_SUBTYPE_LABEL);
  node->instance_data = std::move(data);
  of.instances.push_back(node);
  try {
    for (Node* output : of.outputs) make_clone(*node, *output);
  } catch (...) {
    delete_node(*node);
    throw;
  }
  return *node;
}

void substitute_class(Node& instance, Class& of) {
  require(instance.instance_data != nullptr);
  InstanceData& data = *instance.instance_data;
  Class& home = *home_class(instance);
  if (data.of == &of) return;
  require(&home.collection() == &of.collection());
  if (instantiates(of, home)) throw Error(K_ERROR_CYCLIC_INSTANCE_HIERARCHY);
  of.instances.reserve_more(1);
  auto same_name = [](const NodeList& list, const Node& n) -> Node* {
    if (!n.has_name()) return nullptr;
    for (Node* m : list)
      if (m->has_name() && m->name() == n.name()) return m;
    return nullptr;
  };
  // Bindings move to the new class's input of the same name.
  std::vector<InstanceData::Binding> bindings;
  for (const auto& b : data.bindings) {
    Node* input = same_name(of.inputs, *b.input);
    if (input != nullptr && compatible(*input, *b.actual)) bindings.push_back({input, b.actual});
  }
  // Clones stay (with their links) for outputs of the same name and states.
  std::vector<InstanceData::Clone> kept;
  std::vector<Node*> dropped;
  for (const auto& c : data.clones) {
    Node* output = same_name(of.outputs, *c.output);
    if (output != nullptr && output->category() == c.clone->category() &&
        output->kind() == c.clone->kind() && compatible(*output, *c.clone))
      kept.push_back({output, c.clone});
    else dropped.push_back(c.clone);
  }
  data.of->instances.remove(&instance);
  of.instances.push_back(&instance);
  data.of = &of;
  data.bindings = std::move(bindings);
  for (Node* clone : dropped) delete_clone(*clone);
  data.clones = std::move(kept);
  for (auto& c : data.clones) c.clone->master = c.output;
  for (Node* output : of.outputs)
    if (data.clone_of(output) == nullptr) make_clone(instance, *output);
  home.body().uncompile();
}

void set_input(Node& instance, Node& input, Node& actual) {
  require(instance.instance_data != nullptr);
  InstanceData& data = *instance.instance_data;
  require(data.of->inputs.contains(&input));
  require(&actual.domain() == &instance.domain());
  require(actual.instance_data == nullptr && actual.category() != K_CATEGORY_UTILITY);
  require(compatible(input, actual));
  for (auto& b : data.bindings)
    if (b.input == &input) {
      b.actual = &actual;
      return;
    }
  data.bindings.push_back({&input, &actual});
}

void unset_input(Node& instance, Node& input) {
  require(instance.instance_data != nullptr);
  require(instance.instance_data->of->inputs.contains(&input));
  std::erase_if(instance.instance_data->bindings,
                [&](const InstanceData::Binding& b) { return b.input == &input; });
}

void add_to_inputs(Node& node) {
  Class* cls = home_class(node);
  require(cls != nullptr && node.instance_data == nullptr && node.master == nullptr);
  require(node.temporal_master == nullptr);
  require(node.category() == K_CATEGORY_CHANCE || node.category() == K_CATEGORY_DECISION);
  require(node.parents().empty() && !cls->outputs.contains(&node));
  if (cls->inputs.contains(&node)) return;
  cls->inputs.push_back(&node);
}

void remove_from_inputs(Node& node) {
  Class* cls = home_class(node);
  require(cls != nullptr && cls->inputs.contains(&node));
  for (Node* instance : cls->instances) unset_input(*instance, node);
  cls->inputs.remove(&node);
}

void add_to_outputs(Node& node) {
  Class* cls = home_class(node);
  require(cls != nullptr && node.instance_data == nullptr && node.master == nullptr);
  require(node.temporal_master == nullptr);
  require(!cls->inputs.contains(&node));
  if (cls->outputs.contains(&node)) return;
  cls->outputs.reserve_more(1);
  std::vector<Node*> made;
  try {
    for (Node* instance : cls->instances) made.push_back(&make_clone(*instance, node));
  } catch (...) {
    for (Node* clone : made) delete_clone(*clone);
    throw;
  }
  cls->outputs.push_back(&node);
}

void remove_from_outputs(Node& node) {
  Class* cls = home_class(node);
  require(cls != nullptr && cls->outputs.contains(&node));
  for (Node* instance : cls->instances)
    if (Node* clone = instance->instance_data->clone_of(&node)) delete_clone(*clone);
  cls->outputs.remove(&node);
}

bool takes_parents(const Node& node) noexcept {
  if (node.master != nullptr || node.temporal_master != nullptr) return false;
  Class* cls = home_class(node);
  return cls == nullptr || !cls->inputs.contains(&node);
}

bool states_tied_by_classes(const Node& node) noexcept {
  if (node.master != nullptr || node.temporal_master != nullptr || node.temporal_clone != nullptr)
    return true;
  Class* cls = home_class(node);
  if (cls == nullptr) return false;
  if (!cls->instances.empty() && (cls->inputs.contains(&node) || cls->outputs.contains(&node)))
    return true;
  for (Node* n = node.domain().first_node(); n != nullptr; n = n->next)
    if (n->instance_data != nullptr)
      for (const auto& b : n->instance_data->bindings)
        if (b.actual == &node) return true;
  return false;
}

void release_class_ties(Node& node) {
  // A temporal clone without its master is an ordinary node of the class.
  if (node.temporal_clone != nullptr) node.temporal_clone->temporal_master = nullptr;
  if (node.temporal_master != nullptr) node.temporal_master->temporal_clone = nullptr;
  node.temporal_clone = nullptr;
  node.temporal_master = nullptr;
  if (node.instance_data != nullptr) {
    // Each clone's deletion takes it off the list.
    while (!node.instance_data->clones.empty())
      delete_clone(*node.instance_data->clones.back().clone);
    node.instance_data->of->instances.remove(&node);
    node.instance_data->of = nullptr;
    return;
  }
  if (node.master != nullptr) {
    std::erase_if(node.clone_instance->instance_data->clones,
                  [&](const InstanceData::Clone& c) { return c.clone == &node; });
    node.master = nullptr;
    node.clone_instance = nullptr;
    return;
  }
  Class* cls = home_class(node);
  if (cls == nullptr) return;
  if (cls->inputs.contains(&node)) remove_from_inputs(node);
  if (cls->outputs.contains(&node)) remove_from_outputs(node);
  for (Node* instance : instance_nodes(node.domain()))
    std::erase_if(instance->instance_data->bindings,
                  [&](const InstanceData::Binding& b) { return b.actual == &node; });
}

}  // namespace kelva
