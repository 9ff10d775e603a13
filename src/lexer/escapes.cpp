// Decoding the escape sequences of NET strings outside the lexer.
#include "lexer/escapes.h"

#include <cstring>

namespace kelva {

namespace {

int hex_value(char c) noexcept {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

std::string remove_escape_sequences(std::string_view text) {
  static constexpr char kSimple[] = "\"\"''??\\\\a\ab\bf\fn\nr\rt\tv\v";
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\' || i + 1 == text.size()) {
      out.push_back(text[i]);
      continue;
    }
    const char c = text[i + 1];
    if (c == '\n') {
      ++i;
      continue;
    }
    const char* simple = std::strchr(kSimple, c);
    if (c != '\0' && simple != nullptr && (simple - kSimple) % 2 == 0) {
      out.push_back(simple[1]);
      ++i;
    } else if (c == 'x' && i + 2 < text.size() && hex_value(text[i + 2]) >= 0) {
      unsigned value = 0;
      for (i += 2; i < text.size() && hex_value(text[i]) >= 0; ++i)
        value = (value << 4 | static_cast<unsigned>(hex_value(text[i]))) & 0xFFU;
      out.push_back(static_cast<char>(value));
      --i;
    } else if (c >= '0' && c <= '7') {
      unsigned value = 0;
      std::size_t digits = 0;
      for (++i; digits < 3 && i < text.size() && text[i] >= '0' && text[i] <= '7'; ++i, ++digits)
        value = value * 8 + static_cast<unsigned>(text[i] - '0');
      out.push_back(static_cast<char>(value & 0xFFU));
      --i;
    } else {
      out.push_back('\\');
    }
  }
  return out;
}

}  // namespace kelva
