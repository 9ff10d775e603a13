#include "platform/file.h"

namespace kelva::platform {

std::FILE* open_file(const char* utf8_name, const char* mode) noexcept {
  if (utf8_name == nullptr || mode == nullptr) return nullptr;
  return std::fopen(utf8_name, mode);
}

}  // namespace kelva::platform
