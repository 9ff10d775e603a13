#include "progress.h"

#include <unistd.h>

#include <cstdarg>
#include <cstdio>

namespace kelva::cli {

Progress::Progress(bool quiet) : enabled_(!quiet && ::isatty(STDERR_FILENO) == 1) {}

void Progress::note(const char* format, ...) const {
  if (!enabled_) return;
  std::va_list args;
  va_start(args, format);
  std::fputs("kelva: ", stderr);
  std::vfprintf(stderr, format, args);
  std::fputc('\n', stderr);
  va_end(args);
}

}  // namespace kelva::cli
