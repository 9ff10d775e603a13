#pragma once

#include <gtest/gtest.h>

#include "kelva/kelva.h"

// A C API call that must fail: its status is non-zero (or its result null),
// and the thread's error code is `code`.
#define EXPECT_FAILS(call, code)                \
  do {                                          \
    EXPECT_NE((call), 0);                       \
    EXPECT_EQ(k_error_code(), (code)) << #call; \
  } while (0)
#define EXPECT_NULL_WITH(call, code)            \
  do {                                          \
    EXPECT_EQ((call), nullptr);                 \
    EXPECT_EQ(k_error_code(), (code)) << #call; \
  } while (0)
// A C API call's result, and the thread's error code after it.
#define EXPECT_CODE(call, result, code)         \
  do {                                          \
    EXPECT_EQ((call), (result));                \
    EXPECT_EQ(k_error_code(), (code)) << #call; \
  } while (0)
