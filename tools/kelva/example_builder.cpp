// Builds a bundled example network through the C API.

#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

#include "cli_error.h"
#include "example_network.h"

namespace kelva::cli {

namespace {

/// The node of `domain` called `name`; the example data name only their own
/// nodes, so a miss is a fault in the data.
k_node_t node_named(k_domain_t domain, const char* name) {
  k_node_t node = checked(k_domain_get_node_by_name(domain, name));
  if (node == nullptr) throw std::logic_error(std::string("example names unknown node ") + name);
  return node;
}

/// Creates the node with its name, label and states (no links yet).
void add_node(k_domain_t domain, const ExampleNode& entry) {
  k_node_t node =
      checked(k_domain_new_node(domain, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL));
  checked(k_node_set_name(node, entry.name));
  checked(k_node_set_label(node, entry.label));
  checked(k_node_set_number_of_states(node, entry.states.size()));
  for (std::size_t i = 0; i < entry.states.size(); ++i)
    checked(k_node_set_state_label(node, i, entry.states[i]));
}

/// Copies the example's table into the node's table.  The library chooses the
/// order of the table's nodes, so every entry is moved from the example's
/// layout (parents as listed, node last) to the table's own order.
void fill_table(k_domain_t domain, const ExampleNode& entry) {
  k_node_t node = node_named(domain, entry.name);
  std::vector<k_node_t> layout;
  for (const char* parent : entry.parents) layout.push_back(node_named(domain, parent));
  layout.push_back(node);

  // Stride of each node in the example's layout, last node fastest.
  std::vector<k_size_t> layout_stride(layout.size());
  k_size_t size = 1;
  for (std::size_t i = layout.size(); i-- > 0;) {
    layout_stride[i] = size;
    size *= checked(k_node_get_number_of_states(layout[i]));
  }
  if (size != entry.table.size())
    throw std::logic_error(std::string("bad table size for ") + entry.name);

  k_table_t table = checked(k_node_get_table(node));
  std::vector<k_size_t> count, stride;
  for (k_node_t* member = checked(k_table_get_nodes(table)); *member != nullptr; ++member) {
    std::size_t pos = 0;
    while (pos < layout.size() && layout[pos] != *member) ++pos;
    if (pos == layout.size())
      throw std::logic_error(std::string("unexpected table member of ") + entry.name);
    count.push_back(checked(k_node_get_number_of_states(*member)));
    stride.push_back(layout_stride[pos]);
  }
  if (checked(k_table_get_size(table)) != size)
    throw std::logic_error(std::string("table of ") + entry.name + " has an unexpected size");

  // Walk the table's configurations in its order with an odometer.
  std::vector<double> data(size);
  std::vector<k_size_t> state(count.size(), 0);
  for (k_size_t index = 0; index < size; ++index) {
    k_size_t source = 0;
    for (std::size_t j = 0; j < state.size(); ++j) source += state[j] * stride[j];
    data[index] = entry.table[source];
    for (std::size_t j = state.size(); j-- > 0;) {
      if (++state[j] < count[j]) break;
      state[j] = 0;
    }
  }
  checked(k_table_set_data(table, data.data(), size, 0, size));
}

}  // namespace

DomainHandle build_example_network(const ExampleNetwork& example) {
  DomainHandle domain(checked(k_new_domain()));
  for (const ExampleNode& entry : example.nodes) add_node(domain.get(), entry);
  for (const ExampleNode& entry : example.nodes)
    for (const char* parent : entry.parents)
      checked(k_node_add_parent(node_named(domain.get(), entry.name),
                                node_named(domain.get(), parent)));
  for (const ExampleNode& entry : example.nodes) fill_table(domain.get(), entry);
  return domain;
}

}  // namespace kelva::cli
