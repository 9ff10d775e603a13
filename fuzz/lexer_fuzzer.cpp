// Reads the input to its end with every token reader, from a string and from
// a stream, and checks what must hold of every token: known codes only,
// well-formed names and strings, progress through the input, exact line
// counts, errors counted once and never uncounted, pushback returning what
// was given back, and the same tokens from both sources up to the first
// number (the two sources read numbers differently by design).
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz_check.h"
#include "lexer/lexer.h"

namespace {

using kelva::Lexer;
using kelva::TokenReader;

struct Message {
  std::uint64_t position;
  std::string text;
};

// The handler: keeps every message.
struct Sink {
  std::vector<Message> messages;

  static void handler(std::uint64_t position, const char* message, void* data) {
    static_cast<Sink*>(data)->messages.push_back({position, message});
  }
};

bool is_warning(const Message& m) { return m.text.rfind("warning: ", 0) == 0; }

// One token as read, with the messages issued while it was read.
struct Record {
  int token;
  std::string text;
  std::uint64_t line;
  std::vector<std::string> messages;
};

bool is_letter(int c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool is_digit(int c) { return c >= '0' && c <= '9'; }

// The single-character tokens of each reader.
bool is_single(TokenReader reader, int c) {
  if (c <= 0 || c > 127) return false;
  const char* singles = reader == TokenReader::basic  ? "#()*,:;{|}=?"
                        : reader == TokenReader::full ? "#()*,:;{|}+-/^"
                                                      : "()";
  return std::strchr(singles, c) != nullptr;
}

// The codes every reader may return besides single characters and operators.
bool is_known_code(int token) {
  return token == kelva::TOKEN_NAME || token == kelva::TOKEN_NUMBER ||
         token == kelva::TOKEN_STRING || token == kelva::TOKEN_DOTTED_NAME ||
         token == kelva::TOKEN_EOF || token == kelva::TOKEN_ERROR;
}

void check_text(TokenReader reader, int token, const std::string& text) {
  if (token == kelva::TOKEN_STRING) {
    CHECK(std::strlen(text.c_str()) == text.size());  // a NUL ends the text
  } else if (token == kelva::TOKEN_NAME && reader == TokenReader::word) {
    CHECK(!text.empty());
    for (char ch : text) {
      const int c = static_cast<unsigned char>(ch);
      CHECK(is_letter(c) || is_digit(c) || std::strchr("+-./_", c) != nullptr);
    }
  } else if (token == kelva::TOKEN_NAME || token == kelva::TOKEN_DOTTED_NAME) {
    CHECK(reader != TokenReader::word);
    CHECK(!text.empty() && (is_letter(static_cast<unsigned char>(text[0])) || text[0] == '_'));
    bool dotted = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
      const int c = static_cast<unsigned char>(text[i]);
      CHECK(is_letter(c) || is_digit(c) || c == '_' || c == '.');
      if (c != '.') continue;
      dotted = true;
      CHECK(i + 1 < text.size() &&
            (is_letter(static_cast<unsigned char>(text[i + 1])) || text[i + 1] == '_'));
    }
    CHECK(dotted == (token == kelva::TOKEN_DOTTED_NAME));
  }
}

// The input of a run and, for a string source, how much of it is consumed.
// A stream's offset is not watched: fscanf may read past the characters it
// gives back, and ftell on a memory stream does not always tell.
struct Source {
  const std::string& data;
  const Lexer* string_lexer;  // null for a stream

  std::size_t consumed() const {
    return string_lexer != nullptr ? static_cast<std::size_t>(string_lexer->position()) : 0;
  }
};

// Reads to the end of the input (or to an error that leaves the source
// where it was), switching readers as `choose` says, and checks every token.
template <class Choose>
std::vector<Record> exhaust(Lexer& lexer, Sink& sink, const Source& source, Choose choose) {
  std::vector<Record> records;
  const std::size_t size = source.data.size();
  const bool is_string = source.string_lexer != nullptr;
  std::size_t counted = 0;  // bytes looked at for newlines
  std::uint64_t newlines = 0;
  std::int64_t errors = 0;
  int previous = kelva::TOKEN_EOF;
  for (std::size_t i = 0;; ++i) {
    // Every token but the last consumes at least one byte.
    CHECK(i <= size + 1);
    const TokenReader reader = choose(i);
    lexer.set_reader(reader);
    const std::size_t before = source.consumed();
    const std::uint64_t line_before = lexer.line();
    const std::size_t first_message = sink.messages.size();

    const int token = lexer.next_token();

    const std::size_t after = source.consumed();
    CHECK(after >= before && after <= size);
    CHECK(lexer.line() >= line_before);
    // Every newline consumed is counted once, wherever it was (a stream may
    // lose one inside a number that fscanf refuses).
    for (; counted < (is_string ? after : size); ++counted)
      newlines += source.data[counted] == '\n';
    CHECK(is_string ? lexer.line() == 1 + newlines : lexer.line() <= 1 + newlines);

    // Errors are counted once each; warnings are not counted.
    Record record{token, lexer.text(), lexer.line(), {}};
    std::int64_t new_errors = 0;
    for (std::size_t m = first_message; m < sink.messages.size(); ++m) {
      const Message& message = sink.messages[m];
      record.messages.push_back(message.text);
      if (!is_warning(message)) ++new_errors;
      if (is_string) {
        CHECK(message.position >= before && message.position <= size);
      } else {
        CHECK(message.position >= line_before && message.position <= lexer.line());
      }
    }
    CHECK(lexer.error_count() == errors + new_errors);
    errors = lexer.error_count();
    if (new_errors > 0) CHECK(token == kelva::TOKEN_ERROR);

    if (token >= 0) {
      CHECK(is_single(reader, token));
    } else if (token <= kelva::TOKEN_EQ) {
      CHECK(reader == TokenReader::full && token >= kelva::TOKEN_GE);
    } else {
      CHECK(is_known_code(token));
    }
    if (reader == TokenReader::word) CHECK(token != kelva::TOKEN_DOTTED_NAME);
    check_text(reader, token, lexer.text());
    if (is_string && token != kelva::TOKEN_EOF && token != kelva::TOKEN_ERROR) {
      CHECK(after > before);
    }

    // Giving back one or two tokens returns them, in order, untouched.
    if (i % 3 == 1) {
      lexer.push_back(token);
      lexer.push_back(previous);
      CHECK(lexer.next_token() == previous);
      CHECK(lexer.next_token() == token);
      CHECK(lexer.text() == record.text);
      CHECK(sink.messages.size() == first_message + record.messages.size());
      CHECK(source.consumed() == after);
    }

    records.push_back(std::move(record));
    previous = token;
    if (token == kelva::TOKEN_EOF) {
      CHECK(!is_string || after == size);
      break;
    }
    // A number that does not convert leaves a string source where it was.
    if (is_string && token == kelva::TOKEN_ERROR && after == before) break;
  }
  return records;
}

std::vector<Record> lex_string(const std::string& data, TokenReader reader) {
  Sink sink;
  Lexer lexer(data.c_str(), Sink::handler, &sink);
  return exhaust(lexer, sink, Source{data, &lexer}, [&](std::size_t) { return reader; });
}

std::vector<Record> lex_stream(const std::string& data, TokenReader reader) {
  if (data.empty()) return {{kelva::TOKEN_EOF, "", 1, {}}};  // fmemopen refuses size 0
  std::string buffer = data;
  std::FILE* stream = fmemopen(buffer.data(), buffer.size(), "r");
  CHECK(stream != nullptr);
  Sink sink;
  Lexer lexer(stream, Sink::handler, &sink);
  auto records = exhaust(lexer, sink, Source{data, nullptr}, [&](std::size_t) { return reader; });
  std::fclose(stream);
  return records;
}

// The two sources agree on everything but numbers.
void compare(const std::vector<Record>& string, const std::vector<Record>& stream) {
  for (std::size_t i = 0; i < string.size() && i < stream.size(); ++i) {
    const Record& a = string[i];
    const Record& b = stream[i];
    if (a.token == kelva::TOKEN_NUMBER || b.token == kelva::TOKEN_NUMBER) return;
    CHECK(a.token == b.token);
    CHECK(a.line == b.line);
    CHECK(a.messages == b.messages);
    if (a.token == kelva::TOKEN_ERROR) return;  // a silent number failure may be next
    CHECK(a.text == b.text);
  }
  CHECK(string.size() == stream.size());
}

void check_line_texts(const std::uint8_t* data, std::size_t size) {
  kelva::LineTexts texts;
  std::uint64_t line = 0;
  std::memcpy(&line, data, size < sizeof line ? size : sizeof line);
  const char* first = texts(line);
  const std::string expected = line == UINT64_MAX ? "HUGE" : std::to_string(line);
  CHECK(expected == first);
  for (int i = 0; i < 7; ++i) CHECK(texts(UINT64_MAX) != first);
  CHECK(texts(0) == first);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string all(reinterpret_cast<const char*>(data), size);
  // A string source ends at the first NUL; a stream reads NUL bytes too.
  const std::string text(all.c_str());
  for (TokenReader reader : {TokenReader::basic, TokenReader::full, TokenReader::word}) {
    const auto from_string = lex_string(text, reader);
    compare(from_string, lex_stream(text, reader));
    if (text.size() != all.size()) lex_stream(all, reader);
  }
  // The readers switched token by token, as the NET reader does.
  Sink sink;
  Lexer lexer(text.c_str(), Sink::handler, &sink);
  exhaust(lexer, sink, Source{text, &lexer},
          [&](std::size_t i) { return static_cast<TokenReader>(i < size ? data[i] % 3 : 0); });
  check_line_texts(data, size);
  return 0;
}
