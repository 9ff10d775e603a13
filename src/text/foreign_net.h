#pragma once
// Networks in the formats of other tools (BIF, XMLBIF, UAI): a reader parses
// the text into a ForeignNet without touching any domain, and one builder
// checks it and makes the domain; the writers describe a domain the same way.

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "kelva/kelva.h"
#include "text/net_reader.h"

namespace kelva {

class Domain;

/// A discrete variable as the file declares it.
struct ForeignVariable {
  std::string name;
  std::vector<std::string> states;
  std::uint64_t line = 0;
};

/// The conditional table of one variable: values over the parents (first
/// slowest) and then the child (fastest).
struct ForeignTable {
  std::size_t child = 0;
  std::vector<std::size_t> parents;
  std::vector<double> values;
  std::uint64_t line = 0;
  /// Line of each parent configuration's row where the file has rows;
  /// empty when the values came as one list.
  std::vector<std::uint64_t> row_lines;
};

/// A whole network read from a file, before it becomes a domain.
struct ForeignNet {
  std::vector<ForeignVariable> variables;
  std::vector<ForeignTable> tables;
  std::unordered_map<std::string, std::size_t> index;  // variable by name
};

/// Where the messages of a foreign reader go: the caller's handler, with the
/// file's line.  fail() reports and stops the parse.
class ForeignErrors {
 public:
  ForeignErrors(k_parse_error_handler_t handler, void* data) : handler_(handler), data_(data) {}
  /// Reports "message" at `line` and throws Error(parse).
  [[noreturn]] void fail(std::uint64_t line, const std::string& message) const;

 private:
  k_parse_error_handler_t handler_;
  void* data_;
};

/// Adds a variable, refusing a name declared before.
std::size_t add_foreign_variable(ForeignNet& net, ForeignVariable variable,
                                 const ForeignErrors& errors);

/// Checks `net` (one table per variable, value counts, no repeated parent, no
/// cycle, no negative entry, each row summing to 1) and makes the domain of
/// discrete chance nodes in declaration order, parents in the order written.
/// On any fault: one message with its line, Error thrown, nothing made.
Domain* build_foreign_domain(const ForeignNet& net, const ForeignErrors& errors,
                             const char* file_name);

/// The contents of an open file; throws Error(io) on a read error.
std::string read_whole_file(std::FILE* file);

/// A domain of discrete chance nodes described for a writer (tables with
/// parents in the order of the node's parent list).  Other nodes, chain
/// components or nodes without a table whose parents have states are refused
/// with "usage".
ForeignNet describe_domain(const Domain& domain);

/// The shortest text that reads back as exactly `value`.
std::string exact_number(double value);

// The readers (messages carry line numbers) and writers of each format.

/// Reads BIF text.
Domain* read_bif_domain(std::string_view text, const char* file_name,
                        k_parse_error_handler_t handler, void* data);
/// Reads XMLBIF text.
Domain* read_xmlbif_domain(std::string_view text, const char* file_name,
                           k_parse_error_handler_t handler, void* data);
/// Reads UAI text: a Bayesian network, or a Markov network whose factors
/// are the conditional tables of a Bayesian network.
Domain* read_uai_domain(std::string_view text, const char* file_name,
                        k_parse_error_handler_t handler, void* data);
/// BIF text of `domain`.
std::string write_bif_domain(const Domain& domain);
/// XMLBIF text of `domain`.
std::string write_xmlbif_domain(const Domain& domain);

}  // namespace kelva
