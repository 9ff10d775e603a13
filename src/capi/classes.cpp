// C functions of classes, class collections and instance nodes.

#include "structure/classes.h"

#include <memory>

#include "capi/boundary.h"
#include "capi/class_handle.h"
#include "network/class.h"

using kelva::capi::class_handle;
using kelva::capi::get;
using kelva::capi::get_class;
using kelva::capi::guard;
using kelva::capi::guard_status;
using kelva::capi::handle;

namespace {

kelva::ClassCollection& get_cc(k_class_collection_t h) {
  auto* p = reinterpret_cast<kelva::ClassCollection*>(h);
  kelva::require(p != nullptr && p->is(kelva::ObjectTag::class_collection));
  return *p;
}

kelva::Node& instance_node(k_node_t h) {
  kelva::Node& n = get(h);
  kelva::require(n.instance_data != nullptr);
  return n;
}

kelva::Node& clone_node(k_node_t h) {
  kelva::Node& n = get(h);
  kelva::require(n.master != nullptr);
  return n;
}

}  // namespace

extern "C" {

k_class_collection_t k_new_class_collection(void) {
  return guard<k_class_collection_t>(
      nullptr, [] { return reinterpret_cast<k_class_collection_t>(new kelva::ClassCollection()); });
}

k_status_t k_cc_delete(k_class_collection_t cc) {
  return guard_status([&] { delete &get_cc(cc); });
}

k_class_t k_cc_new_class(k_class_collection_t cc, const char* name) {
  return guard<k_class_t>(nullptr,
                          [&] { return class_handle(&kelva::new_class(get_cc(cc), name)); });
}

k_class_t k_cc_get_class_by_name(k_class_collection_t cc, const char* name) {
  return guard<k_class_t>(nullptr, [&] {
    kelva::ClassCollection& c = get_cc(cc);
    kelva::require(name != nullptr);
    return class_handle(c.find(name));
  });
}

k_class_t* k_cc_get_members(k_class_collection_t cc) {
  return guard<k_class_t*>(nullptr, [&] {
    return reinterpret_cast<k_class_t*>(const_cast<kelva::Domain**>(get_cc(cc).bodies().data()));
  });
}

k_status_t k_class_delete(k_class_t cls) {
  return guard_status([&] { kelva::delete_class(get_class(cls)); });
}

const char* k_class_get_name(k_class_t cls) {
  return guard<const char*>(nullptr, [&] { return get_class(cls).name().c_str(); });
}

k_status_t k_class_set_name(k_class_t cls, const char* name) {
  return guard_status([&] { kelva::rename_class(get_class(cls), name); });
}

k_class_collection_t k_class_get_class_collection(k_class_t cls) {
  return guard<k_class_collection_t>(nullptr, [&] {
    return reinterpret_cast<k_class_collection_t>(&get_class(cls).collection());
  });
}

k_node_t* k_class_get_inputs(k_class_t cls) {
  return guard<k_node_t*>(nullptr, [&] { return handle(get_class(cls).inputs.data()); });
}

k_node_t* k_class_get_outputs(k_class_t cls) {
  return guard<k_node_t*>(nullptr, [&] { return handle(get_class(cls).outputs.data()); });
}

k_node_t* k_class_get_instances(k_class_t cls) {
  return guard<k_node_t*>(nullptr, [&] { return handle(get_class(cls).instances.data()); });
}

k_status_t k_class_set_backpointer(k_class_t cls, void* data) {
  return guard_status([&] { get_class(cls).backpointer = data; });
}

void* k_class_get_backpointer(k_class_t cls) {
  return guard<void*>(nullptr, [&] { return get_class(cls).backpointer; });
}

k_node_t k_class_new_instance(k_class_t cls, k_class_t instance_of) {
  return guard<k_node_t>(nullptr, [&] {
    return handle(&kelva::new_instance(get_class(cls), get_class(instance_of)));
  });
}

k_domain_t k_class_create_domain(k_class_t cls) {
  return guard<k_domain_t>(nullptr,
                           [&] { return handle(kelva::create_domain(get_class(cls)).release()); });
}

k_class_t k_node_get_home_class(k_node_t node) {
  return guard<k_class_t>(nullptr, [&] { return class_handle(get(node).domain().owner_class); });
}

k_class_t k_node_get_instance_class(k_node_t instance) {
  return guard<k_class_t>(nullptr,
                          [&] { return class_handle(instance_node(instance).instance_data->of); });
}

k_node_t k_node_get_instance(k_node_t clone) {
  return guard<k_node_t>(nullptr, [&] { return handle(clone_node(clone).clone_instance); });
}

k_node_t k_node_get_master(k_node_t clone) {
  return guard<k_node_t>(nullptr, [&] { return handle(clone_node(clone).master); });
}

k_node_t k_node_get_input(k_node_t instance, k_node_t input) {
  return guard<k_node_t>(nullptr, [&] {
    kelva::Node& i = instance_node(instance);
    kelva::Node& in = get(input);
    kelva::require(i.instance_data->of->inputs.contains(&in));
    return handle(i.instance_data->actual_of(&in));
  });
}

k_status_t k_node_set_input(k_node_t instance, k_node_t input, k_node_t actual) {
  return guard_status([&] { kelva::set_input(get(instance), get(input), get(actual)); });
}

k_status_t k_node_unset_input(k_node_t instance, k_node_t input) {
  return guard_status([&] { kelva::unset_input(get(instance), get(input)); });
}

k_node_t k_node_get_output(k_node_t instance, k_node_t output) {
  return guard<k_node_t>(nullptr, [&] {
    kelva::Node& i = instance_node(instance);
    kelva::Node& out = get(output);
    kelva::require(i.instance_data->of->outputs.contains(&out));
    return handle(i.instance_data->clone_of(&out));
  });
}

k_node_t* k_node_get_outputs(k_node_t instance) {
  return guard<k_node_t*>(nullptr, [&] {
    kelva::Node& i = instance_node(instance);
    kelva::NodeList& list = i.scratch_list();
    list.clear();
    for (kelva::Node* output : i.instance_data->of->outputs)
      list.push_back(i.instance_data->clone_of(output));
    return handle(list.data());
  });
}

k_status_t k_node_add_to_inputs(k_node_t node) {
  return guard_status([&] { kelva::add_to_inputs(get(node)); });
}

k_status_t k_node_remove_from_inputs(k_node_t node) {
  return guard_status([&] { kelva::remove_from_inputs(get(node)); });
}

k_status_t k_node_add_to_outputs(k_node_t node) {
  return guard_status([&] { kelva::add_to_outputs(get(node)); });
}

k_status_t k_node_remove_from_outputs(k_node_t node) {
  return guard_status([&] { kelva::remove_from_outputs(get(node)); });
}

k_status_t k_node_substitute_class(k_node_t instance, k_class_t cls) {
  return guard_status([&] { kelva::substitute_class(get(instance), get_class(cls)); });
}

k_class_t k_cc_add_domain(k_class_collection_t cc, k_domain_t domain, const char* name) {
  return guard<k_class_t>(nullptr, [&] {
    kelva::ClassCollection& c = get_cc(cc);
    return class_handle(&kelva::add_domain_as_class(c, get(domain), name));
  });
}

k_status_t k_cc_add_classes(k_class_collection_t cc, k_class_collection_t other) {
  return guard_status([&] {
    kelva::ClassCollection& c = get_cc(cc);
    kelva::add_classes(c, get_cc(other));
  });
}

k_node_t* k_node_get_source(k_node_t node) {
  return guard<k_node_t*>(nullptr, [&] { return handle(get(node).source.data()); });
}

void* k_node_get_home_backpointer(k_node_t node) {
  return guard<void*>(nullptr, [&] {
    kelva::Domain& home = get(node).domain();
    return home.owner_class != nullptr ? home.owner_class->backpointer : home.backpointer;
  });
}

k_domain_t k_domain_clone(k_domain_t domain) {
  return guard<k_domain_t>(nullptr,
                           [&] { return handle(kelva::clone_domain(get(domain)).release()); });
}

k_node_t k_node_clone(k_node_t node) {
  return guard<k_node_t>(nullptr, [&] { return handle(&kelva::clone_node(get(node))); });
}

}  // extern "C"
