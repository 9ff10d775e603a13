// UTF-16 <-> UTF-8 conversions of file names crossing the native boundary.
#pragma once

// Java strings are UTF-16 and the engine takes and keeps file names in
// UTF-8.  Modified UTF-8 (GetStringUTFChars, NewStringUTF) spells characters
// outside the basic plane differently, so file names cross through these.

#include <cstddef>
#include <string>

namespace kelva::jni {

/// UTF-16 text as UTF-8; an unpaired surrogate becomes U+FFFD.  May throw
/// std::bad_alloc.
std::string utf16_to_utf8(const char16_t* text, std::size_t length);

/// NUL-ended UTF-8 text as UTF-16; a malformed sequence becomes U+FFFD.
/// May throw std::bad_alloc.
std::u16string utf8_to_utf16(const char* text);

}  // namespace kelva::jni
