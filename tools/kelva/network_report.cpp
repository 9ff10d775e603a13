#include "network_report.h"

#include <map>
#include <utility>

#include "cli_error.h"

namespace kelva::cli {

namespace {

/// Reads a node's name, label, codes and states; links and tables come later,
/// once every node has its index.
NodeInfo read_node(k_node_t node) {
  NodeInfo info;
  info.name = checked(k_node_get_name(node));
  info.label = checked(k_node_get_label(node));
  info.category = checked(k_node_get_category(node));
  info.kind = checked(k_node_get_kind(node));
  if (info.kind != K_KIND_DISCRETE) return info;
  k_subtype_t subtype = checked(k_node_get_subtype(node));
  info.subtype = subtype;
  bool numeric = subtype == K_SUBTYPE_NUMBER || subtype == K_SUBTYPE_INTERVAL;
  k_size_t count = checked(k_node_get_number_of_states(node));
  for (k_size_t i = 0; i < count; ++i) {
    StateInfo state{checked(k_node_get_state_label(node, i)), std::nullopt, std::nullopt};
    if (numeric) state.value = checked(k_node_get_state_value(node, i));
    // An interval node has one value more than states: state i is [v(i), v(i+1)).
    if (subtype == K_SUBTYPE_INTERVAL) state.upper = checked(k_node_get_state_value(node, i + 1));
    info.states.push_back(std::move(state));
  }
  return info;
}

/// Reads the table of `node`; `index` maps every node of the domain to its
/// position in the report.
TableInfo read_table(k_node_t node, k_kind_t kind, const std::map<k_node_t, std::size_t>& index) {
  TableInfo info;
  k_table_t table = checked(k_node_get_table(node));
  for (k_node_t* member = checked(k_table_get_nodes(table)); *member != nullptr; ++member)
    if (checked(k_node_get_kind(*member)) == K_KIND_DISCRETE)
      info.members.push_back(index.at(*member));
  k_size_t size = checked(k_table_get_size(table));
  if (kind == K_KIND_CONTINUOUS) {
    for (k_size_t i = 0; i < size; ++i) {
      info.means.push_back(checked(k_table_get_mean(table, i, node)));
      info.variances.push_back(checked(k_table_get_variance(table, i, node)));
    }
  } else if (size > 0) {
    info.data.resize(size);
    checked(k_table_get_data(table, info.data.data(), size, 0, size));
  }
  return info;
}

}  // namespace

NetworkInfo read_network(k_domain_t domain, std::string source) {
  NetworkInfo network;
  network.source = std::move(source);
  std::vector<k_node_t> nodes;
  std::map<k_node_t, std::size_t> index;
  for (k_node_t node = checked(k_domain_get_first_node(domain)); node != nullptr;
       node = checked(k_node_get_next(node))) {
    index.emplace(node, nodes.size());
    nodes.push_back(node);
    network.nodes.push_back(read_node(node));
  }
  for (std::size_t i = 0; i < nodes.size(); ++i) {
    NodeInfo& info = network.nodes[i];
    for (k_node_t* parent = checked(k_node_get_parents(nodes[i])); *parent != nullptr; ++parent)
      info.parents.push_back(index.at(*parent));
    network.link_count += info.parents.size();
    if (checked(k_node_has_table(nodes[i])) == 1)
      info.table = read_table(nodes[i], info.kind, index);
  }
  return network;
}

const char* category_name(k_category_t category) {
  switch (category) {
    case K_CATEGORY_FUNCTION:
      return "function";
    case K_CATEGORY_INSTANCE:
      return "instance";
    case K_CATEGORY_CHANCE:
      return "chance";
    case K_CATEGORY_DECISION:
      return "decision";
    case K_CATEGORY_UTILITY:
      return "utility";
    default:
      return "unknown";
  }
}

const char* kind_name(k_kind_t kind) {
  switch (kind) {
    case K_KIND_DISCRETE:
      return "discrete";
    case K_KIND_CONTINUOUS:
      return "continuous";
    case K_KIND_OTHER:
      return "other";
    default:
      return "unknown";
  }
}

const char* subtype_name(k_subtype_t subtype) {
  switch (subtype) {
    case K_SUBTYPE_LABEL:
      return "label";
    case K_SUBTYPE_BOOLEAN:
      return "boolean";
    case K_SUBTYPE_NUMBER:
      return "number";
    case K_SUBTYPE_INTERVAL:
      return "interval";
    default:
      return "unknown";
  }
}

}  // namespace kelva::cli
