// The domain functions of the C API.
#include <memory>
#include <string>

#include "capi/boundary.h"
#include "network/names.h"
#include "network/node.h"

using kelva::capi::get;
using kelva::capi::guard;
using kelva::capi::guard_status;
using kelva::capi::handle;

namespace kelva::capi {

std::string attribute_key(const char* key) {
  require(key != nullptr);
  if (!is_valid_name(key, false)) throw Error(K_ERROR_INVALID_NAME);
  return key;
}

}  // namespace kelva::capi

extern "C" {

k_domain_t k_new_domain(void) {
  return guard<k_domain_t>(nullptr, [] { return handle(new kelva::Domain()); });
}

k_status_t k_domain_delete(k_domain_t domain) {
  return guard_status([&] {
    kelva::Domain& d = get(domain);
    kelva::require(!d.is_class());  // a class goes with k_class_delete
    delete &d;
  });
}

k_node_t k_domain_new_node(k_domain_t domain, k_category_t category, k_kind_t kind,
                           k_subtype_t subtype) {
  return guard<k_node_t>(nullptr, [&] {
    kelva::require(category != K_CATEGORY_INSTANCE);  // k_class_new_instance makes those
    return handle(get(domain).new_node(category, kind, subtype));
  });
}

k_node_t k_domain_get_first_node(k_domain_t domain) {
  return guard<k_node_t>(nullptr, [&] { return handle(get(domain).first_node()); });
}

k_node_t k_domain_get_node_by_name(k_domain_t domain, const char* name) {
  return guard<k_node_t>(nullptr, [&] {
    kelva::Domain& d = get(domain);
    kelva::require(name != nullptr);
    return handle(d.find(name));
  });
}

k_size_t k_domain_get_number_of_chance_nodes(k_domain_t domain) {
  return guard<k_size_t>(K_SIZE_ERROR, [&] { return get(domain).count(K_CATEGORY_CHANCE); });
}

k_size_t k_domain_get_number_of_decision_nodes(k_domain_t domain) {
  return guard<k_size_t>(K_SIZE_ERROR, [&] { return get(domain).count(K_CATEGORY_DECISION); });
}

k_size_t k_domain_get_number_of_utility_nodes(k_domain_t domain) {
  return guard<k_size_t>(K_SIZE_ERROR, [&] { return get(domain).count(K_CATEGORY_UTILITY); });
}

k_size_t k_domain_get_number_of_instance_nodes(k_domain_t domain) {
  return guard<k_size_t>(K_SIZE_ERROR, [&] { return get(domain).count(K_CATEGORY_INSTANCE); });
}

k_status_t k_domain_set_node_size(k_domain_t domain, k_size_t width, k_size_t height) {
  return guard_status([&] {
    kelva::Domain& d = get(domain);
    d.node_width = width;
    d.node_height = height;
  });
}

k_size_t k_domain_get_node_width(k_domain_t domain) {
  return guard<k_size_t>(K_SIZE_ERROR, [&] { return get(domain).node_width; });
}

k_size_t k_domain_get_node_height(k_domain_t domain) {
  return guard<k_size_t>(K_SIZE_ERROR, [&] { return get(domain).node_height; });
}

k_status_t k_domain_set_grain_size(k_domain_t domain, k_size_t size) {
  return guard_status([&] {
    kelva::Domain& d = get(domain);
    kelva::require(size != 0);
    d.grain_size = size;
  });
}

k_size_t k_domain_get_grain_size(k_domain_t domain) {
  return guard<k_size_t>(K_SIZE_ERROR, [&] { return get(domain).grain_size; });
}

k_status_t k_domain_set_concurrency_level(k_domain_t domain, k_size_t level) {
  return guard_status([&] {
    kelva::Domain& d = get(domain);
    kelva::require(level != 0);
    d.concurrency_level = level;
  });
}

k_size_t k_domain_get_concurrency_level(k_domain_t domain) {
  return guard<k_size_t>(K_SIZE_ERROR, [&] { return get(domain).concurrency_level; });
}

k_status_t k_domain_set_scaled_propagation(k_domain_t domain, k_bool_t scaled) {
  return guard_status([&] {
    kelva::Domain& d = get(domain);
    kelva::require(scaled == 0 || scaled == 1);
    d.scaled_propagation = scaled == 1;
  });
}

k_bool_t k_domain_get_scaled_propagation(k_domain_t domain) {
  return guard<k_bool_t>(-1, [&] { return k_bool_t{get(domain).scaled_propagation}; });
}

k_status_t k_domain_set_attribute(k_domain_t domain, const char* key, const char* value) {
  return guard_status([&] {
    kelva::Domain& d = get(domain);
    d.attributes().set(kelva::capi::attribute_key(key), value);
  });
}

const char* k_domain_get_attribute(k_domain_t domain, const char* key) {
  return guard<const char*>(nullptr, [&] {
    kelva::Domain& d = get(domain);
    kelva::require(key != nullptr);
    return d.attributes().get(key);
  });
}

k_attribute_t k_domain_get_first_attribute(k_domain_t domain) {
  return guard<k_attribute_t>(nullptr, [&] { return handle(get(domain).attributes().first()); });
}

k_status_t k_domain_set_log_file(k_domain_t domain, const char* file_name, int append) {
  return guard_status([&] { get(domain).set_log_file(file_name, append != 0); });
}

k_status_t k_domain_set_backpointer(k_domain_t domain, void* data) {
  return guard_status([&] { get(domain).backpointer = data; });
}

void* k_domain_get_backpointer(k_domain_t domain) {
  return guard<void*>(nullptr, [&] { return get(domain).backpointer; });
}

k_bool_t k_domain_is_compiled(k_domain_t domain) {
  return guard<k_bool_t>(-1, [&] { return k_bool_t{get(domain).is_compiled()}; });
}

k_status_t k_domain_uncompile(k_domain_t domain) {
  return guard_status([&] { get(domain).uncompile(); });
}

const char* k_attribute_get_key(k_attribute_t attribute) {
  return guard<const char*>(nullptr, [&] { return get(attribute).key.c_str(); });
}

const char* k_attribute_get_value(k_attribute_t attribute) {
  return guard<const char*>(nullptr, [&] { return get(attribute).value.c_str(); });
}

k_attribute_t k_attribute_get_next(k_attribute_t attribute) {
  return guard<k_attribute_t>(nullptr, [&] { return handle(get(attribute).next.get()); });
}

}  // extern "C"
