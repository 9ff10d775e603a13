// The tab-separated report of `kelva nodes --format tsv`.

#include <string>
#include <string_view>

#include "report_writers.h"

namespace kelva::cli {

std::string tsv_field(std::string_view text) {
  std::string out;
  for (char c : text) {
    switch (c) {
      case '\\':
        out += "\\\\";
        break;
      case '\t':
        out += "\\t";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      default:
        out += c;
    }
  }
  return out;
}

namespace {

/// Prints the node, state, table and entry records of one node.
void write_node(std::FILE* out, const NetworkInfo& network, const NodeInfo& node) {
  std::string name = tsv_field(node.name);
  std::fprintf(out, "node\t%s\t%s\t%s\t%s\t%s\t%zu\n", name.c_str(), tsv_field(node.label).c_str(),
               category_name(node.category), kind_name(node.kind),
               node.subtype ? subtype_name(*node.subtype) : "-", node.states.size());
  for (std::size_t s = 0; s < node.states.size(); ++s) {
    const StateInfo& state = node.states[s];
    std::fprintf(out, "state\t%s\t%zu\t%s\t", name.c_str(), s, tsv_field(state.label).c_str());
    if (state.value) std::fprintf(out, "%.17g\t", *state.value);
    else std::fprintf(out, "-\t");
    if (state.upper) std::fprintf(out, "%.17g\n", *state.upper);
    else std::fprintf(out, "-\n");
  }
  if (!node.table) return;
  const TableInfo& table = *node.table;
  std::fprintf(out, "table\t%s", name.c_str());
  for (std::size_t m : table.members)
    std::fprintf(out, "\t%s", tsv_field(network.nodes[m].name).c_str());
  std::fprintf(out, "\n");

  bool continuous = node.kind == K_KIND_CONTINUOUS;
  std::size_t count = continuous ? table.means.size() : table.data.size();
  for_each_configuration(network, table.members, count, [&](std::size_t index, const auto& state) {
    std::fprintf(out, "%s\t%s\t%zu", continuous ? "cg" : "entry", name.c_str(), index);
    for (std::size_t s : state) std::fprintf(out, "\t%zu", s);
    if (continuous)
      std::fprintf(out, "\t%.17g\t%.17g\n", table.means[index], table.variances[index]);
    else std::fprintf(out, "\t%.17g\n", table.data[index]);
  });
}

}  // namespace

void write_tsv_report(std::FILE* out, const NetworkInfo& network) {
  std::fprintf(out, "network\t%s\t%zu\t%zu\n", tsv_field(network.source).c_str(),
               network.nodes.size(), network.link_count);
  for (const NodeInfo& node : network.nodes) write_node(out, network, node);
  for (const NodeInfo& node : network.nodes)
    for (std::size_t p : node.parents)
      std::fprintf(out, "link\t%s\t%s\n", tsv_field(network.nodes[p].name).c_str(),
                   tsv_field(node.name).c_str());
}

}  // namespace kelva::cli
