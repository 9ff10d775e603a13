#include "expr/generation_log.h"

#include <cstdarg>

#include "network/error.h"

namespace kelva {

void GenerationLog::write(const char* format, ...) const {
  if (file_ == nullptr) return;
  std::va_list args;
  va_start(args, format);
  const int written = std::vfprintf(file_, format, args);
  va_end(args);
  if (written < 0) throw Error(K_ERROR_IO);
}

void GenerationLog::flush() const {
  if (file_ != nullptr && std::fflush(file_) != 0) throw Error(K_ERROR_IO);
}

}  // namespace kelva
