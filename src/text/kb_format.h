#pragma once

// The KB file layout shared by the writer and the reader (the whole layout
// is described in docs/decisions/kb_files.md).  Numbers are little-endian;
// doubles are their IEEE-754 bits as 64-bit integers.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "network/error.h"

namespace kelva::kb {

/// The first bytes of every KB file.
inline constexpr char kMagic[8] = {'K', 'E', 'L', 'V', 'A', 'K', 'B', '\n'};
inline constexpr std::uint16_t kVersion = 1;
/// Magic, version (2), kind (1), flags (1), reserved (4).
inline constexpr std::size_t kHeaderSize = 16;
/// Salt of the key derivation and nonce of the cipher, after the header of
/// a protected file.
inline constexpr std::size_t kSaltSize = 16;
inline constexpr std::size_t kNonceSize = 24;
inline constexpr std::size_t kTagSize = 16;  ///< authentication tag of the cipher
inline constexpr std::size_t kCrcSize = 4;   ///< CRC-32 trailer

/// What a file holds; a class collection will be kind 2.
enum class Kind : std::uint8_t { domain = 1, class_collection = 2 };
inline constexpr std::uint8_t kFlagProtected = 1;

/// Sections of a domain file, in the order they are written.
enum class Section : std::uint32_t {
  end = 0,
  network = 1,   ///< the NET text of the network, numbers at 17 digits
  settings = 2,  ///< domain settings the NET text does not hold
  tables = 3,    ///< node, experience and fading tables, exact
  cases = 4,     ///< the stored cases
  evidence = 5,  ///< entered and propagated evidence
  forest = 6,    ///< the junction forest and its propagation state
};
/// How a section's bytes are packed.
inline constexpr std::uint8_t kStored = 0;
inline constexpr std::uint8_t kDeflated = 1;
/// zlib never expands more than about 1032 to 1: a section claiming more
/// is damaged, and its buffer is never allocated.
inline constexpr std::uint64_t kMaxInflateRatio = 1032;

/// Forests whose clique and separator tables hold at most this many
/// entries are saved with those tables (the loaded domain is propagated as
/// it was); larger ones are saved with their shape only.
inline constexpr std::uint64_t kMaxSavedForestEntries = std::uint64_t{1} << 22;

[[noreturn]] inline void damaged() { throw Error(K_ERROR_BAD_KB_FORMAT); }

/// Appends fixed-size numbers and counted blocks to a byte buffer.
class ByteWriter {
 public:
  void u8(std::uint8_t v) { bytes.push_back(v); }
  void u16(std::uint16_t v) { put(v, 2); }
  void u32(std::uint32_t v) { put(v, 4); }
  void u64(std::uint64_t v) { put(v, 8); }
  void i64(std::int64_t v) { put(static_cast<std::uint64_t>(v), 8); }
  void f64(double v) {
    std::uint64_t bits;
    std::memcpy(&bits, &v, 8);
    put(bits, 8);
  }
  void text(const std::string& s) {
    u64(s.size());
    bytes.insert(bytes.end(), s.begin(), s.end());
  }
  void doubles(const double* v, std::size_t n) {
    u64(n);
    for (std::size_t i = 0; i < n; ++i) f64(v[i]);
  }
  void doubles(const std::vector<double>& v) { doubles(v.data(), v.size()); }

  std::vector<unsigned char> bytes;

 private:
  void put(std::uint64_t v, int n) {
    for (int i = 0; i < n; ++i) bytes.push_back(static_cast<unsigned char>(v >> (8 * i)));
  }
};

/// Reads what ByteWriter wrote; running past the end, or a count larger
/// than the bytes left could hold, is a damaged file.
class ByteReader {
 public:
  ByteReader(const unsigned char* data, std::size_t size) noexcept : p_(data), end_(data + size) {}

  std::size_t left() const noexcept { return static_cast<std::size_t>(end_ - p_); }
  bool at_end() const noexcept { return p_ == end_; }
  std::uint8_t u8() { return static_cast<std::uint8_t>(get(1)); }
  std::uint16_t u16() { return static_cast<std::uint16_t>(get(2)); }
  std::uint32_t u32() { return static_cast<std::uint32_t>(get(4)); }
  std::uint64_t u64() { return get(8); }
  std::int64_t i64() { return static_cast<std::int64_t>(get(8)); }
  double f64() {
    const std::uint64_t bits = get(8);
    double v;
    std::memcpy(&v, &bits, 8);
    return v;
  }
  bool flag() {
    const std::uint8_t v = u8();
    if (v > 1) damaged();
    return v == 1;
  }
  /// A count of items of `item_size` bytes each that must still fit.
  std::size_t count(std::size_t item_size) {
    const std::uint64_t n = u64();
    if (item_size > 0 && n > left() / item_size) damaged();
    if (item_size == 0 && n > left()) damaged();
    return static_cast<std::size_t>(n);
  }
  std::string text() {
    const std::size_t n = count(1);
    std::string s(reinterpret_cast<const char*>(p_), n);
    p_ += n;
    return s;
  }
  std::vector<double> doubles() {
    std::vector<double> v(count(8));
    for (double& x : v) x = f64();
    return v;
  }
  /// Reads `n` doubles into `out` after checking the stored count is `n`.
  void doubles_into(double* out, std::size_t n) {
    if (count(8) != n) damaged();
    for (std::size_t i = 0; i < n; ++i) out[i] = f64();
  }
  const unsigned char* bytes(std::size_t n) {
    if (n > left()) damaged();
    const unsigned char* at = p_;
    p_ += n;
    return at;
  }

 private:
  std::uint64_t get(int n) {
    if (left() < static_cast<std::size_t>(n)) damaged();
    std::uint64_t v = 0;
    for (int i = 0; i < n; ++i) v |= static_cast<std::uint64_t>(p_[i]) << (8 * i);
    p_ += n;
    return v;
  }

  const unsigned char* p_;
  const unsigned char* end_;
};

}  // namespace kelva::kb
