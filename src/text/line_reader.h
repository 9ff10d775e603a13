#pragma once
// The line discipline of the SAS readers: a record is one line, and a token
// that the lexer finds on a later line ends it.

#include <cstdint>
#include <string>
#include <utility>

#include "lexer/lexer.h"
#include "network/error.h"
#include "text/net_reader.h"

namespace kelva {

/// What the reader of one line-oriented file shares: the lexer, the line
/// discipline and the ways to stop.
class LineReader {
 public:
  explicit LineReader(Lexer& lexer) : lx_(lexer) {}

 protected:
  // The first token of the next line (TOKEN_EOF at the end); the line it
  // is on becomes the current record's line.
  int first() {
    const int t = lx_.next_token();
    line_ = lx_.line();
    return t;
  }

  // The next token of the current line, or 0 when the line has ended: the
  // token that starts a later line is given back, and end of input ends a
  // line too.  An error token is returned wherever the lexer stopped (a
  // string cut off by a newline has counted it).
  int more() {
    const std::uint64_t before = lx_.line();
    const int t = lx_.next_token();
    if (t == TOKEN_ERROR) return t;
    if (t == TOKEN_EOF || lx_.line() > before) {
      lx_.push_back(t);
      return 0;
    }
    return t;
  }

  // As more(), but the line must go on: "line is incomplete" otherwise.
  int needed() {
    const int t = more();
    if (t == 0) incomplete();
    return t;
  }

  // "line is incomplete", reported against the line the record is on (the
  // lexer has already counted the newline that ended it).
  [[noreturn]] void incomplete() {
    const std::uint64_t now = lx_.line();
    lx_.set_line(line_);
    lx_.report_error("line is incomplete");
    lx_.set_line(now);
    throw Error(K_ERROR_PARSE);
  }

  // Reports `message` and stops.  A lexical error has been reported by the
  // lexer already: the parse stops there without a second message.  A
  // silent one (a number that does not convert) gets `message`.
  [[noreturn]] void fail(const std::string& message, int token = 0) {
    reader_fail(lx_, message, token);
  }

  // Runs an engine operation; a failure becomes "API error: %s".
  template <class F>
  auto api(F&& body) -> decltype(body()) {
    return net_api(lx_, std::forward<F>(body));
  }

  Lexer& lx_;
  std::uint64_t line_ = 1;
};

}  // namespace kelva
