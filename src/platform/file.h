#pragma once

#include <cstdio>
#include <string>

namespace kelva::platform {

/// Converts UTF-16 text (unpaired surrogates become U+FFFD) to UTF-8.
std::string utf16_to_utf8(const char16_t* text, std::size_t length);

/// Opens a file named in UTF-8 with the stdio `mode`; null on failure.
std::FILE* open_file(const char* utf8_name, const char* mode) noexcept;

}  // namespace kelva::platform
