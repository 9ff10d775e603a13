// Evidence from the command line: a case file and --set NODE=STATE items.

#include "evidence_input.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <string>

#include "cli_error.h"
#include "network_source.h"

namespace kelva::cli {

namespace {

/// Enters `finding` (NODE=STATE) as evidence on the domain.
void enter_finding(k_domain_t domain, const std::string& finding) {
  const std::size_t eq = finding.find('=');
  const std::string name = finding.substr(0, eq);
  const std::string state = finding.substr(eq + 1);
  k_node_t node = k_domain_get_node_by_name(domain, name.c_str());
  if (node != nullptr && checked(k_node_get_kind(node)) == K_KIND_CONTINUOUS) {
    // A continuous node takes a number: its value.
    char* end = nullptr;
    const double value = std::strtod(state.c_str(), &end);
    if (state.empty() || *end != '\0' || !std::isfinite(value))
      throw UsageError("--set: node '" + name + "' is continuous and '" + state +
                       "' is not a finite number");
    if (k_node_enter_value(node, value) != 0) throw ApiError(k_error_code());
    return;
  }
  node = discrete_node(domain, name, "--set");
  if (k_node_select_state(node, find_state(node, name, state, "--set")) != 0)
    throw ApiError(k_error_code());
}

}  // namespace

k_node_t discrete_node(k_domain_t domain, const std::string& name, const char* option) {
  k_node_t node = k_domain_get_node_by_name(domain, name.c_str());
  if (node == nullptr) throw UsageError(std::string(option) + ": no node named '" + name + "'");
  if (checked(k_node_get_kind(node)) != K_KIND_DISCRETE)
    throw UsageError(std::string(option) + ": node '" + name + "' is not discrete");
  return node;
}

k_size_t find_state(k_node_t node, const std::string& name, const std::string& text,
                    const char* option) {
  const k_size_t count = checked(k_node_get_number_of_states(node));
  if (text.size() > 1 && text[0] == '#') {
    char* end = nullptr;
    errno = 0;
    const unsigned long long index = std::strtoull(text.c_str() + 1, &end, 10);
    if (*end == '\0' && errno == 0 && text[1] != '-' && text[1] != '+' && index < count)
      return index;
  } else {
    const int64_t index = k_node_get_state_index_from_label(node, text.c_str());
    if (index >= 0) return static_cast<k_size_t>(index);
  }
  const std::string states = state_list(node);
  int matches = 0;
  for (k_size_t s = 0; s < count; ++s) {
    const char* label = checked(k_node_get_state_label(node, s));
    matches += label != nullptr && text == label;
  }
  if (matches > 1)
    throw UsageError(std::string(option) + ": the label '" + text +
                     "' is not unique among the states of node '" + name + "' (" + states +
                     "); use #INDEX");
  throw UsageError(std::string(option) + ": node '" + name + "' has no state '" + text +
                   "' (states: " + states + ")");
}

void enter_evidence(k_domain_t domain, const Options& options) {
  if (!options.case_file.empty()) {
    take_reader_messages();
    checked_file(k_domain_parse_case(domain, options.case_file.c_str(), print_parse_error,
                                     const_cast<char*>(options.case_file.c_str())),
                 options.case_file, FileUse::read);
  }
  for (const std::string& finding : options.findings) enter_finding(domain, finding);
}

}  // namespace kelva::cli
