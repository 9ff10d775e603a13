#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "kelva/kelva.h"

namespace kelva::cli {

/// One state of a discrete node.
struct StateInfo {
  std::string label;
  /// The state's value, for number nodes; the lower bound, for interval nodes.
  std::optional<double> value;
  /// The upper bound of the state's interval, for interval nodes.
  std::optional<double> upper;
};

/// A node's table: discrete configurations in the table's order, last member
/// fastest.
struct TableInfo {
  /// Indices (into NetworkInfo::nodes) of the discrete members, in table order.
  std::vector<std::size_t> members;
  /// One entry per configuration: probabilities, utilities or function values.
  /// Empty for a continuous node, whose table holds means and variances.
  std::vector<double> data;
  /// Mean and variance of a continuous node per configuration.
  std::vector<double> means, variances;
};

/// What the tool reports about one node.
struct NodeInfo {
  std::string name;
  std::string label;
  k_category_t category = K_CATEGORY_ERROR;
  k_kind_t kind = K_KIND_ERROR;
  /// Only for discrete nodes.
  std::optional<k_subtype_t> subtype;
  std::vector<StateInfo> states;
  /// Indices (into NetworkInfo::nodes) of the parents, in order of addition.
  std::vector<std::size_t> parents;
  std::optional<TableInfo> table;
};

/// A network as read through the C API, nodes in the domain's order.
struct NetworkInfo {
  /// Where the network came from (an example name, later a file name).
  std::string source;
  std::vector<NodeInfo> nodes;
  /// Number of links (parent -> child pairs).
  std::size_t link_count = 0;
};

/// Reads every node, state, link and table of `domain`; throws ApiError.
NetworkInfo read_network(k_domain_t domain, std::string source);

/// The word for a category ("chance", ...).
const char* category_name(k_category_t category);
/// The word for a kind ("discrete", "continuous", "other").
const char* kind_name(k_kind_t kind);
/// The word for a discrete subtype ("label", "boolean", "number", "interval").
const char* subtype_name(k_subtype_t subtype);

}  // namespace kelva::cli
