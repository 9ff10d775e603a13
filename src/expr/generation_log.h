#pragma once

#include <cstdio>

namespace kelva {

/// The domain log as table generation writes it: every line goes through
/// printf formats, nothing is written when the domain has no log, and a
/// failed write is Error(io).
class GenerationLog {
 public:
  /// Writes to `file` (null: writes nothing).
  explicit GenerationLog(std::FILE* file) noexcept : file_(file) {}

  /// Whether lines are written at all.
  bool active() const noexcept { return file_ != nullptr; }
  /// Writes one piece of text by `format`; throws Error(io) on failure.
  void write(const char* format, ...) const __attribute__((format(printf, 2, 3)));
  /// Flushes the stream; throws Error(io) on failure.
  void flush() const;

 private:
  std::FILE* file_;
};

}  // namespace kelva
