// Reads the input as an interval text.  One that reads must have ordered
// bounds and read back the same after writing; and writing the interval
// of any two ordered numbers taken from the input must read back exactly.
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>

#include "dataset/discretize.h"
#include "fuzz_check.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  double lo = 0.0, hi = 0.0;
  if (kelva::parse_interval(text, lo, hi)) {
    CHECK(lo < hi && !std::isnan(lo) && !std::isnan(hi));
    double lo2 = 0.0, hi2 = 0.0;
    CHECK(kelva::parse_interval(kelva::interval_text(lo, hi), lo2, hi2));
    CHECK(lo2 == lo && hi2 == hi);
  }
  if (size >= 16) {
    double a = 0.0, b = 0.0;
    std::memcpy(&a, data, 8);
    std::memcpy(&b, data + 8, 8);
    if (a < b) {
      CHECK(kelva::parse_interval(kelva::interval_text(a, b), lo, hi));
      // Infinite bounds come back as the words' values.
      CHECK(lo == a && hi == b);
    }
  }
  return 0;
}
