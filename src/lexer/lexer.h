#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

#include "kelva/kelva.h"
#include "network/error.h"
#include "platform/locale_guard.h"

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
  /// A lexer over an open stream (positions are line numbers).  Throws
  /// Error: "usage" for a null stream, "no_memory" when the token buffer
  /// cannot be had.
  Lexer(std::FILE* stream, k_parse_error_handler_t handler, void* data);
  /// A lexer over a NUL-terminated string (positions are the number of
  /// characters consumed).  Throws as the stream form does.
  Lexer(const char* text, k_parse_error_handler_t handler, void* data);

  /// Installs the token reader that next_token() uses.
  void set_reader(TokenReader reader) noexcept { reader_ = reader; }
  /// The token reader in use (basic until another is installed).
  TokenReader reader() const noexcept { return reader_; }

  /// The next token, from the pushback stack first.  Lexical errors are
  /// reported through the handler, leave their code in failure() and give
  /// TOKEN_ERROR; two are silent (a number that does not convert, `\x`
  /// without a hexadecimal digit) and leave failure() as it was.  A read
  /// error of the stream throws Error(io) with nothing reported.
  int next_token();
  /// The fast path of table values: with no token held back and the basic
  /// reader, skips blanks and takes a number token when a plain decimal
  /// number follows that next_token would convert to the same value; its
  /// value is then in `value` and number().  False otherwise, having
  /// consumed no more than blanks: next_token then reads the token.
  bool take_plain_number(double& value);
  /// The same for a parenthesis `c` (`(` or `)`): true when it is the next
  /// token, which is then consumed.
  bool take_parenthesis(char c);
  /// The fast path of data file items: with no token held back and the
  /// basic reader, skips spaces and tabs and takes `*` or `?` (`index` -1)
  /// or `#` and a state index below `states` (`index` that index) when a
  /// blank, a newline or a comma follows within the buffer.  False
  /// otherwise, having consumed no more than spaces and tabs: next_token
  /// then reads the item.
  bool take_case_item(std::size_t states, std::int64_t& index) noexcept;
  /// The fast path of whole data file lines: with no token held back and the
  /// basic reader, the rest of the current line, refilling the buffer until
  /// its newline is in it.  True with its characters at [first, newline)
  /// (`*newline` is the newline); false (nothing consumed) when a token is
  /// held back, another reader is installed or the input ends first.
  /// Throws Error(io) on a read error of the stream.
  bool buffered_line(const char*& first, const char*& newline);
  /// Consumes the line that buffered_line() gave, its newline included.
  void take_line(const char* newline) noexcept {
    pos_ = newline + 1;
    ++line_;
  }
  /// Gives a token back (at most two are held); the last one given back is
  /// returned first.
  void push_back(int token) noexcept;

  /// Text of the last name, dotted name or string token (escapes decoded;
  /// a string holding a NUL ends there).
  const std::string& text() const noexcept { return text_; }
  /// Value of the last number token.
  double number() const noexcept { return number_; }
  /// Current line (1-based).
  std::uint64_t line() const noexcept { return line_; }
  /// Puts the line counter at `line`, so that a line-oriented reader can
  /// report a record that ended early against its own line.
  void set_line(std::uint64_t line) noexcept { line_ = line; }
  /// Position for messages: the line for a stream, the count of characters
  /// consumed for a string.
  std::uint64_t position() const noexcept;
  /// Errors reported so far (warnings do not count).
  std::int64_t error_count() const noexcept { return errors_; }
  /// The code of the last lexical failure ("parse", "io" or "no_memory"),
  /// "none" while there has been none.  Readers stop with it when a token
  /// fails.
  k_error_t failure() const noexcept { return failure_; }

  /// Reports an error to the handler (if any) and counts it.
  void report_error(const char* message) noexcept;
  /// Reports a warning to the handler (if any); not counted.
  void report_warning(const char* message) noexcept;
  /// Reports "unexpected end-of-file" (for EOF), "unexpected end-of-line"
  /// (for a newline) or "unexpected character: `%c'", records "parse" as
  /// the failure and returns TOKEN_ERROR.
  int report_unexpected(int character) noexcept;

 private:
  // Character source: the next byte (0..255) or EOF; the terminating NUL of
  // a string source is EOF and is never stepped over.  Throws Error(io) on
  // a read error of the stream.
  int get_char();
  bool skip_plain_blanks() noexcept;
  // Gives back the character just read; giving back EOF does nothing.
  bool unget_char(int c) noexcept;
  // Stream source: reads the next chunk of the stream into the buffer,
  // keeping the unread bytes and the one before them (for unget_char); the
  // buffer grows when they fill half of it.  False at the end of the stream.
  bool refill();
  // The number at pos_ as fscanf("%lg") reads it from the stream.
  int read_stream_number();

  // What an escape sequence in a string came to.
  enum class Escape { stored, joined, failed };

  int read_token();
  int skip_blanks();
  int read_name(int first);
  int read_word(int first);
  int read_number();
  int read_string();
  Escape read_escape(int& value);
  // Reports `message` as an error, records `code` as the failure, returns
  // TOKEN_ERROR.
  int fail(const char* message, k_error_t code) noexcept;
  int unget_failed() noexcept;

  std::FILE* stream_ = nullptr;
  // A string source is [start_, end_); a stream source is read in chunks
  // into buffer_, whose unread bytes are [pos_, end_).
  const char* start_ = nullptr;
  const char* pos_ = nullptr;
  const char* end_ = nullptr;
  std::unique_ptr<char[]> buffer_;
  std::size_t capacity_ = 0;
  k_parse_error_handler_t handler_;
  void* data_;
  TokenReader reader_ = TokenReader::basic;
  std::string text_;
  double number_ = 0.0;
  std::uint64_t line_ = 1;
  std::int64_t errors_ = 0;
  k_error_t failure_ = K_ERROR_NONE;
  int pushed_[2] = {0, 0};
  int pushed_count_ = 0;
};

/// Decimal texts of line numbers for messages, in eight rotating 64-byte
/// buffers (so one message can hold up to eight); the largest 64-bit value
/// is written "HUGE".
class LineTexts {
 public:
  /// The text of `line`, valid until eight more texts have been made.
  const char* operator()(std::uint64_t line) noexcept;

 private:
  char buffers_[8][64] = {};
  int next_ = 0;
};

/// The frame of every parse operation: runs `parse(lexer)` under the
/// thread's "C" locale (Error "locale" when it cannot be had) and, when the
/// parser returned normally but errors were reported, throws Error "parse".
/// A result must own what it holds (a unique_ptr, say), since it is dropped
/// when the parse fails.
template <class Parse>
auto run_parse(Lexer& lexer, Parse&& parse) {
  platform::CLocaleGuard guard;
  if (!guard.ok()) throw Error(K_ERROR_LOCALE);
  if constexpr (std::is_void_v<decltype(std::forward<Parse>(parse)(lexer))>) {
    std::forward<Parse>(parse)(lexer);
    if (lexer.error_count() > 0) throw Error(K_ERROR_PARSE);
  } else {
    auto result = std::forward<Parse>(parse)(lexer);
    if (lexer.error_count() > 0) throw Error(K_ERROR_PARSE);
    return result;
  }
}

}  // namespace kelva
