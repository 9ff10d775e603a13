#pragma once

namespace kelva::cli {

/// Progress of long work as "kelva: ..." lines on standard error, written
/// only when standard error is a terminal and --quiet was not given, so
/// that redirected output and logs never hold them.
class Progress {
 public:
  explicit Progress(bool quiet);
  /// True when notes are written.
  bool enabled() const { return enabled_; }
  /// Writes one note, printf-style.
  [[gnu::format(printf, 2, 3)]] void note(const char* format, ...) const;

 private:
  bool enabled_;
};

}  // namespace kelva::cli
