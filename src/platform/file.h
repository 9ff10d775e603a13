#pragma once

#include <cstdio>

namespace kelva::platform {

/// Opens a file named in UTF-8 with the stdio `mode`; null on failure.
std::FILE* open_file(const char* utf8_name, const char* mode) noexcept;

}  // namespace kelva::platform
