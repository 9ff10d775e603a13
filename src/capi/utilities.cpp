// C API of the free-standing helpers: infinity, the processor clock, and
// decoding escape sequences.
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <limits>

#include "capi/boundary.h"
#include "lexer/escapes.h"

using kelva::require;
using kelva::capi::guard;
using kelva::capi::malloc_copy;

double k_infinity(void) { return std::numeric_limits<double>::infinity(); }

double k_get_clock(void) {
  return guard(-1.0, [] {
    const std::clock_t ticks = std::clock();
    require(ticks != static_cast<std::clock_t>(-1));
    return static_cast<double>(ticks) / CLOCKS_PER_SEC;
  });
}

char* k_remove_escape_sequences(const char* text) {
  return guard<char*>(nullptr, [&] {
    require(text != nullptr);
    // The decoded text may hold a NUL; the caller sees the text up to it.
    return malloc_copy(kelva::remove_escape_sequences(text));
  });
}
