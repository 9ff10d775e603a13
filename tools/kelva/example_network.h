#pragma once

#include <span>
#include <string_view>
#include <vector>

#include "domain_handle.h"

namespace kelva::cli {

/// One discrete chance node of a bundled example, with its conditional table
/// laid out with the parents in the order listed (first slowest) and the
/// node's own states fastest.
struct ExampleNode {
  const char* name;
  const char* label;
  std::vector<const char*> states;
  std::vector<const char*> parents;
  std::vector<double> table;
};

/// A network bundled with the tool, described as data.
struct ExampleNetwork {
  const char* name;
  const char* description;
  std::vector<ExampleNode> nodes;
};

/// Every bundled example, in the order --help lists them.
std::span<const ExampleNetwork> example_networks();

/// The bundled example called `name`, or null.
const ExampleNetwork* find_example_network(std::string_view name);

/// Builds `example` through the C API: nodes in the order listed, then the
/// links, then the tables.  Throws ApiError when the library refuses a step.
DomainHandle build_example_network(const ExampleNetwork& example);

}  // namespace kelva::cli
