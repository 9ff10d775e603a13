// UTF-16 <-> UTF-8 conversions of file names crossing the native boundary.
#include "jni/unicode.h"

namespace kelva::jni {

namespace {

void append_utf8(std::string& out, char32_t c) {
  if (c < 0x80) {
    out += static_cast<char>(c);
  } else if (c < 0x800) {
    out += static_cast<char>(0xC0 | (c >> 6));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    out += static_cast<char>(0xE0 | (c >> 12));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (c >> 18));
    out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  }
}

}  // namespace

std::string utf16_to_utf8(const char16_t* text, std::size_t length) {
  std::string out;
  out.reserve(length);
  for (std::size_t i = 0; i < length; ++i) {
    char32_t c = text[i];
    if (c >= 0xD800 && c < 0xDC00 && i + 1 < length && text[i + 1] >= 0xDC00 &&
        text[i + 1] < 0xE000) {
      c = 0x10000 + ((c - 0xD800) << 10) + (text[i + 1] - 0xDC00);
      ++i;
    } else if (c >= 0xD800 && c < 0xE000) {
      c = 0xFFFD;
    }
    append_utf8(out, c);
  }
  return out;
}

std::u16string utf8_to_utf16(const char* text) {
  std::u16string out;
  const auto* p = reinterpret_cast<const unsigned char*>(text);
  while (*p != 0) {
    const unsigned char lead = *p++;
    int more = 0;
    char32_t c = lead;
    char32_t least = 0;  // the smallest code point of the sequence's length
    if (lead >= 0xF8 || (lead >= 0x80 && lead < 0xC0)) {
      more = -1;  // no lead byte
    } else if (lead >= 0xF0) {
      more = 3, c = lead & 0x07u, least = 0x10000;
    } else if (lead >= 0xE0) {
      more = 2, c = lead & 0x0Fu, least = 0x800;
    } else if (lead >= 0xC0) {
      more = 1, c = lead & 0x1Fu, least = 0x80;
    }
    for (int i = 0; i < more; ++i, ++p) {
      if ((*p & 0xC0u) != 0x80u) {
        more = -1;  // cut short: the byte that broke it starts the next character
        break;
      }
      c = (c << 6) | (*p & 0x3Fu);
    }
    if (more < 0 || c < least || c > 0x10FFFF || (c >= 0xD800 && c < 0xE000)) {
      out.push_back(u'\uFFFD');
    } else if (c >= 0x10000) {
      c -= 0x10000;
      out.push_back(static_cast<char16_t>(0xD800 + (c >> 10)));
      out.push_back(static_cast<char16_t>(0xDC00 + (c & 0x3FFu)));
    } else {
      out.push_back(static_cast<char16_t>(c));
    }
  }
  return out;
}

}  // namespace kelva::jni
