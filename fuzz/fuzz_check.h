#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>

// Aborts, so that libFuzzer keeps the input, unless `condition` holds.
#define CHECK(condition)                                                                  \
  do {                                                                                    \
    if (!(condition)) {                                                                   \
      std::fprintf(stderr, "check failed: %s (%s:%d)\n", #condition, __FILE__, __LINE__); \
      std::abort();                                                                       \
    }                                                                                     \
  } while (0)

// A parse error handler that drops every message.
inline void ignore(std::uint64_t, const char*, void*) {}
