#include "number_text.h"

#include <charconv>
#include <cstdint>
#include <cstring>

namespace kelva::cli {

namespace {

__extension__ using Wide = unsigned __int128;

constexpr std::uint64_t kLow = 10'000'000'000'000'000ULL;  // 10^16
constexpr std::uint64_t kHigh = 10 * kLow;                 // 10^17
constexpr int kMaxPower = 32;                              // 5^32 < 2^75

/// 5^p for p in [0, kMaxPower].
constexpr Wide power_of_five(int p) {
  Wide r = 1;
  for (int i = 0; i < p; ++i) r *= 5;
  return r;
}

struct Powers {
  Wide of_five[kMaxPower + 1];
  constexpr Powers() : of_five() {
    for (int p = 0; p <= kMaxPower; ++p) of_five[p] = power_of_five(p);
  }
};
constexpr Powers kPowers;

/// The 17 significant digits of m * 2^e2 (m < 2^53), rounded to nearest
/// with ties to even (10^17 when they all round up).
struct Scaled {
  std::uint64_t q = 0;
  int x10 = 0;  // the decimal exponent of the first digit
};

/// Scales m * 2^e2 by 10^(16 - x10) for `x10` the decimal exponent or one
/// less, so that one product gives 17 or 18 digits; with 18 the last one
/// is dropped and joins the bits cut off.  False when the product does
/// not fit 128 bits or the estimate was off.
bool scale(std::uint64_t m, int e2, int x10, Scaled& s) noexcept {
  const int p = 16 - x10;
  if (p < 0 || p > kMaxPower) return false;
  const Wide n = static_cast<Wide>(m) * kPowers.of_five[p];  // < 2^128
  const int shift = e2 + p;                                  // times 2^shift
  Wide v = 0;
  Wide frac = 0;  // the bits cut off, from the top bit down
  if (shift >= 0) {
    if (shift > 10) return false;  // would leave the digit range anyway
    v = n << shift;
  } else {
    const int cut = -shift;
    if (cut >= 127) return false;
    v = n >> cut;
    frac = n << (128 - cut);
  }
  constexpr Wide kHalf = static_cast<Wide>(1) << 127;
  if (v < kLow) return false;
  if (v < kHigh) {
    const auto q = static_cast<std::uint64_t>(v);
    s.q = q + (frac > kHalf || (frac == kHalf && (q & 1) != 0) ? 1 : 0);
    s.x10 = x10;
    return true;
  }
  if (v >= 10 * kHigh) return false;
  // 18 digits: the last one over 5 (or 5 with bits after it) is above half.
  const auto w = static_cast<std::uint64_t>(v);
  const std::uint64_t last = w % 10;
  const std::uint64_t q = w / 10;
  s.q = q + (last > 5 || (last == 5 && (frac != 0 || (q & 1) != 0)) ? 1 : 0);
  s.x10 = x10 + 1;
  return true;
}

/// The largest power of five below 2^64.
constexpr int kMaxShortPower = 27;

/// 5^p for p in [0, kMaxShortPower], one word each.
struct ShortPowers {
  std::uint64_t of_five[kMaxShortPower + 1];
  constexpr ShortPowers() : of_five() {
    for (int p = 0; p <= kMaxShortPower; ++p)
      of_five[p] = static_cast<std::uint64_t>(power_of_five(p));
  }
};
constexpr ShortPowers kShortPowers;

/// Whether scale_short() applies: the power of five fits a word and fewer
/// than 64 bits are cut off (numbers from about 1e-11 to 1e15, beliefs
/// among them).
constexpr bool short_cut(int e2, int x10) noexcept {
  const int p = 16 - x10;
  const int cut = -(e2 + p);
  return p >= 0 && p <= kMaxShortPower && cut > 0 && cut < 64;
}

/// scale() where short_cut() holds: one 64-bit product, and 64-bit shifts
/// instead of 128-bit ones.
[[gnu::always_inline]] inline bool scale_short(std::uint64_t m, int e2, int x10,
                                               Scaled& s) noexcept {
  const int p = 16 - x10;
  const int cut = -(e2 + p);
  const Wide n = static_cast<Wide>(m) * kShortPowers.of_five[p];
  const auto high = static_cast<std::uint64_t>(n >> 64);
  const auto low = static_cast<std::uint64_t>(n);
  if ((high >> cut) != 0) return false;  // 2^64 and above: more than 18 digits
  const std::uint64_t v = (high << (64 - cut)) | (low >> cut);
  const std::uint64_t frac = low << (64 - cut);  // the bits cut off (those below are zero)
  constexpr std::uint64_t kHalf = std::uint64_t{1} << 63;
  if (v < kLow) return false;
  if (v < kHigh) {
    // frac is even (a zero was shifted in), so frac + (v & 1) is above half
    // when frac is, or is half and v odd: ties go to even.
    s.q = v + ((frac | (v & 1)) > kHalf ? 1 : 0);
    s.x10 = x10;
    return true;
  }
  if (v >= 10 * kHigh) return false;
  const std::uint64_t last = v % 10;
  const std::uint64_t q = v / 10;
  s.q = q + (last > 5 || (last == 5 && (frac != 0 || (q & 1) != 0)) ? 1 : 0);
  s.x10 = x10 + 1;
  return true;
}

/// Two digits from a table of 00..99.
struct Pairs {
  char text[200];
  constexpr Pairs() : text() {
    for (int i = 0; i < 100; ++i) {
      text[2 * i] = static_cast<char>('0' + i / 10);
      text[2 * i + 1] = static_cast<char>('0' + i % 10);
    }
  }
};
constexpr Pairs kPairs;

/// Three digits per step from a table of 000..999, four bytes an entry so
/// that one load and one store move them.  The fourth byte, written over
/// by what follows or lying in the room past the digits, counts the digits
/// up to the last that is not a zero (0 for 000), so that the last triple
/// tells where most numbers end.
struct Triples {
  char text[4000];
  constexpr Triples() : text() {
    for (int i = 0; i < 1000; ++i) {
      text[4 * i] = static_cast<char>('0' + i / 100);
      text[4 * i + 1] = static_cast<char>('0' + i / 10 % 10);
      text[4 * i + 2] = static_cast<char>('0' + i % 10);
      text[4 * i + 3] = static_cast<char>(i % 10 != 0 ? 3 : i % 100 != 0 ? 2 : i != 0 ? 1 : 0);
    }
  }
};
constexpr Triples kTriples;

/// ceil(2^64 / d).
constexpr std::uint64_t reciprocal(std::uint64_t d) {
  return static_cast<std::uint64_t>((static_cast<Wide>(1) << 64) / d) + 1;
}

/// Writes the six digits of a fraction after its leading part, as two
/// triples: `f` is frac * 2^64, a little above its exact value (by less
/// than 10^9 units), and each product by 1000 moves the next three digits
/// into the high word.  The excess stays far below one unit of the last
/// digit, so none is off.
/// Returns the table index of the second triple.
[[gnu::always_inline]] inline std::size_t write_six(char* p, std::uint64_t f) noexcept {
  std::size_t index = 0;
  for (int i = 0; i < 2; ++i) {
    const Wide t = static_cast<Wide>(f) * 1000;
    index = static_cast<std::size_t>(t >> 64);
    std::memcpy(p + 3 * i, kTriples.text + 4 * index, 4);
    f = static_cast<std::uint64_t>(t);
  }
  return index;
}

/// The 17 digits of `q` (< 10^17), leading zeros included, at `digits`
/// (with a byte of room after them): 8 then 9, each group by products with
/// a fixed-point reciprocal; returns how many there are without the
/// trailing zeros (at least one).  Inlined: a call, and the registers it
/// saves, cost as much as a third of it.
[[gnu::always_inline]] inline int write_digits(char* digits, std::uint64_t q) noexcept {
  const std::uint64_t high = q / 1'000'000'000;  // 8 digits
  const std::uint64_t low = q % 1'000'000'000;   // 9 digits
  // high * 2^64 / 10^6: the first pair above, six digits below.
  const Wide h = static_cast<Wide>(high) * reciprocal(1'000'000);
  std::memcpy(digits, kPairs.text + 2 * static_cast<std::size_t>(h >> 64), 2);
  write_six(digits + 2, static_cast<std::uint64_t>(h));
  // low * 2^64 / 10^6: the first triple above, six digits below.
  const Wide l = static_cast<Wide>(low) * reciprocal(1'000'000);
  std::memcpy(digits + 8, kTriples.text + 4 * static_cast<std::size_t>(l >> 64), 4);
  const std::size_t last = write_six(digits + 11, static_cast<std::uint64_t>(l));
  const int kept = kTriples.text[4 * last + 3];
  if (kept != 0) return 14 + kept;
  int used = 14;
  while (used > 1 && digits[used - 1] == '0') --used;
  return used;
}

char* slow(char* out, double x) noexcept {
  return std::to_chars(out, out + kNumberRoom, x, std::chars_format::general, 17).ptr;
}

/// Writes the rounded digits `q` of a number of decimal exponent `x10` in
/// exponent notation at `p` (after any sign); returns the end.  Out of
/// line: few numbers take it, and its registers would cost the others.
[[gnu::noinline]] char* write_exponent(char* p, std::uint64_t q, int x10) noexcept {
  char digits[kNumberRoom];
  const int used = write_digits(digits, q);
  *p++ = digits[0];
  if (used > 1) {
    *p++ = '.';
    std::memcpy(p, digits + 1, 16);  // all of them: the room holds them
    p += used - 1;
  }
  *p++ = 'e';
  *p++ = x10 < 0 ? '-' : '+';
  const int e = x10 < 0 ? -x10 : x10;
  if (e >= 100) *p++ = static_cast<char>('0' + e / 100);
  *p++ = static_cast<char>('0' + e / 10 % 10);
  *p++ = static_cast<char>('0' + e % 10);
  return p;
}

/// Writes the number of rounded digits `s` (a minus sign first when
/// `negative`) at `out` as "%.17g" does; returns the end.
[[gnu::always_inline]] inline char* write_rounded(char* out, bool negative, Scaled s) noexcept {
  std::uint64_t q = s.q;
  int x10 = s.x10;
  if (q == kHigh) {
    q = kLow;
    ++x10;
  }
  char* p = out;
  if (negative) *p++ = '-';
  // Fixed notation: the 17 digits are written in place (the room holds
  // them) and the end put after the last that is not a zero.
  if (x10 >= -4 && x10 < 0) {
    std::memcpy(p, "0.000000", 8);  // "0." and the zeros after the point
    p += 1 - x10;
    return p + write_digits(p, q);
  }
  if (x10 >= 0 && x10 < 17) {
    // The digits one place to the right, then the whole part moved left
    // over that place and the point put after it.
    const int used = write_digits(p + 1, q);
    const int whole = x10 + 1;
    for (int i = 0; i < whole; ++i) p[i] = p[i + 1];
    if (used <= whole) return p + whole;
    p[whole] = '.';
    return p + used + 1;
  }
  return write_exponent(p, q, x10);
}

/// write_g17() of the numbers that scale_short() does not take, out of
/// line so that the common case saves no registers for them.
[[gnu::noinline]] char* write_long(char* out, double x, std::uint64_t m, int e2, int x10) noexcept {
  Scaled s;
  std::uint64_t bits;
  std::memcpy(&bits, &x, sizeof bits);
  if (!scale(m, e2, x10, s)) return slow(out, x);
  return write_rounded(out, (bits >> 63) != 0, s);
}

}  // namespace

char* write_g17(char* out, double x) noexcept {
  std::uint64_t bits;
  std::memcpy(&bits, &x, sizeof bits);
  const int biased = static_cast<int>((bits >> 52) & 0x7ff);
  if (bits == 0) {  // +0, frequent among beliefs
    *out = '0';
    return out + 1;
  }
  // Zeros, subnormals, infinities and NaN: the library's way.
  if (static_cast<unsigned>(biased - 1) >= 0x7fe) return slow(out, x);
  const std::uint64_t m = (bits & ((1ULL << 52) - 1)) | (1ULL << 52);
  const int e2 = biased - 1075;
  // floor(log10(2) * (e2 + 52)): the decimal exponent or one less.
  const int x10 = ((e2 + 52) * 78913) >> 18;
  if (!short_cut(e2, x10)) return write_long(out, x, m, e2, x10);
  Scaled s;
  if (!scale_short(m, e2, x10, s)) return slow(out, x);
  return write_rounded(out, (bits >> 63) != 0, s);
}

}  // namespace kelva::cli
