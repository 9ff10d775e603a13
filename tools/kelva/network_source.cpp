#include "network_source.h"

#include "cli_error.h"
#include "example_network.h"

namespace kelva::cli {

DomainHandle open_network(const NetworkSource& source) {
  const ExampleNetwork* example = find_example_network(source.example);
  if (example == nullptr) {
    std::string known;
    for (const ExampleNetwork& e : example_networks()) {
      if (!known.empty()) known += ", ";
      known += e.name;
    }
    throw UsageError("unknown example '" + source.example + "' (known: " + known + ")");
  }
  return build_example_network(*example);
}

std::string source_name(const NetworkSource& source) { return source.example; }

}  // namespace kelva::cli
