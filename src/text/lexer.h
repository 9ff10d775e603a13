#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "kelva/kelva.h"

namespace kelva {

/// Token codes.  A single-character token is the character's own code; all
/// other tokens are negative so that they never collide with one.
enum Token : int {
  TOKEN_NAME = -1,
  TOKEN_NUMBER = -2,
  TOKEN_STRING = -3,
  TOKEN_DOTTED_NAME = -4,
  TOKEN_EOF = -5,
  TOKEN_ERROR = -6,
  TOKEN_EQ = -107,
  TOKEN_LT = -108,
  TOKEN_GT = -109,
  TOKEN_NE = -110,
  TOKEN_LE = -111,
  TOKEN_GE = -112,
};

/// Which characters make which tokens.
enum class TokenReader {
  basic,  // NET structure, case files, SAS files
  full,   // expressions; state values, CG items and model data in NET text
  word,   // the older network format and its look-ahead
};

/// The one lexer of every text reader: a character source (a stream or a
/// NUL-terminated string), the token text, the line counter, two tokens of
/// pushback, the error count and the caller's parse error handler.  Errors
/// are never printed: they go to the handler, or nowhere.
class Lexer {
 public:
  /// A lexer over an open stream (positions are line numbers).
  Lexer(std::FILE* stream, k_parse_error_handler_t handler, void* data);
  /// A lexer over a NUL-terminated string (positions are the number of
  /// characters consumed).
  Lexer(const char* text, k_parse_error_handler_t handler, void* data);

  void set_reader(TokenReader reader) noexcept { reader_ = reader; }
  TokenReader reader() const noexcept { return reader_; }

  /// The next token, from the pushback stack first.
  int next_token();
  /// Gives a token back (at most two are held).
  void push_back(int token) noexcept;

  /// Text of the last name, dotted name or string token (escapes decoded).
  const std::string& text() const noexcept { return text_; }
  /// Value of the last number token.
  double number() const noexcept { return number_; }
  /// Current line (1-based).
  std::uint64_t line() const noexcept { return line_; }
  /// Position for messages: the line for a stream, the count of characters
  /// consumed for a string.
  std::uint64_t position() const noexcept;
  /// Errors reported so far (warnings do not count).
  std::int64_t error_count() const noexcept { return errors_; }

  /// Reports an error to the handler (if any) and counts it.
  void report_error(const char* message);
  /// Reports a warning to the handler (if any); not counted.
  void report_warning(const char* message);
  /// Reports "unexpected end-of-file", "unexpected end-of-line" or
  /// "unexpected character: `%c'", sets "parse" and returns TOKEN_ERROR.
  int report_unexpected(int character);

 private:
  // Character source.
  int get_char();
  bool unget_char(int c);

  std::FILE* stream_ = nullptr;
  const char* start_ = nullptr;
  const char* pos_ = nullptr;
  k_parse_error_handler_t handler_;
  void* data_;
  TokenReader reader_ = TokenReader::basic;
  std::string text_;
  double number_ = 0.0;
  std::uint64_t line_ = 1;
  std::int64_t errors_ = 0;
  int pushed_[2] = {0, 0};
  int pushed_count_ = 0;
};

/// Decimal texts of line numbers for messages, in eight rotating 64-byte
/// buffers (so one message can hold up to eight); the largest 64-bit value
/// is written "HUGE".
class LineTexts {
 public:
  const char* operator()(std::uint64_t line) noexcept;

 private:
  char buffers_[8][64] = {};
  int next_ = 0;
};

}  // namespace kelva
