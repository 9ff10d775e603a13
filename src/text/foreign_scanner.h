#pragma once
// A cursor over text in memory that counts lines, for the readers of other
// tools' formats: they read whole files at once, and numbers go through
// std::from_chars, which needs no locale and is fast enough for tables of
// millions of entries.

#include <charconv>
#include <cstdint>
#include <limits>
#include <string_view>

namespace kelva {

class ForeignScanner {
 public:
  explicit ForeignScanner(std::string_view text) noexcept
      : pos_(text.data()), end_(text.data() + text.size()) {}

  bool at_end() const noexcept { return pos_ == end_; }
  char peek() const noexcept { return pos_ == end_ ? '\0' : *pos_; }
  const char* pos() const noexcept { return pos_; }
  const char* end() const noexcept { return end_; }
  std::uint64_t line() const noexcept { return line_; }

  /// Steps over one character, counting a newline.
  void advance() noexcept {
    if (*pos_ == '\n') ++line_;
    ++pos_;
  }
  /// Steps to `to` (at or after the cursor), counting the newlines passed.
  void advance_to(const char* to) noexcept {
    while (pos_ < to) advance();
  }
  bool starts_with(std::string_view word) const noexcept {
    return std::string_view(pos_, static_cast<std::size_t>(end_ - pos_)).starts_with(word);
  }

  /// Skips blanks, and `//` and `/* */` comments when `comments` is set.
  /// Returns false for a comment that does not end.
  bool skip_blanks(bool comments) noexcept {
    while (pos_ != end_) {
      const char c = *pos_;
      if (c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == '\v') {
        advance();
      } else if (comments && c == '/' && pos_ + 1 != end_ && pos_[1] == '/') {
        while (pos_ != end_ && *pos_ != '\n') ++pos_;
      } else if (comments && c == '/' && pos_ + 1 != end_ && pos_[1] == '*') {
        pos_ += 2;
        while (pos_ != end_ && !starts_with("*/")) advance();
        if (pos_ == end_) return false;
        pos_ += 2;
      } else {
        return true;
      }
    }
    return true;
  }

  /// Reads a number at the cursor (a leading `+` allowed); false, with the
  /// cursor unmoved, when there is none.
  bool number(double& value) noexcept {
    const char* from = pos_ != end_ && *pos_ == '+' ? pos_ + 1 : pos_;
    const auto result = std::from_chars(from, end_, value);
    if (result.ec == std::errc::invalid_argument || result.ptr == from) return false;
    if (result.ec == std::errc::result_out_of_range) {
      // Past the largest double is infinite (refused by the checks); below
      // the smallest is 0.
      const double sign = *from == '-' ? -1.0 : 1.0;
      value = looks_huge(from, result.ptr) ? sign * std::numeric_limits<double>::infinity() : 0.0;
    }
    pos_ = result.ptr;
    return true;
  }

 private:
  // Whether a number that did not fit a double overflowed (rather than
  // underflowed): its exponent is positive or it has no exponent.
  static bool looks_huge(const char* from, const char* to) noexcept {
    for (const char* p = from; p < to; ++p)
      if (*p == 'e' || *p == 'E') return p + 1 < to && p[1] != '-';
    return true;
  }

  const char* pos_;
  const char* end_;
  std::uint64_t line_ = 1;
};

}  // namespace kelva
