// The human-readable report of `kelva nodes`.

#include <algorithm>
#include <string>
#include <vector>

#include "report_writers.h"

namespace kelva::cli {

namespace {

/// A number as "%g" prints it.
std::string number_text(double value) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%g", value);
  return buffer;
}

/// A state as shown in tables: its label, or "#i" when it has none.
std::string state_text(const NodeInfo& node, std::size_t state) {
  const std::string& label = node.states[state].label;
  if (!label.empty()) return label;
  std::string text = "#";
  text += std::to_string(state);
  return text;
}

/// Rows of cells printed in aligned columns; the first `key_columns` cells
/// of each row are set off from the rest by "| ".
struct Grid {
  std::size_t key_columns = 0;
  std::vector<std::vector<std::string>> rows;

  /// Prints the rows, each indented by `indent`, without trailing blanks.
  void print(std::FILE* out, const char* indent) const {
    std::vector<std::size_t> width;
    for (const auto& row : rows) {
      width.resize(std::max(width.size(), row.size()), 0);
      for (std::size_t c = 0; c < row.size(); ++c) width[c] = std::max(width[c], row[c].size());
    }
    for (const auto& row : rows) {
      std::string line = indent;
      for (std::size_t c = 0; c < row.size(); ++c) {
        if (c > 0 && c == key_columns) line += "| ";
        line += row[c];
        if (c + 1 < row.size()) line.append(width[c] - row[c].size() + 2, ' ');
      }
      std::fprintf(out, "%s\n", line.c_str());
    }
  }
};

/// Prints a node's table: one row per configuration of all members but the
/// last, one column per state of the last member (or mean and variance for a
/// continuous node).
void write_table(std::FILE* out, const NetworkInfo& network, const NodeInfo& node,
                 const TableInfo& table) {
  std::string members;
  for (std::size_t m : table.members) members += " " + network.nodes[m].name;
  std::fprintf(out, "  table:%s\n", members.c_str());

  Grid grid;
  bool continuous = node.kind == K_KIND_CONTINUOUS;
  // Columns: the last member's states, unless the node is continuous.
  std::size_t keys =
      continuous ? table.members.size() : table.members.size() - (table.members.empty() ? 0 : 1);
  grid.key_columns = keys;
  std::vector<std::string> header;
  for (std::size_t k = 0; k < keys; ++k) header.push_back(network.nodes[table.members[k]].name);
  if (continuous) {
    header.insert(header.end(), {"mean", "variance"});
  } else if (table.members.empty()) {
    header.push_back("value");
  } else {
    const NodeInfo& last = network.nodes[table.members.back()];
    for (std::size_t s = 0; s < last.states.size(); ++s) header.push_back(state_text(last, s));
  }
  grid.rows.push_back(header);

  std::size_t count = continuous ? table.means.size() : table.data.size();
  std::vector<std::string>* row = nullptr;
  for_each_configuration(network, table.members, count, [&](std::size_t index, const auto& state) {
    bool new_row = continuous || table.members.empty() || state.back() == 0;
    if (new_row) {
      grid.rows.emplace_back();
      row = &grid.rows.back();
      for (std::size_t k = 0; k < keys; ++k)
        row->push_back(state_text(network.nodes[table.members[k]], state[k]));
    }
    if (continuous) {
      row->push_back(number_text(table.means[index]));
      row->push_back(number_text(table.variances[index]));
    } else {
      row->push_back(number_text(table.data[index]));
    }
  });
  grid.print(out, "    ");
}

/// Prints one node block.
void write_node(std::FILE* out, const NetworkInfo& network, const NodeInfo& node) {
  std::fprintf(out, "\nnode %s\n", node.name.c_str());
  std::fprintf(out, "  label:%s%s\n", node.label.empty() ? "" : " ", node.label.c_str());
  std::fprintf(out, "  category: %s\n", category_name(node.category));
  std::fprintf(out, "  kind: %s\n", kind_name(node.kind));
  if (node.subtype) {
    std::fprintf(out, "  subtype: %s\n", subtype_name(*node.subtype));
    std::fprintf(out, "  states: %zu\n", node.states.size());
    for (std::size_t s = 0; s < node.states.size(); ++s) {
      const StateInfo& state = node.states[s];
      std::string text = state.label.empty() ? "(no label)" : state.label;
      if (state.upper)
        text += ", interval [" + number_text(*state.value) + ", " + number_text(*state.upper) + ")";
      else if (state.value) text += ", value " + number_text(*state.value);
      std::fprintf(out, "    %zu: %s\n", s, text.c_str());
    }
  }
  std::string parents;
  for (std::size_t p : node.parents) parents += " " + network.nodes[p].name;
  std::fprintf(out, "  parents:%s\n", parents.c_str());
  if (node.table) write_table(out, network, node, *node.table);
}

}  // namespace

void write_text_report(std::FILE* out, const NetworkInfo& network) {
  std::fprintf(out, "network %s: %zu nodes, %zu links\n", network.source.c_str(),
               network.nodes.size(), network.link_count);
  for (const NodeInfo& node : network.nodes) write_node(out, network, node);
  std::fprintf(out, "\nlinks:\n");
  for (const NodeInfo& node : network.nodes)
    for (std::size_t p : node.parents)
      std::fprintf(out, "  %s -> %s\n", network.nodes[p].name.c_str(), node.name.c_str());
}

}  // namespace kelva::cli
