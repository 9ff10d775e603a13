// `kelva dsep`, `kelva sensitivity` and `kelva voi`: questions asked of a
// network under evidence, printed as tab-separated lines.

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "cli_error.h"
#include "commands.h"
#include "evidence_input.h"
#include "network_source.h"

namespace kelva::cli {

namespace {

/// Splits NODE=STATE.
std::pair<std::string, std::string> split_finding(const std::string& text) {
  const std::size_t eq = text.find('=');
  return {text.substr(0, eq), eq == std::string::npos ? std::string() : text.substr(eq + 1)};
}

/// Opens and compiles the network and enters the --set findings; the
/// observed nodes are added to `observed` when it is given.
DomainHandle prepared_network(const Options& options, std::vector<k_node_t>* observed,
                              bool compile) {
  const Progress progress(options.quiet);
  DomainHandle domain = open_network(options.source, progress);
  if (compile) compile_network(domain.get(), source_name(options.source), progress);
  for (const std::string& finding : options.findings) {
    const auto [name, state] = split_finding(finding);
    k_node_t node = discrete_node(domain.get(), name, "--set");
    const k_size_t index = find_state(node, name, state, "--set");
    if (compile && k_node_select_state(node, index) != 0) throw ApiError(k_error_code());
    if (observed != nullptr) observed->push_back(node);
  }
  return domain;
}

std::string name_of(k_node_t node) { return checked(k_node_get_name(node)); }

std::string label_of(k_node_t node, k_size_t state) {
  const std::string label = checked(k_node_get_state_label(node, state));
  if (!label.empty()) return label;
  std::string index = "#";
  index += std::to_string(state);  // appended: "#" + string trips a GCC 12 warning
  return index;
}

/// A null-ended list of `nodes`.
std::vector<k_node_t> null_ended(std::vector<k_node_t> nodes) {
  nodes.push_back(nullptr);
  return nodes;
}

/// "NODE=state|PARENT=s,..." for entry `index` of the table of `node`.
std::string parameter_text(k_node_t node, k_size_t index) {
  k_table_t table = checked(k_node_get_table(node));
  k_node_t* nodes = checked(k_table_get_nodes(table));
  std::vector<k_node_t> members;
  for (k_node_t* n = nodes; *n != nullptr; ++n) members.push_back(*n);
  std::vector<k_size_t> states(members.size());
  k_size_t rest = index;
  for (std::size_t i = members.size(); i-- > 0;) {
    const k_size_t count = checked(k_node_get_number_of_states(members[i]));
    states[i] = rest % count;
    rest /= count;
  }
  std::string own, parents;
  for (std::size_t i = 0; i < members.size(); ++i) {
    std::string item = name_of(members[i]);
    item += '=';
    item += label_of(members[i], states[i]);
    if (members[i] == node) {
      own = item;
      continue;
    }
    if (!parents.empty()) parents += ',';
    parents += item;
  }
  own += '|';
  own += parents.empty() ? std::string("-") : parents;
  return own;
}

}  // namespace

void run_dsep(std::FILE* out, const Options& options) {
  std::vector<k_node_t> observed;
  DomainHandle domain = prepared_network(options, &observed, false);
  std::vector<k_node_t> source;
  for (const std::string& name : options.from_nodes) {
    k_node_t node = k_domain_get_node_by_name(domain.get(), name.c_str());
    if (node == nullptr) throw UsageError("--from: no node named '" + name + "'");
    source.push_back(node);
  }
  std::vector<k_node_t> from = null_ended(source), hard = null_ended(observed);
  k_node_t* connected =
      checked(k_domain_get_d_connected_nodes(domain.get(), from.data(), hard.data(), nullptr));
  for (k_node_t* n = connected; *n != nullptr; ++n) std::fprintf(out, "%s\n", name_of(*n).c_str());
}

void run_sensitivity(std::FILE* out, const Options& options) {
  DomainHandle domain = prepared_network(options, nullptr, true);
  const auto [name, state_text] = split_finding(options.target);
  k_node_t target = discrete_node(domain.get(), name, "--target");
  const k_size_t state = find_state(target, name, state_text, "--target");
  if (k_node_compute_sensitivity_data(target, state) != 0) throw ApiError(k_error_code());
  struct Row {
    double derivative;
    std::string parameter;
    double value;
    double k[4];
  };
  std::vector<Row> rows;
  k_node_t* set = checked(k_domain_get_sensitivity_set(domain.get(), 0));
  for (k_node_t* n = set; *n != nullptr; ++n) {
    k_table_t table = checked(k_node_get_table(*n));
    const k_size_t size = checked(k_table_get_size(table));
    for (k_size_t i = 0; i < size; ++i) {
      Row row{};
      if (k_node_get_sensitivity_constants(*n, i, row.k) != 0) throw ApiError(k_error_code());
      row.value = k_table_get_data_item(table, i);
      // d/dtheta of (a theta + b) / (c theta + d) where c theta + d = 1.
      row.derivative = row.k[0] * row.k[3] - row.k[1] * row.k[2];
      row.parameter = parameter_text(*n, i);
      rows.push_back(std::move(row));
    }
  }
  std::stable_sort(rows.begin(), rows.end(), [](const Row& a, const Row& b) {
    return std::fabs(a.derivative) > std::fabs(b.derivative);
  });
  for (const Row& r : rows)
    std::fprintf(out, "%s\t%s\t%s\t%s\t%s\t%s\t%s\n", format_number(r.derivative).c_str(),
                 r.parameter.c_str(), format_number(r.value).c_str(), format_number(r.k[0]).c_str(),
                 format_number(r.k[1]).c_str(), format_number(r.k[2]).c_str(),
                 format_number(r.k[3]).c_str());
}

void run_voi(std::FILE* out, const Options& options) {
  std::vector<k_node_t> observed;
  DomainHandle domain = prepared_network(options, &observed, true);
  k_node_t target = discrete_node(domain.get(), options.target, "--target");
  if (k_domain_propagate(domain.get(), K_EQUILIBRIUM_SUM, K_MODE_NORMAL) != 0)
    throw ApiError(k_error_code());
  std::vector<std::pair<double, std::string>> rows;
  for (k_node_t n = k_domain_get_first_node(domain.get()); n != nullptr; n = k_node_get_next(n)) {
    if (n == target || checked(k_node_get_kind(n)) != K_KIND_DISCRETE ||
        checked(k_node_get_category(n)) != K_CATEGORY_CHANCE ||
        std::find(observed.begin(), observed.end(), n) != observed.end())
      continue;
    const double mi = k_node_get_mutual_information(target, n);
    if (mi < 0.0) throw ApiError(k_error_code());
    rows.emplace_back(mi, name_of(n));
  }
  std::stable_sort(rows.begin(), rows.end(),
                   [](const auto& a, const auto& b) { return a.first > b.first; });
  for (const auto& [mi, name] : rows)
    std::fprintf(out, "%s\t%s\n", format_number(mi).c_str(), name.c_str());
}

}  // namespace kelva::cli
