#pragma once

#include <cstdint>

namespace kelva {

/// The all-ones size: "too large to represent".
inline constexpr std::uint64_t kSizeTooLarge = ~std::uint64_t{0};

/// a * b, or kSizeTooLarge when the product overflows or either is kSizeTooLarge.
constexpr std::uint64_t sat_mul(std::uint64_t a, std::uint64_t b) noexcept {
  if (a == kSizeTooLarge || b == kSizeTooLarge) return kSizeTooLarge;
  std::uint64_t r = 0;
  if (__builtin_mul_overflow(a, b, &r)) return kSizeTooLarge;
  return r;
}

/// a + b, or kSizeTooLarge when the sum overflows or either is kSizeTooLarge.
constexpr std::uint64_t sat_add(std::uint64_t a, std::uint64_t b) noexcept {
  if (a == kSizeTooLarge || b == kSizeTooLarge) return kSizeTooLarge;
  std::uint64_t r = 0;
  if (__builtin_add_overflow(a, b, &r)) return kSizeTooLarge;
  return r;
}

}  // namespace kelva
