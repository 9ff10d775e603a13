// `kelva map`: the most probable configurations of some nodes given the
// evidence, every one at or above a probability, as TSV.

#include <cstdio>
#include <string>
#include <vector>

#include "cli_error.h"
#include "commands.h"
#include "evidence_input.h"
#include "network_source.h"

namespace kelva::cli {

void run_map(std::FILE* out, const Options& options) {
  const Progress progress(options.quiet);
  DomainHandle domain = open_network(options.source, progress);
  std::vector<k_node_t> nodes;
  for (const std::string& name : options.map_nodes) {
    k_node_t node = k_domain_get_node_by_name(domain.get(), name.c_str());
    if (node == nullptr) throw UsageError("--nodes: no node named '" + name + "'");
    if (checked(k_node_get_kind(node)) != K_KIND_DISCRETE ||
        checked(k_node_get_category(node)) != K_CATEGORY_CHANCE)
      throw UsageError("--nodes: node '" + name + "' is not a discrete chance node");
    nodes.push_back(node);
  }
  nodes.push_back(nullptr);
  compile_network(domain.get(), source_name(options.source), progress);
  enter_evidence(domain.get(), options);
  if (k_domain_propagate(domain.get(), K_EQUILIBRIUM_SUM, K_MODE_NORMAL) != 0)
    throw ApiError(k_error_code());
  progress.note("searching the configurations of %zu nodes", options.map_nodes.size());
  if (k_domain_find_map_configurations(domain.get(), nodes.data(), options.min_probability) != 0)
    throw ApiError(k_error_code());
  const k_size_t count = checked(k_domain_get_number_of_map_configurations(domain.get()));
  std::string line;
  for (k_size_t c = 0; c < count; ++c) {
    const k_size_t* states = checked(k_domain_get_map_configuration(domain.get(), c));
    char number[32];
    std::snprintf(number, sizeof number, "%.17g",
                  checked(k_domain_get_probability_of_map_configuration(domain.get(), c)));
    line = number;
    for (std::size_t i = 0; i + 1 < nodes.size(); ++i) {
      const char* label = checked(k_node_get_state_label(nodes[i], states[i]));
      line += '\t';
      line += options.map_nodes[i];
      line += '=';
      if (label != nullptr && *label != '\0') line += label;
      else line += '#' + std::to_string(states[i]);
    }
    line += '\n';
    std::fputs(line.c_str(), out);
  }
}

}  // namespace kelva::cli
