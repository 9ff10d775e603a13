#include "network/error.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "common/expect_code.h"
#include "kelva/kelva.h"

namespace {

TEST(ErrorTable, NamesAndDescriptionsAreExact) {
  EXPECT_STREQ(k_error_name(K_ERROR_NONE), "none");
  EXPECT_STREQ(k_error_name(K_ERROR_NO_MEMORY), "no_memory");
  EXPECT_STREQ(k_error_name(K_ERROR_JNI), "jni");
  EXPECT_STREQ(k_error_name(K_ERROR_ERROR), "error");
  // Two blanks after a full stop inside a description are part of the text.
  EXPECT_EQ(std::string(k_error_description(K_ERROR_IO)),
            "A fatal error occurred during an input or output operation.  This could be a "
            "failure to open a specified file, a failure to create a file due to wrong "
            "permissions, a failure during a write operation due to the disk running full, "
            "etc.");
  EXPECT_EQ(std::string(k_error_description(K_ERROR_INVALID_EVIDENCE)),
            "The specified evidence violates the \"free will\" condition, or evidence on a "
            "decision node is not an instantiation.");
  EXPECT_EQ(std::string(k_error_description(K_ERROR_ERROR)),
            "This is an \"impossible\" error.  It should never occur.  It might be caused by "
            "an error in the Kelva API.");
  EXPECT_STREQ(k_error_description(K_ERROR_SIZE_TOO_LARGE),
               "The true size is too large to represent within the `size_t' type.");

  // Out of range, negative and reserved codes.
  for (int code : {-1, 44, 45, 46, 49, 1000, -2147483647 - 1}) {
    EXPECT_STREQ(k_error_description(static_cast<k_error_t>(code)), "No such error.") << code;
    EXPECT_STREQ(k_error_name(static_cast<k_error_t>(code)), "no_such_error") << code;
  }
  // Every assigned code has a distinct name.
  for (int a = 0; a <= 48; ++a) {
    if (std::string(k_error_name(static_cast<k_error_t>(a))) == "no_such_error") continue;
    for (int b = a + 1; b <= 48; ++b)
      EXPECT_STRNE(k_error_name(static_cast<k_error_t>(a)),
                   k_error_name(static_cast<k_error_t>(b)));
  }
}

TEST(ErrorState, IsPerThreadAndResetOnEveryCall) {
  int fresh = -1;
  std::thread([&] { fresh = k_error_code(); }).join();
  EXPECT_EQ(fresh, K_ERROR_NONE);

  // A failure here does not show on another thread, and the other thread's
  // failure does not show here.
  EXPECT_CODE(k_domain_get_first_node(nullptr), nullptr, K_ERROR_USAGE);
  int other = -1;
  std::thread([&] {
    other = k_error_code();
    k_error_set(K_ERROR_IO);
  }).join();
  EXPECT_CODE(other, K_ERROR_NONE, K_ERROR_USAGE);

  // The next successful call clears the failure.
  k_domain_t d = k_new_domain();
  ASSERT_NE(d, nullptr);
  EXPECT_EQ(k_error_code(), K_ERROR_NONE);
  EXPECT_CODE(k_error_set(K_ERROR_TWICE), K_ERROR_TWICE, K_ERROR_TWICE);
  EXPECT_CODE(k_domain_delete(d), 0, K_ERROR_NONE);
}

TEST(ErrorObject, WhatIsTheMessageOrElseTheCodeName) {
  EXPECT_STREQ(kelva::Error(K_ERROR_PARSE).what(), "parse");
  EXPECT_STREQ(kelva::Error(static_cast<k_error_t>(45)).what(), "no_such_error");
  EXPECT_STREQ(kelva::Error(K_ERROR_IO, "").what(), "io");
  const kelva::Error e(K_ERROR_IO, "cannot open `a.net'");
  const kelva::Error copy = e;
  EXPECT_EQ(copy.code(), K_ERROR_IO);
  EXPECT_STREQ(copy.what(), "cannot open `a.net'");
}

}  // namespace
