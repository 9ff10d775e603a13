// The fast "%.17g" writer against printf on numbers of every magnitude,
// ties, powers of ten and their neighbours.
#include "number_text.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <string>

namespace kelva::cli {
namespace {

TEST(NumberText, WritesWhatPrintfWrites) {
  auto check = [](double x) {
    char want[64];
    std::snprintf(want, sizeof want, "%.17g", x);
    char got[kNumberRoom];
    const std::string text(got, write_g17(got, x));
    ASSERT_EQ(text, want) << std::hexfloat << x;
  };
  std::mt19937_64 random(17);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  for (int i = 0; i < 200000; ++i) {
    check(unit(random));
    // Any exponent, any sign, any mantissa.
    std::uint64_t bits = random();
    double x;
    std::memcpy(&x, &bits, sizeof x);
    check(x);
    // Magnitudes where the exact path works, and a little beyond.
    check(std::ldexp(unit(random) + 0.5, static_cast<int>(random() % 140) - 80));
    check(-std::ldexp(1.0 + static_cast<double>(random() % 4096), -12));
    // Exact ties at the eighteenth digit: sixteen whole digits and .25 or .75.
    const double whole = 1e15 + static_cast<double>(random() % 125'000'000'000'000ULL);
    check(whole + 0.25);
    check(whole + 0.75);
  }
  // Both ends of each binary exponent, where the first guess of the decimal
  // exponent is right at one end and one short at the other.
  for (int e = -130; e <= 130; ++e) {
    check(std::ldexp(1.0, e));
    check(std::nextafter(std::ldexp(1.0, e + 1), 0.0));
  }
  for (int e = -20; e <= 20; ++e) {
    const double p = std::pow(10.0, e);
    check(p);
    check(std::nextafter(p, 0.0));
    check(std::nextafter(p, 1e300));
    check(9.99999999999999999 * p);
  }
  for (double x : {0.0, -0.0, 0.5, 1.0, 0.1, 1.0 / 3.0, 123456789012345678.0, 5e-324, 1e308,
                   std::numeric_limits<double>::infinity(), std::nan("")})
    check(x);
}

}  // namespace
}  // namespace kelva::cli
