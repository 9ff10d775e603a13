// The free-standing helpers: escape sequences decoded as NET strings read
// them, infinity, the processor clock.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <string>

#include "kelva/kelva.h"

namespace {

TEST(Utilities, EscapesInfinityAndClock) {
  const struct {
    const char* text;
    std::string decoded;
  } cases[] = {
      {R"(plain)", "plain"},
      {R"(a\"b\\c\'\?)", "a\"b\\c'?"},
      {R"(\t\n\r\a\b\f\v)", "\t\n\r\a\b\f\v"},
      {R"(\x41\x4A-\x141\xg)", "AJ-A\\xg"},  // hex runs to the last digit, low 8 bits
      {R"(\101\0619\7)", "A19\7"},           // at most three octal digits
      {"line\\\njoined", "linejoined"},
      {R"(\q and a trailing \)", "\\q and a trailing \\"},
      {R"(cut\0here)", "cut"},
  };
  for (const auto& c : cases) {
    char* out = k_remove_escape_sequences(c.text);
    ASSERT_NE(out, nullptr) << c.text;
    EXPECT_EQ(std::string(out), c.decoded) << c.text;
    std::free(out);
  }
  EXPECT_EQ(k_remove_escape_sequences(nullptr), nullptr);
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);

  EXPECT_TRUE(std::isinf(k_infinity()) && k_infinity() > 0);
  const double before = k_get_clock();
  volatile double sink = 0;
  for (int i = 0; i < 1000000; ++i) sink = sink + std::sqrt(static_cast<double>(i));
  EXPECT_GE(before, 0.0);
  EXPECT_GE(k_get_clock(), before);
}

}  // namespace
