#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace kelva {

class ClassCollection;
class Domain;
class Node;
class Table;

/// Where NET text goes: an open file or a growing string.  Every write
/// appends one NUL-terminated text; a failed file write throws Error(io).
class TextSink {
 public:
  /// A sink writing to `file` (not owned).
  explicit TextSink(std::FILE* file) noexcept : file_(file) {}
  /// A sink collecting text in memory.
  TextSink() = default;

  void write(const char* text);
  void write(const std::string& text) { write(text.c_str()); }
  /// The text collected by a memory sink.
  const std::string& text() const noexcept { return buffer_; }

 private:
  std::FILE* file_ = nullptr;
  std::string buffer_;
};

/// Writes `domain` as NET text with the exact layout of the writer, under the
/// "C" locale.  Throws Error (io, no_memory, locale).
void write_net_domain(const Domain& domain, TextSink& sink);

/// Writes every class of `collection`, oldest first, in the class layout.
void write_net_classes(const ClassCollection& collection, TextSink& sink);

/// The nodes of `domain` in the order the writer and reader agree on: the
/// order of creation (the reverse of the node chain, which runs newest first).
std::vector<Node*> nodes_in_creation_order(const Domain& domain);

/// How one table is written: which discrete nodes, in which order (first
/// slowest), and for a continuous child its conditional-Gaussian items.
struct NetTableText {
  /// The table whose values are written; null writes zeros (a node whose
  /// table has not been made yet).
  const Table* table = nullptr;
  /// The table's discrete nodes in the written order.
  std::vector<Node*> order;
  /// The continuous child whose items "normal ( mean, variance )" replace
  /// numbers, or null for a table of numbers.
  Node* cg_child = nullptr;
  /// Continuous parents of `cg_child`, in the order their regression terms
  /// are written.
  std::vector<Node*> cg_parents;
  /// Indentation of every row after the first.
  const char* row_indent = "\t";
  /// Significant digits of every number, or 0 for the usual formats.
  int digits = 0;
};

/// Writes the nested table text of `table_text` (from the first "(" to the final
/// ";" and its comment, newline included), permuting the table's values
/// from its own node order to `table_text.order`.
void write_net_table(TextSink& sink, const NetTableText& table_text);

}  // namespace kelva
