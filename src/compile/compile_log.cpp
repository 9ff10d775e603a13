#include "compile/compile_log.h"

#include <cinttypes>
#include <cstdarg>
#include <cstdint>

#include "network/error.h"
#include "network/node.h"

namespace kelva {

void CompileLog::write(const char* format, ...) const {
  if (!active()) return;
  va_list args;
  va_start(args, format);
  const int n = std::vfprintf(file_, format, args);
  va_end(args);
  if (n < 0) throw Error(K_ERROR_IO);
}

void CompileLog::write_names(const std::vector<Node*>& nodes) const {
  if (!active()) return;
  constexpr std::size_t kIndent = 4;
  constexpr std::size_t kWidth = 75;
  std::size_t column = 0;
  for (Node* node : nodes) {
    const std::string& name = node->name_or_generate();
    if (column > kIndent && column + 1 + name.size() > kWidth) {
      write("\n");
      column = 0;
    }
    if (column == 0) {
      write("    %s", name.c_str());
      column = kIndent + name.size();
    } else {
      write(" %s", name.c_str());
      column += 1 + name.size();
    }
  }
  if (column != 0) write("\n");
}

void CompileLog::flush_quietly() const noexcept {
  try {
    flush();
  } catch (const Error&) {
  }
}

void CompileLog::flush() const {
  if (file_ != nullptr && std::fflush(file_) != 0) throw Error(K_ERROR_IO);
}

std::string CompileLog::cost_text(double cost) {
  if (!(cost < 9007199254740992.0)) return "HUGE";
  char text[32];
  std::snprintf(text, sizeof text, "%" PRIu64, static_cast<std::uint64_t>(cost));
  return text;
}

}  // namespace kelva
