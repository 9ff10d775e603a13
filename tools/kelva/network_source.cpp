#include "network_source.h"

#include <cstdint>
#include <cstdio>

#include "cli_error.h"
#include "example_network.h"

namespace kelva::cli {

void print_parse_error(uint64_t line, const char* message, void* data) {
  std::fprintf(stderr, "%s:%llu: %s\n", static_cast<const char*>(data),
               static_cast<unsigned long long>(line), message);
}

DomainHandle open_network(const NetworkSource& source) {
  if (!source.file.empty()) {
    DomainHandle domain(k_net_parse_domain(source.file.c_str(), print_parse_error,
                                           const_cast<char*>(source.file.c_str())));
    if (!domain) throw ApiError(k_error_code());
    return domain;
  }
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

std::string source_name(const NetworkSource& source) {
  return source.file.empty() ? source.example : source.file;
}

}  // namespace kelva::cli
