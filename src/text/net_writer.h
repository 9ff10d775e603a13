#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace kelva {

class Domain;
class Node;

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

/// The nodes of `domain` in the order the writer and reader agree on: the
/// order of creation (the reverse of the node chain, which runs newest first).
std::vector<Node*> nodes_in_creation_order(const Domain& domain);

}  // namespace kelva
