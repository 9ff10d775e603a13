#include "compile/forest_log.h"

#include <cinttypes>
#include <vector>

#include "compile/compile_log.h"
#include "compile/junction_forest.h"
#include "table/size.h"

namespace kelva {

namespace {

std::vector<Node*> names_of(const NodeList& nodes) { return {nodes.begin(), nodes.end()}; }

const char* plural(std::size_t count) noexcept { return count == 1 ? "" : "s"; }

}  // namespace

std::string size_text(std::uint64_t discrete_size, std::uint64_t cg_size) {
  char text[64];
  if (cg_size == 0) std::snprintf(text, sizeof text, "%" PRIu64, discrete_size);
  else std::snprintf(text, sizeof text, "%" PRIu64 " + %" PRIu64, discrete_size, cg_size);
  return text;
}

void write_cliques(const CompileLog& log, const Forest& forest) {
  if (!log.active()) return;
  log.write("\n\nCliques:\n");
  std::uint64_t total = 0;
  std::uint64_t total_cg = 0;
  for (const auto& clique : forest.cliques) {
    const std::uint64_t cg = clique->cg_size();
    total = sat_add(total, clique->discrete_size);
    total_cg = sat_add(total_cg, cg);
    log.write("\nClique %" PRIu64 ", %zu member%s, table size = %s:\n", clique->number,
              clique->members.size(), plural(clique->members.size()),
              size_text(clique->discrete_size, cg).c_str());
    log.write_names(names_of(clique->members));
  }
  log.write("\nTotal clique table size: %s\n", size_text(total, total_cg).c_str());
}

void write_forest_head(const CompileLog& log) { log.write("\n\nThe junction forest:\n"); }

void write_root(const CompileLog& log, const Clique& root) {
  log.write("\nCreating junction tree with clique %" PRIu64 " as root ...\n", root.number);
}

void write_link(const CompileLog& log, const Separator& separator) {
  if (!log.active()) return;
  const Table& table = *separator.table;
  const std::uint64_t cg = cg_table_size(table.size(), cg_entries_for(table.cg_dimension()));
  const std::size_t n = separator.members.size();
  log.write("\nCliques %" PRIu64 " and %" PRIu64
            " linked, separator has %zu member%s and table size = %s",
            separator.child->number, separator.parent->number, n, plural(n),
            size_text(table.size(), cg).c_str());
  if (n == 0) {
    log.write("\n");
    return;
  }
  log.write(":\n");
  log.write_names(names_of(separator.members));
}

}  // namespace kelva
