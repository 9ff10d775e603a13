#pragma once

#include <cstdio>
#include <string>
#include <string_view>

#include "network_report.h"

namespace kelva::cli {

/// Prints `network` for people: a block per node with its states and table,
/// then the links.  The layout is documented in --help.
void write_text_report(std::FILE* out, const NetworkInfo& network);

/// Prints `network` as tab-separated records, numbers with "%.17g".
void write_tsv_report(std::FILE* out, const NetworkInfo& network);

/// A text as one TSV field: backslash, tab, newline and carriage return are
/// written as \\, \t, \n and \r.
std::string tsv_field(std::string_view text);

/// Visits every configuration of `members` (state counts taken from
/// `network`), last member fastest, passing the state indices.
template <class F>
void for_each_configuration(const NetworkInfo& network, const std::vector<std::size_t>& members,
                            std::size_t count, F&& visit) {
  std::vector<std::size_t> state(members.size(), 0);
  for (std::size_t index = 0; index < count; ++index) {
    visit(index, state);
    for (std::size_t j = state.size(); j-- > 0;) {
      if (++state[j] < network.nodes[members[j]].states.size()) break;
      state[j] = 0;
    }
  }
}

}  // namespace kelva::cli
