#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace kelva {

class Node;

/// The domain log as compilation writes it: printf formats, nothing written
/// when there is no stream or while the log is switched off, and a failed
/// write is Error(io).
class CompileLog {
 public:
  /// Writes to `file` (null: writes nothing).
  explicit CompileLog(std::FILE* file) noexcept : file_(file) {}

  /// Whether lines are written at all (a stream is set and the log is on).
  bool active() const noexcept { return file_ != nullptr && on_; }
  /// Switches writing off or on (best greedy silences its inner runs).
  void set_on(bool on) noexcept { on_ = on; }
  bool is_on() const noexcept { return on_; }

  /// Writes one piece of text by `format`; throws Error(io) when the write
  /// fails.
  void write(const char* format, ...) const __attribute__((format(printf, 2, 3)));
  /// Writes the names of `nodes`, separated by single spaces, on lines
  /// indented by four spaces and no wider than 75 columns (a name longer
  /// than a line stands alone on its line), each line ending in a newline.
  void write_names(const std::vector<Node*>& nodes) const;
  /// Flushes the stream; throws Error(io) on failure.
  void flush() const;
  /// Flushes after a failure, ignoring a failed write: the failure's own
  /// code is the one reported.
  void flush_quietly() const noexcept;

  /// A cost as the log writes it: an unsigned decimal integer, or "HUGE"
  /// when it is not below 2^53.
  static std::string cost_text(double cost);

 private:
  std::FILE* file_;
  bool on_ = true;
};

}  // namespace kelva
