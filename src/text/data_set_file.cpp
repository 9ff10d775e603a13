// Data sets as delimited text: a header line of column names, then one row
// per line, fields separated by a character the caller chooses.
//
// The reader has its own field reader rather than the token readers of the
// lexer, because fields end at the separator and records at the newline.
// It keeps the lexer's bookkeeping (line counter, handler, positions: the
// line for a stream, the characters consumed for a string) but reads its
// source through one large buffer and scans runs of ordinary characters
// with a table, so a cell costs one string construction and no call per
// character.
#include "text/data_set_file.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "dataset/data_set.h"
#include "network/error.h"
#include "platform/locale_guard.h"
#include "text/net_writer.h"

namespace kelva {

namespace {

// White space that may stand around a field (not the newline, which ends
// the record).
constexpr bool is_blank(int c) noexcept {
  return c == ' ' || c == '\t' || c == '\v' || c == '\f' || c == '\r';
}

// White space at either end of a cell makes the writer quote it.
constexpr bool is_white(int c) noexcept { return is_blank(c) || c == '\n'; }

using CharTable = std::array<bool, 256>;

class FieldReader {
 public:
  // What one call of read() found.
  enum class Field {
    end_of_file,  // only at the start of a line: the input is over
    missing,      // an empty unquoted field
    present,      // text() holds the cell (possibly empty when quoted)
  };

  FieldReader(std::FILE* stream, unsigned char separator, k_parse_error_handler_t handler,
              void* data)
      : stream_(stream), buffer_(new char[kBufferSize]), handler_(handler), data_(data) {
    begin_ = p_ = end_ = reinterpret_cast<const unsigned char*>(buffer_.get());
    set_tables(separator);
  }

  FieldReader(const char* text, unsigned char separator, k_parse_error_handler_t handler,
              void* data)
      : handler_(handler), data_(data) {
    start_ = p_ = reinterpret_cast<const unsigned char*>(text);
    end_ = p_ + std::strlen(text);
    set_tables(separator);
  }

  // Reads the next field; `first` says whether it starts a line.
  Field read(bool first) {
    if (first) ++line_;
    // Leading white space (never the separator); at the start of a line
    // whole blank lines go too.
    for (;;) {
      if (p_ == end_ && !fill()) {
        if (first) return Field::end_of_file;
        fail("unexpected end-of-file");
      }
      const unsigned char c = *p_;
      if (blank_[c]) {
        ++p_;
      } else if (c == '\n' && first) {
        ++p_;
        ++line_;
      } else {
        break;
      }
    }
    return *p_ == '"' ? read_quoted() : read_plain();
  }

  // The usual field, read without a call per step: unquoted, starting with
  // no white space, ending at the separator or the newline within the
  // buffer, no NUL in it.  Gives its text (trailing white space cut; empty
  // means missing) and whether it ended its record; false, having consumed
  // nothing, for any other field, which read() then takes.
  bool read_usual(bool first, std::string_view& text, bool& line_ended) noexcept {
    const unsigned char* const begin = p_;
    if (begin == end_ || blank_[*begin] || *begin == '"' || (first && *begin == '\n')) return false;
    const unsigned char* const stop = skip(begin, plain_stop_, repeated_, 3);
    if (stop == end_ || *stop == '"' || *stop == '\0') return false;
    line_ended = *stop == '\n';
    std::size_t length = static_cast<std::size_t>(stop - begin);
    while (length > 0 && is_blank(begin[length - 1])) --length;
    text = std::string_view(reinterpret_cast<const char*>(begin), length);
    p_ = stop + 1;
    if (first) ++line_;
    return true;
  }

  // Reads the rows after the header into `rows`, each of `columns` cells
  // (fewer given are missing), until the end of input.  The usual fields
  // (unquoted, starting with no white space, or quoted with no doubled
  // quote; ending at the separator or the newline; no NUL) are taken in a
  // loop that keeps the input and the row in locals and finds field ends
  // from a mask of the stop characters of 64 bytes, so one mask serves
  // several fields.  Any other field, one near the end of the buffer and
  // one that needs more room go through read_usual() and read() as they
  // stand.
  void read_rows(ArenaRowWriter& row, std::vector<DataRow>& rows, std::size_t columns) {
    const unsigned char separator = separator_;
    const unsigned char* p = p_;
    const unsigned char* end = end_;
    const unsigned char* base = p;  // the bytes the mask stands for
    const unsigned char* next = p;  // where the next mask starts
    std::uint64_t mask = 0;         // stops at or after p from base on
    char* offsets = nullptr;        // the row's first cell offset
    char* slot = nullptr;           // the next cell's offset
    char* slots_end = nullptr;
    char* texts = nullptr;
    char* cursor = nullptr;
    std::uintptr_t room_end = 0;  // texts end before it (room, and offsets below 2 GiB)
    auto take_row = [&] {
      offsets = row.offsets();
      slot = offsets + 4 * row.size();
      slots_end = offsets + 4 * columns;
      texts = row.texts();
      cursor = row.cursor();
      room_end = std::min(reinterpret_cast<std::uintptr_t>(row.limit()),
                          reinterpret_cast<std::uintptr_t>(texts) + 0x7FFFFFF0u);
    };
    auto count = [&] { return static_cast<std::size_t>(slot - offsets) / 4; };
    row.begin();
    take_row();
    // The line counter goes up as a row starts rather than with its first
    // field; the general path, which counts it itself, takes it back.
    ++line_;
    for (;;) {
      bool ended = false;
      for (;;) {  // the fast path; leaves with `ended` set, or breaks to the general one
        while (mask == 0) {
          // 64 bytes for the mask and 16 more, so that a short text can be
          // copied as two words.
          if (end - next < 80) break;
          mask = stops(next, separator);
          base = next;
          next += 64;
        }
        if (mask == 0) break;
        std::uint64_t at = mask;  // its lowest bit: the stop after the field
        const unsigned char* stop = base + __builtin_ctzll(at);
        unsigned char kind = usual_end_[*stop];
        const unsigned char* text = p;
        std::size_t length = 0;
        bool present = true;
        if (kind != 0 && !unusual_start_[*p]) {
          length = static_cast<std::size_t>(stop - p);
          while (length > 0 && is_blank(p[length - 1])) --length;
          present = length > 0;
        } else if (*p == '\n' && slot != offsets) {
          present = false;  // an empty last field; at a row's start, a blank line
        } else if (*p == '"') {
          // The closing quote among the next stops (separators before it
          // are text), followed right away by the separator or the newline.
          at &= at - 1;
          while (at != 0 && base[__builtin_ctzll(at)] == separator) at &= at - 1;
          if (at == 0) break;
          const unsigned char* const close = base + __builtin_ctzll(at);
          if (*close != '"') break;
          // The next stop is right after it when that is one; it must be in
          // this mask, or the next mask would start before p.
          at &= at - 1;
          if (at == 0) break;
          stop = close + 1;
          kind = usual_end_[*stop];
          if (kind == 0) break;
          text = p + 1;
          length = static_cast<std::size_t>(close - text);
        } else {
          break;
        }
        if (slot == slots_end) break;
        std::uint32_t offset = DataRow::kMissing;
        if (present) {
          if (reinterpret_cast<std::uintptr_t>(cursor) + length + 16 >= room_end) break;
          offset = static_cast<std::uint32_t>(cursor - texts);
          cursor = put_cell_text(cursor, reinterpret_cast<const char*>(text), length, true);
        }
        std::memcpy(slot, &offset, 4);
        slot += 4;
        mask = at & (at - 1);
        p = stop + 1;
        if (kind == 2) {
          ended = true;
          break;
        }
      }
      if (!ended) {
        // One field through the general path, as before.
        p_ = p;
        row.resume(cursor, count());
        const bool first = slot == offsets;
        if (first) --line_;
        std::string_view text;
        bool present = false;
        if (read_usual(first, text, ended)) {
          present = !text.empty();
        } else {
          const Field field = read(first);
          if (field == Field::end_of_file) return;
          present = field == Field::present;
          text = text_;
          ended = line_ended_;
        }
        if (row.size() == columns) fail("too many fields");
        if (present) row.add(text.data(), text.size(), readable(text.data()));
        else row.add_missing();
        p = next = p_;
        end = end_;
        mask = 0;
        take_row();
        if (!ended) continue;
      }
      row.resume(cursor, count());
      rows.push_back(row.finish());
      row.begin();
      take_row();
      ++line_;
    }
  }

  // How many bytes from `text` on lie in the input's buffer (0 for a text
  // gathered elsewhere).
  std::size_t readable(const char* text) const noexcept {
    const auto t = reinterpret_cast<std::uintptr_t>(text);
    const auto first = reinterpret_cast<std::uintptr_t>(start_ != nullptr ? start_ : begin_);
    const auto last = reinterpret_cast<std::uintptr_t>(end_);
    return t >= first && t < last ? last - t : 0;
  }

  // The text of the last present field, valid until the next read().
  std::string_view text() const noexcept { return text_; }
  // Whether the last field ended its record.
  bool line_ended() const noexcept { return line_ended_; }

  // Reports `message` as an error and stops the read.
  [[noreturn]] void fail(const char* message) {
    if (handler_ != nullptr) handler_(position(), message, data_);
    throw Error(K_ERROR_PARSE);
  }

 private:
  static constexpr std::size_t kBufferSize = std::size_t{1} << 20;

  void set_tables(unsigned char separator) noexcept {
    separator_ = separator;
    for (int c = 0; c < 256; ++c) blank_[c] = is_blank(c);
    blank_[separator] = false;
    plain_stop_[separator] = plain_stop_['\n'] = plain_stop_['"'] = plain_stop_['\0'] = true;
    quoted_stop_['\n'] = quoted_stop_['"'] = quoted_stop_['\0'] = true;
    unusual_start_ = blank_;
    unusual_start_['"'] = unusual_start_['\n'] = 1;
    usual_end_[separator] = 1;
    usual_end_['\n'] = 2;
    constexpr std::uint64_t kOnes = 0x0101010101010101u;
    repeated_[0] = kOnes * '\n';
    repeated_[1] = kOnes * '"';
    repeated_[2] = kOnes * separator;
  }

  std::uint64_t position() const noexcept {
    return start_ != nullptr ? static_cast<std::uint64_t>(p_ - start_) : line_;
  }

  // Refills the buffer once everything in it has been consumed; false at
  // the end of input.  A string source is one buffer from the start.
  bool fill() {
    if (stream_ == nullptr || at_eof_) return false;
    const std::size_t n = std::fread(buffer_.get(), 1, kBufferSize, stream_);
    if (n == 0) {
      if (std::ferror(stream_)) throw Error(K_ERROR_IO);
      at_eof_ = true;
      return false;
    }
    p_ = reinterpret_cast<const unsigned char*>(buffer_.get());
    end_ = p_ + n;
    return true;
  }

  void warn_null() {
    if (handler_ != nullptr) handler_(position(), "warning: null character ignored", data_);
  }

  [[noreturn]] void fail_unexpected(unsigned char c) {
    char message[64];
    std::snprintf(message, sizeof message, "unexpected character: `%c'", c);
    fail(message);
  }

  // An unquoted field: up to the separator or the newline, trailing white
  // space cut; empty means missing.  Usually the field lies inside the
  // buffer and text_ points at it; across a refill or around a NUL the
  // pieces are gathered in scratch_.
  Field read_plain() {
    const unsigned char* run = p_;
    bool gathered = false;
    for (;;) {
      p_ = skip(p_, plain_stop_, repeated_, 3);
      if (p_ == end_) {
        gather(gathered, run);
        if (!fill()) fail("unexpected end-of-file");
        run = p_;
        continue;
      }
      const unsigned char c = *p_;
      if (c == '\0') {
        gather(gathered, run);
        ++p_;
        warn_null();
        run = p_;
        continue;
      }
      ++p_;
      if (c == '"') fail_unexpected(c);
      line_ended_ = c == '\n';
      break;
    }
    const char* begin = reinterpret_cast<const char*>(run);
    std::size_t length = static_cast<std::size_t>(p_ - 1 - run);
    if (gathered) {
      scratch_.append(begin, length);
      begin = scratch_.data();
      length = scratch_.size();
    }
    while (length > 0 && is_blank(static_cast<unsigned char>(begin[length - 1]))) --length;
    text_ = std::string_view(begin, length);
    return length == 0 ? Field::missing : Field::present;
  }

  // The first character from `p` on that is in `stop`, or end_: eight bytes
  // at a time while they last (`stop` holds the NUL, the newline, the double
  // quote and, for unquoted fields, the separator; `repeated` is each of
  // them but the NUL in every byte of a word), then byte by byte.  A local
  // pointer: p_ itself could be aliased by the characters read, which would
  // make the compiler store it at every step.
  const unsigned char* skip(const unsigned char* p, const CharTable& stop,
                            const std::uint64_t* repeated, int count) const noexcept {
    const unsigned char* const end = end_;
    while (end - p >= 8) {
      std::uint64_t word;
      std::memcpy(&word, p, sizeof word);
      // Bit 7 of a byte is set where it is zero; bits above the lowest such
      // byte may be set wrongly (a borrow), so only the lowest is trusted.
      auto zero = [](std::uint64_t v) {
        return (v - 0x0101010101010101u) & ~v & 0x8080808080808080u;
      };
      std::uint64_t found = zero(word);
      for (int k = 0; k < count; ++k) found |= zero(word ^ repeated[k]);
      if (found != 0) return p + __builtin_ctzll(found) / 8;
      p += 8;
    }
    while (p < end && !stop[*p]) ++p;
    return p;
  }

  // A bit for each of the 64 bytes from `p` that ends a run of an unquoted
  // field: the separator, the newline, the double quote or the NUL.
  std::uint64_t stops(const unsigned char* p, unsigned char separator) const noexcept {
    std::uint64_t mask = 0;
#if defined(__SSE2__)
    const __m128i sep = _mm_set1_epi8(static_cast<char>(separator));
    const __m128i newline = _mm_set1_epi8('\n');
    const __m128i quote = _mm_set1_epi8('"');
    for (int k = 0; k < 4; ++k) {
      const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 16 * k));
      const __m128i found = _mm_or_si128(
          _mm_or_si128(_mm_cmpeq_epi8(bytes, sep), _mm_cmpeq_epi8(bytes, newline)),
          _mm_or_si128(_mm_cmpeq_epi8(bytes, quote), _mm_cmpeq_epi8(bytes, _mm_setzero_si128())));
      mask |= static_cast<std::uint64_t>(static_cast<std::uint32_t>(_mm_movemask_epi8(found)))
              << (16 * k);
    }
#else
    (void)separator;
    for (int k = 0; k < 64; ++k) mask |= static_cast<std::uint64_t>(plain_stop_[p[k]]) << k;
#endif
    return mask;
  }

  // Moves the run [run, p_) into scratch_ before the buffer changes.
  void gather(bool& gathered, const unsigned char* run) {
    if (!gathered) scratch_.clear();
    gathered = true;
    scratch_.append(reinterpret_cast<const char*>(run), static_cast<std::size_t>(p_ - run));
  }

  // A quoted field: up to the next lone double quote (a doubled one stands
  // for one), on one line; then only white space before the separator, the
  // newline or the end of input.
  Field read_quoted() {
    ++p_;  // the opening quote
    scratch_.clear();
    bool gathered = true;
    const unsigned char* run = p_;
    for (;;) {
      p_ = skip(p_, quoted_stop_, repeated_, 2);
      if (p_ == end_) {
        gather(gathered, run);
        if (!fill()) fail("unexpected end-of-file");
        run = p_;
        continue;
      }
      const unsigned char c = *p_;
      gather(gathered, run);
      ++p_;
      if (c == '\n') fail("unexpected end-of-line");
      if (c == '\0') {
        warn_null();
      } else {  // a double quote: doubled, or the closing one
        if (p_ == end_) fill();
        if (p_ == end_ || *p_ != '"') break;
        scratch_.push_back('"');
        ++p_;
      }
      run = p_;
    }
    text_ = scratch_;
    // What may follow the closing quote.  A NUL is dropped here as inside
    // the field.
    for (;;) {
      if (p_ == end_ && !fill()) {
        line_ended_ = true;  // the last line may end right after a quoted field
        return Field::present;
      }
      const unsigned char c = *p_++;
      if (blank_[c]) continue;
      if (c == '\0') {
        warn_null();
        continue;
      }
      if (c == '\n' || c == separator_) {
        line_ended_ = c == '\n';
        return Field::present;
      }
      fail_unexpected(c);
    }
  }

  std::FILE* stream_ = nullptr;
  std::unique_ptr<char[]> buffer_;
  bool at_eof_ = false;
  const unsigned char* start_ = nullptr;  // a string source's start
  const unsigned char* begin_ = nullptr;  // a stream's buffer
  const unsigned char* p_ = nullptr;      // next unread character
  const unsigned char* end_ = nullptr;    // end of the buffered input
  k_parse_error_handler_t handler_;
  void* data_;
  std::uint64_t line_ = 0;  // goes up at the start of every line
  unsigned char separator_ = ',';
  CharTable blank_{};        // skippable white space: never the separator
  CharTable plain_stop_{};   // ends a run of an unquoted field
  CharTable quoted_stop_{};  // ends a run of a quoted field
  // Characters that start no unquoted field of read_rows' fast path: white
  // space, the double quote, the newline.
  CharTable unusual_start_{};
  // What a stop character ends for the fast path: 1 a field (the
  // separator), 2 a field and its record (the newline), 0 neither.
  std::array<unsigned char, 256> usual_end_{};
  std::uint64_t repeated_[3] = {};  // newline, quote, separator in every byte
  std::string scratch_;
  std::string_view text_;
  bool line_ended_ = false;
};

std::unique_ptr<DataSet> read(FieldReader& in) {
  platform::CLocaleGuard guard;
  if (!guard.ok()) throw Error(K_ERROR_LOCALE);
  auto data_set = std::make_unique<DataSet>();
  using Field = FieldReader::Field;

  Field field = in.read(true);
  if (field == Field::end_of_file) in.fail("empty file");
  for (;;) {
    if (field == Field::missing) in.fail("missing field in header");
    data_set->columns.emplace_back(in.text());
    if (in.line_ended()) break;
    field = in.read(false);
  }

  // Each row's cells are written straight into its block in the data set's
  // arena; the fields not given are missing.
  ArenaRowWriter row(data_set->arena, data_set->columns.size());
  in.read_rows(row, data_set->rows, data_set->columns.size());
  return data_set;
}

// Appends `text` as one field: as it stands, or quoted when the reader
// would not give it back as it stands.
void append_field(std::string& out, std::string_view text, char separator) {
  const bool quote = text.empty() || is_white(static_cast<unsigned char>(text.front())) ||
                     is_white(static_cast<unsigned char>(text.back())) ||
                     text.find('"') != std::string_view::npos ||
                     text.find(separator) != std::string_view::npos;
  if (!quote) {
    out += text;
    return;
  }
  out += '"';
  for (char c : text) {
    if (c == '"') out += '"';
    out += c;
  }
  out += '"';
}

}  // namespace

bool is_data_set_separator(int separator) noexcept {
  return separator >= 1 && separator <= 255 && separator != '"' && separator != '\n' &&
         separator != '\r' && separator != '\v' && separator != '\f';
}

std::unique_ptr<DataSet> read_data_set(std::FILE* stream, int separator,
                                       k_parse_error_handler_t handler, void* data) {
  require(stream != nullptr && is_data_set_separator(separator));
  FieldReader in(stream, static_cast<unsigned char>(separator), handler, data);
  return read(in);
}

std::unique_ptr<DataSet> read_data_set(const char* text, int separator,
                                       k_parse_error_handler_t handler, void* data) {
  require(text != nullptr && is_data_set_separator(separator));
  FieldReader in(text, static_cast<unsigned char>(separator), handler, data);
  return read(in);
}

void write_data_set(const DataSet& data_set, int separator, TextSink& sink) {
  require(is_data_set_separator(separator));
  platform::CLocaleGuard guard;
  if (!guard.ok()) throw Error(K_ERROR_LOCALE);
  const char sep = static_cast<char>(separator);
  const std::size_t columns = data_set.column_count();

  // Lines are gathered into chunks so that the sink sees few, large texts.
  constexpr std::size_t kChunk = std::size_t{1} << 16;
  std::string out;
  out.reserve(kChunk + 256);
  for (std::size_t c = 0; c < columns; ++c) {
    if (c > 0) out += sep;
    append_field(out, data_set.columns[c], sep);
  }
  out += '\n';
  for (const DataSet::Row& row : data_set.rows) {
    for (std::size_t c = 0; c < columns; ++c) {
      if (c > 0) out += sep;
      // A missing cell (or a cell of an absent row) is written as nothing.
      if (c < row.size() && row.cell(c) != nullptr) append_field(out, row.cell(c), sep);
    }
    out += '\n';
    if (out.size() >= kChunk) {
      sink.write(out);
      out.clear();
    }
  }
  if (!out.empty()) sink.write(out);
}

}  // namespace kelva
