#include "lexer/lexer.h"

#include <array>
#include <cassert>
#include <charconv>
#include <cinttypes>
#include <cstdlib>
#include <cstring>
#include <new>

namespace kelva {

namespace {

// Character classes of the "C" locale, tested explicitly so that the
// process locale never matters (bytes of 128 and above are in no class).
constexpr bool is_letter(int c) noexcept {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
constexpr bool is_digit(int c) noexcept { return c >= '0' && c <= '9'; }
constexpr bool is_octal(int c) noexcept { return c >= '0' && c <= '7'; }
constexpr bool is_hex(int c) noexcept {
  return is_digit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}
constexpr int hex_value(int c) noexcept { return is_digit(c) ? c - '0' : (c | 0x20) - 'a' + 10; }
constexpr bool is_space(int c) noexcept {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}
constexpr bool is_name_char(int c) noexcept {
  return is_letter(c) || is_digit(c) || c == '_' || c == '.';
}
constexpr bool is_word_char(int c) noexcept {
  return is_letter(c) || is_digit(c) || c == '+' || c == '-' || c == '.' || c == '/' || c == '_';
}
// Characters that fscanf("%lg") may take into a number (digits, signs,
// points, exponents, hexadecimal digits, `x`, `p`, `inf`, `nan`): it never
// reads past the first character outside this set.
constexpr bool is_scan_char(int c) noexcept {
  return is_letter(c) || is_digit(c) || c == '+' || c == '-' || c == '.';
}
// Characters copied for a number read from a string (`L` belongs here).
constexpr bool is_number_char(int c) noexcept {
  return is_digit(c) || c == '+' || c == '-' || c == '.' || c == 'E' || c == 'L' || c == 'e';
}

// A plain decimal number: its digits as a whole number (exact while there
// are at most 19 of them), the power of ten that scales it, and its sign.
struct PlainNumber {
  std::size_t digits = 0;
  std::uint64_t whole = 0;
  int scale = 0;
  bool negative = false;

  // The value, when the whole number (up to 2^53) and the power of ten (up
  // to 1e22) are exact doubles: one multiplication or division then rounds
  // once, as strtod does.  False otherwise.
  bool exact(double& value) const noexcept {
    static constexpr double kPowers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                         1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                         1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
    if (digits > 19 || whole > (std::uint64_t{1} << 53) || scale < -22 || scale > 22) return false;
    const auto w = static_cast<double>(whole);
    const double v = scale < 0 ? w / kPowers[-scale] : w * kPowers[scale];
    value = negative ? -v : v;
    return true;
  }
};

// Matches a plain decimal number at [p, last): optional sign, digits with an
// optional point (at least one digit), optional exponent with digits.
// Returns the end of the match, or null when there is none.
[[gnu::always_inline]] inline const char* match_plain(const char* p, const char* last,
                                                      PlainNumber& n) noexcept {
  n = PlainNumber{};
  if (p != last && (*p == '+' || *p == '-')) n.negative = *p++ == '-';
  for (; p != last && is_digit(*p); ++p, ++n.digits)
    n.whole = n.whole * 10 + static_cast<unsigned>(*p - '0');
  if (p != last && *p == '.') {
    for (++p; p != last && is_digit(*p); ++p, ++n.digits, --n.scale)
      n.whole = n.whole * 10 + static_cast<unsigned>(*p - '0');
  }
  if (n.digits == 0) return nullptr;
  if (p == last || (*p != 'e' && *p != 'E')) return p;
  ++p;
  const bool minus = p != last && *p == '-';
  if (p != last && (*p == '+' || *p == '-')) ++p;
  const char* const exponent = p;
  int power = 0;
  for (; p != last && is_digit(*p); ++p) power = power < 1000 ? power * 10 + (*p - '0') : power;
  if (p == exponent) return nullptr;
  n.scale += minus ? -power : power;
  return p;
}

// What the first character of a token starts.
enum class Start : std::uint8_t {
  unexpected,  // an error
  itself,      // a single-character token
  string,
  number,
  name,
  word,
  equals,   // `=` or `==`
  bang,     // `!=`
  less,     // `<`, `<=`, `<>`
  greater,  // `>`, `>=`
};

using StartTable = std::array<Start, 256>;

constexpr void set(StartTable& table, const char* chars, Start start) {
  for (; *chars != '\0'; ++chars) table[static_cast<unsigned char>(*chars)] = start;
}

// The character table of one token reader.
constexpr StartTable make_table(TokenReader reader) {
  StartTable table{};  // all Start::unexpected
  table['"'] = Start::string;
  for (int c = '0'; c <= '9'; ++c) table[c] = Start::number;
  const Start letters = reader == TokenReader::word ? Start::word : Start::name;
  for (int c = 'a'; c <= 'z'; ++c) table[c] = table[c - 'a' + 'A'] = letters;
  table['_'] = letters;
  switch (reader) {
    case TokenReader::basic:
      set(table, "#()*,:;{|}=?", Start::itself);
      set(table, "+-.", Start::number);
      break;
    case TokenReader::full:
      set(table, "#()*,:;{|}+-/^", Start::itself);
      table['.'] = Start::number;
      table['='] = Start::equals;
      table['!'] = Start::bang;
      table['<'] = Start::less;
      table['>'] = Start::greater;
      break;
    case TokenReader::word:
      set(table, "()", Start::itself);
      set(table, "+-./", Start::word);
      break;
  }
  return table;
}

constexpr StartTable kBasicTable = make_table(TokenReader::basic);
constexpr StartTable kFullTable = make_table(TokenReader::full);
constexpr StartTable kWordTable = make_table(TokenReader::word);

const StartTable& table_of(TokenReader reader) noexcept {
  switch (reader) {
    case TokenReader::full:
      return kFullTable;
    case TokenReader::word:
      return kWordTable;
    case TokenReader::basic:
      break;
  }
  return kBasicTable;
}

}  // namespace

Lexer::Lexer(std::FILE* stream, k_parse_error_handler_t handler, void* data)
    : stream_(stream), handler_(handler), data_(data) {
  require(stream != nullptr);
  try {
    text_.reserve(64);
  } catch (const std::bad_alloc&) {
    throw Error(K_ERROR_NO_MEMORY);
  }
}

Lexer::Lexer(const char* text, k_parse_error_handler_t handler, void* data)
    : start_(text), pos_(text), handler_(handler), data_(data) {
  require(text != nullptr);
  end_ = text + std::strlen(text);
  try {
    text_.reserve(64);
  } catch (const std::bad_alloc&) {
    throw Error(K_ERROR_NO_MEMORY);
  }
}

std::uint64_t Lexer::position() const noexcept {
  return stream_ != nullptr ? line_ : static_cast<std::uint64_t>(pos_ - start_);
}

void Lexer::push_back(int token) noexcept {
  // No parser looks further ahead than two tokens.
  assert(pushed_count_ < 2);
  if (pushed_count_ < 2) pushed_[pushed_count_++] = token;
}

void Lexer::report_error(const char* message) noexcept {
  if (handler_ != nullptr) handler_(position(), message, data_);
  ++errors_;
}

void Lexer::report_warning(const char* message) noexcept {
  if (handler_ != nullptr) handler_(position(), message, data_);
}

int Lexer::report_unexpected(int character) noexcept {
  char message[64];
  if (character == EOF || character == '\n') {
    std::snprintf(message, sizeof message, "unexpected end-of-%s",
                  character == EOF ? "file" : "line");
  } else {
    std::snprintf(message, sizeof message, "unexpected character: `%c'", character);
  }
  return fail(message, K_ERROR_PARSE);
}

int Lexer::fail(const char* message, k_error_t code) noexcept {
  report_error(message);
  failure_ = code;
  return TOKEN_ERROR;
}

int Lexer::unget_failed() noexcept { return fail("could not unget character", K_ERROR_IO); }

int Lexer::get_char() {
  if (pos_ != end_) return static_cast<unsigned char>(*pos_++);
  if (stream_ == nullptr || !refill()) return EOF;
  return static_cast<unsigned char>(*pos_++);
}

bool Lexer::unget_char(int c) noexcept {
  // End of input was not consumed, so there is nothing to give back.
  if (c == EOF) return true;
  if (pos_ == (stream_ != nullptr ? buffer_.get() : start_)) return false;
  --pos_;
  if (static_cast<unsigned char>(*pos_) == c) return true;
  ++pos_;
  return false;
}

bool Lexer::refill() {
  // 64 KiB chunks: fread's own copy is then a small part of the time.
  constexpr std::size_t kChunk = std::size_t{1} << 16;
  const char* keep = pos_ != buffer_.get() ? pos_ - 1 : pos_;
  const auto kept = static_cast<std::size_t>(end_ - keep);
  const auto unread = static_cast<std::size_t>(end_ - pos_);
  if (kept * 2 > capacity_ || capacity_ == 0) {
    const std::size_t capacity = capacity_ == 0 ? kChunk : capacity_ * 2;
    std::unique_ptr<char[]> grown(new char[capacity]);
    if (kept > 0) std::memcpy(grown.get(), keep, kept);
    buffer_ = std::move(grown);
    capacity_ = capacity;
  } else if (kept > 0) {
    std::memmove(buffer_.get(), keep, kept);
  }
  end_ = buffer_.get() + kept;
  pos_ = end_ - unread;
  const std::size_t n = std::fread(buffer_.get() + kept, 1, capacity_ - kept, stream_);
  end_ += n;
  // A read error is not the end of the input (a directory opened as a
  // file reads with EISDIR); errno is left for the caller to name.
  if (n == 0 && std::ferror(stream_)) throw Error(K_ERROR_IO);
  return n > 0;
}

int Lexer::next_token() {
  if (pushed_count_ > 0) return pushed_[--pushed_count_];
  try {
    return read_token();
  } catch (const std::bad_alloc&) {
    // Only the token text grows.
    return fail("out-of-memory", K_ERROR_NO_MEMORY);
  }
}

// Skips the blanks (white space but `\v` and `\f`, no comments) before the
// next token within the buffer; false when a token could not be taken by a
// fast path (a token held back, another reader than the basic one).
bool Lexer::skip_plain_blanks() noexcept {
  if (pushed_count_ > 0 || reader_ != TokenReader::basic) return false;
  const char* p = pos_;
  for (; p != end_; ++p) {
    if (*p == '\n') ++line_;
    else if (*p != ' ' && *p != '\t' && *p != '\r') break;
  }
  pos_ = p;
  return true;
}

bool Lexer::take_parenthesis(char c) {
  if (!skip_plain_blanks() || pos_ == end_ || *pos_ != c) return false;
  ++pos_;
  return true;
}

bool Lexer::take_plain_number(double& value) {
  if (!skip_plain_blanks()) return false;
  const char* const p = pos_;
  // The number must end within the buffer, before a character that no
  // number continues with; both converters round as strtod does.
  PlainNumber plain;
  const char* const end = match_plain(p, end_, plain);
  if (end == nullptr || end == end_ || is_scan_char(static_cast<unsigned char>(*end)) ||
      !plain.exact(value))
    return false;
  pos_ = end;
  number_ = value;
  text_.clear();
  return true;
}

bool Lexer::take_case_item(std::size_t states, std::int64_t& index) noexcept {
  if (pushed_count_ > 0 || reader_ != TokenReader::basic) return false;
  const char* p = pos_;
  while (p != end_ && (*p == ' ' || *p == '\t')) ++p;
  pos_ = p;
  if (p == end_) return false;
  const char* q = p + 1;
  std::int64_t value = -1;
  if (*p == '#') {
    // At most nine digits: a longer index is never below `states` here.
    value = 0;
    for (; q != end_ && q - p <= 9 && *q >= '0' && *q <= '9'; ++q) value = 10 * value + (*q - '0');
    if (q == p + 1 || static_cast<std::uint64_t>(value) >= states) return false;
  } else if (*p != '*' && *p != '?') {
    return false;
  }
  if (q == end_ || (*q != ' ' && *q != '\t' && *q != '\r' && *q != '\n' && *q != ',')) return false;
  pos_ = q;
  index = value;
  return true;
}

bool Lexer::buffered_line(const char*& first, const char*& newline) {
  if (pushed_count_ > 0 || reader_ != TokenReader::basic) return false;
  for (std::size_t searched = 0;;) {
    const auto unread = static_cast<std::size_t>(end_ - pos_);
    const void* found = std::memchr(pos_ + searched, '\n', unread - searched);
    if (found != nullptr) {
      first = pos_;
      newline = static_cast<const char*>(found);
      return true;
    }
    // refill() keeps the unread bytes, though perhaps elsewhere.  A line
    // that long is left to the tokens, which need no room for all of it.
    constexpr std::size_t kLongestLine = std::size_t{1} << 20;
    searched = unread;
    if (stream_ == nullptr || unread >= kLongestLine || !refill()) return false;
  }
}

// blanks: (white space | `%` any-but-newline* (newline | end of input))*
// Returns the first character after them.
int Lexer::skip_blanks() {
  for (;;) {
    // Blanks within the buffer are skipped with a local pointer.
    const char* p = pos_;
    while (p != end_ && (*p == ' ' || *p == '\n' || *p == '\t' || *p == '\r')) {
      if (*p == '\n') ++line_;
      ++p;
    }
    pos_ = p;
    int c = get_char();
    if (c == '\n') {
      ++line_;
    } else if (c == '%') {
      do c = get_char();
      while (c != '\n' && c != EOF);
      if (c == EOF) return EOF;
      ++line_;
    } else if (!is_space(c)) {
      return c;
    }
  }
}

// token: blanks (single character | operator | name | word | number |
//        string), the first character choosing by the reader's table
int Lexer::read_token() {
  const int c = skip_blanks();
  if (c == EOF) return TOKEN_EOF;
  switch (table_of(reader_)[static_cast<unsigned char>(c)]) {
    case Start::unexpected:
      break;
    case Start::itself:
      return c;
    case Start::string:
      return read_string();
    case Start::number:
      if (!unget_char(c)) return unget_failed();
      return read_number();
    case Start::name:
      return read_name(c);
    case Start::word:
      return read_word(c);
    case Start::equals: {
      const int next = get_char();
      if (next != '=' && !unget_char(next)) return unget_failed();
      return TOKEN_EQ;
    }
    case Start::bang: {
      const int next = get_char();
      if (next == '=') return TOKEN_NE;
      if (!unget_char(next)) return unget_failed();
      return fail("`!' must be followed by `='", K_ERROR_PARSE);
    }
    case Start::less: {
      const int next = get_char();
      if (next == '=') return TOKEN_LE;
      if (next == '>') return TOKEN_NE;
      if (!unget_char(next)) return unget_failed();
      return TOKEN_LT;
    }
    case Start::greater: {
      const int next = get_char();
      if (next == '=') return TOKEN_GE;
      if (!unget_char(next)) return unget_failed();
      return TOKEN_GT;
    }
  }
  return report_unexpected(c);
}

// name: (letter | `_`) (letter | digit | `_` | `.`)*, where every `.` is
// followed by a letter or `_`
int Lexer::read_name(int first) {
  // A name that ends within the buffer and fits the text's room is taken
  // in one piece (a longer one grows the text byte by byte, so that running
  // out of memory leaves the rest of it unread).
  const char* p = pos_;
  while (p != end_ && is_name_char(static_cast<unsigned char>(*p))) ++p;
  if (p != end_ && static_cast<std::size_t>(p - pos_) < text_.capacity()) {
    text_.assign(pos_ - 1, p);
    pos_ = p;
  } else {
    text_.clear();
    text_.push_back(static_cast<char>(first));
    int c;
    while (is_name_char(c = get_char())) text_.push_back(static_cast<char>(c));
    if (!unget_char(c)) return unget_failed();
  }
  if (text_.find('.') == std::string::npos) return TOKEN_NAME;
  for (std::size_t i = 0; i < text_.size(); ++i) {
    if (text_[i] != '.') continue;
    // text_[size()] is the terminating NUL, so a final `.` fails here too.
    const int next = static_cast<unsigned char>(text_[i + 1]);
    if (!is_letter(next) && next != '_')
      return fail("`.' must be followed by a letter or an `_'", K_ERROR_PARSE);
  }
  return TOKEN_DOTTED_NAME;
}

// word: (letter | digit | `+` | `-` | `.` | `/` | `_`)+; a number when it
// starts with `+`, `-` or `.` and converts as a whole
int Lexer::read_word(int first) {
  text_.clear();
  text_.push_back(static_cast<char>(first));
  int c;
  while (is_word_char(c = get_char())) text_.push_back(static_cast<char>(c));
  if (!unget_char(c)) return unget_failed();
  if (first == '+' || first == '-' || first == '.') {
    char* end = nullptr;
    const double value = std::strtod(text_.c_str(), &end);
    if (end != text_.c_str() && *end == '\0') {
      number_ = value;
      return TOKEN_NUMBER;
    }
  }
  return TOKEN_NAME;
}

// number: what "%lg" reads from a stream; from a string, the longest prefix
// that strtod converts of the longest run of digits and `+ - . E L e`
int Lexer::read_number() {
  text_.clear();
  if (stream_ != nullptr) return read_stream_number();
  for (const char* p = pos_; is_number_char(static_cast<unsigned char>(*p)); ++p)
    text_.push_back(*p);
  char* end = nullptr;
  const double value = std::strtod(text_.c_str(), &end);
  const auto used = static_cast<std::size_t>(end - text_.c_str());
  if (used == 0) return TOKEN_ERROR;
  text_.resize(used);
  pos_ += used;
  number_ = value;
  return TOKEN_NUMBER;
}

// The stream's bytes from pos_ are those that fscanf("%lg") would read.  A
// plain decimal number (sign, digits, point, exponent with digits) followed
// by a character that no number continues with is converted here or by
// from_chars, both rounding as strtod does; anything else (hexadecimal,
// `inf`, `nan`, malformed texts, which fscanf partly consumes) goes through
// fscanf itself on a memory stream of the same bytes, so that both take the
// same characters and give the same value.
int Lexer::read_stream_number() {
  PlainNumber plain;
  const char* end = match_plain(pos_, end_, plain);
  if (end != nullptr && end != end_ && !is_scan_char(static_cast<unsigned char>(*end)) &&
      plain.exact(number_)) {
    pos_ = end;
    return TOKEN_NUMBER;
  }
  std::size_t run = 0;
  for (;;) {
    while (pos_ + run != end_ && is_scan_char(static_cast<unsigned char>(pos_[run]))) ++run;
    if (pos_ + run != end_ || !refill()) break;
  }
  const char* const last = pos_ + run;
  if (match_plain(pos_, last, plain) == last) {
    double value = 0.0;
    const char* const first = *pos_ == '+' ? pos_ + 1 : pos_;
    const auto [stop, error] = std::from_chars(first, last, value);
    if (error == std::errc() && stop == last) {
      number_ = value;
      pos_ = last;
      return TOKEN_NUMBER;
    }
  }
  // fscanf reads at most one character past the run.
  const std::size_t size = run + (last != end_ ? 1 : 0);
  std::FILE* memory = fmemopen(const_cast<char*>(pos_), size, "r");
  if (memory == nullptr) throw std::bad_alloc();
  double value = 0.0;
  const int converted = std::fscanf(memory, "%lg", &value);
  const long used = std::ftell(memory);
  std::fclose(memory);
  pos_ += used > 0 ? used : 0;
  if (converted != 1) return TOKEN_ERROR;
  number_ = value;
  return TOKEN_NUMBER;
}

// string: `"` (character | escape)* `"`, on one line unless joined by `\`
int Lexer::read_string() {
  // A string without escapes, NULs or newlines that ends within the buffer
  // and fits the text's room is taken in one piece.
  const char* p = pos_;
  while (p != end_ && *p != '"' && *p != '\\' && *p != '\n' && *p != '\0') ++p;
  if (p != end_ && *p == '"' && static_cast<std::size_t>(p - pos_) <= text_.capacity()) {
    text_.assign(pos_, p);
    pos_ = p + 1;
    return TOKEN_STRING;
  }
  text_.clear();
  for (;;) {
    int c = get_char();
    if (c == '"') break;
    if (c == EOF || c == '\n') {
      fail("string did not end", K_ERROR_PARSE);
      // The newline is consumed here, so it is counted here.
      if (c == '\n') ++line_;
      return TOKEN_ERROR;
    }
    if (c == '\\') {
      const Escape escape = read_escape(c);
      if (escape == Escape::failed) return TOKEN_ERROR;
      if (escape == Escape::joined) continue;
    }
    text_.push_back(static_cast<char>(c));
    if (c == '\0') report_warning("warning: null character in string");
  }
  // A NUL ends the text for every later use.
  text_.resize(std::strlen(text_.c_str()));
  return TOKEN_STRING;
}

// escape: `\` (newline | `"` | `'` | `?` | `\` | `a` | `b` | `f` | `n` | `r`
//         | `t` | `v` | `x` hex-digit+ | octal-digit{1,3})
// Leaves the byte to store in `value`.
Lexer::Escape Lexer::read_escape(int& value) {
  const int c = get_char();
  switch (c) {
    case '\n':
      ++line_;
      return Escape::joined;
    case '"':
    case '\'':
    case '?':
    case '\\':
      value = c;
      return Escape::stored;
    case 'a':
      value = '\a';
      return Escape::stored;
    case 'b':
      value = '\b';
      return Escape::stored;
    case 'f':
      value = '\f';
      return Escape::stored;
    case 'n':
      value = '\n';
      return Escape::stored;
    case 'r':
      value = '\r';
      return Escape::stored;
    case 't':
      value = '\t';
      return Escape::stored;
    case 'v':
      value = '\v';
      return Escape::stored;
    case 'x': {
      int d = get_char();
      if (!is_hex(d)) {
        // Silent: the parser that asked for the token reports it.
        if (!unget_char(d)) unget_failed();
        return Escape::failed;
      }
      // Any number of digits; only the low eight bits are kept.
      unsigned byte = 0;
      do {
        byte = ((byte << 4) | static_cast<unsigned>(hex_value(d))) & 0xFFu;
        d = get_char();
      } while (is_hex(d));
      if (!unget_char(d)) {
        unget_failed();
        return Escape::failed;
      }
      value = static_cast<int>(byte);
      return Escape::stored;
    }
    default:
      break;
  }
  if (is_octal(c)) {
    unsigned byte = static_cast<unsigned>(c - '0');
    for (int i = 0; i < 2; ++i) {
      const int d = get_char();
      if (!is_octal(d)) {
        if (!unget_char(d)) {
          unget_failed();
          return Escape::failed;
        }
        break;
      }
      byte = byte * 8 + static_cast<unsigned>(d - '0');
    }
    value = static_cast<int>(byte & 0xFFu);
    return Escape::stored;
  }
  char message[64];
  if (c == EOF) {
    std::snprintf(message, sizeof message, "illegal escape sequence: `\\'");
  } else {
    std::snprintf(message, sizeof message, "illegal escape sequence: `\\%c'", c);
  }
  fail(message, K_ERROR_PARSE);
  return Escape::failed;
}

const char* LineTexts::operator()(std::uint64_t line) noexcept {
  char* buffer = buffers_[next_];
  next_ = (next_ + 1) % 8;
  if (line == UINT64_MAX) {
    std::snprintf(buffer, sizeof buffers_[0], "HUGE");
  } else {
    std::snprintf(buffer, sizeof buffers_[0], "%" PRIu64, line);
  }
  return buffer;
}

}  // namespace kelva
