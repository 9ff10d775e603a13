// The lexer: each reader's character table, names, words, numbers, strings
// and their escapes, positions for both sources, pushback, line texts and
// the parse frame.
#include "lexer/lexer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "common/fail_new.h"

namespace kelva {
namespace {

// Collects the handler's calls as "position:message".
struct Messages {
  std::vector<std::string> all;

  static void handler(std::uint64_t position, const char* message, void* data) {
    static_cast<Messages*>(data)->all.push_back(std::to_string(position) + ":" + message);
  }
};

// A description of one token: its kind and text or value, then the messages
// reported while it was read, in brackets.
std::string describe(const Lexer& lexer, int token) {
  if (token == TOKEN_NUMBER) {
    char number[64];
    std::snprintf(number, sizeof number, "num:%g", lexer.number());
    return number;
  }
  // Kinds ending in ':' are followed by the token's text.
  const std::pair<int, std::string> kinds[] = {
      {TOKEN_NAME, "name:"},  {TOKEN_DOTTED_NAME, "dotted:"},
      {TOKEN_STRING, "str:"}, {TOKEN_EOF, "eof"},
      {TOKEN_ERROR, "error"}, {TOKEN_EQ, "=="},
      {TOKEN_NE, "!="},       {TOKEN_LT, "<"},
      {TOKEN_GT, ">"},        {TOKEN_LE, "<="},
      {TOKEN_GE, ">="}};
  for (const auto& [code, kind] : kinds)
    if (token == code) return kind.back() == ':' ? kind + lexer.text() : kind;
  return std::string(1, static_cast<char>(token));
}

// Reads tokens up to end of input (or a second error, since a number that
// does not convert leaves a string source where it was) and describes them.
std::string lex(Lexer& lexer, Messages& messages, TokenReader reader) {
  lexer.set_reader(reader);
  std::string out;
  int errors = 0;
  for (int i = 0; i < 100; ++i) {
    const std::size_t before = messages.all.size();
    const int token = lexer.next_token();
    if (!out.empty()) out += ' ';
    out += describe(lexer, token);
    if (messages.all.size() > before) {
      out += '[';
      for (std::size_t m = before; m < messages.all.size(); ++m)
        out += (m > before ? "|" : "") + messages.all[m];
      out += ']';
    }
    if (token == TOKEN_EOF || (token == TOKEN_ERROR && ++errors == 2)) break;
  }
  return out;
}

std::string lex_string(const std::string& text, TokenReader reader = TokenReader::basic) {
  Messages messages;
  Lexer lexer(text.c_str(), Messages::handler, &messages);
  return lex(lexer, messages, reader);
}

// A stream holding `bytes` (NUL bytes included), read from the start.
std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream_of(const std::string& bytes) {
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::tmpfile(), &std::fclose);
  if (!file) throw std::runtime_error("tmpfile");
  std::fwrite(bytes.data(), 1, bytes.size(), file.get());
  std::rewind(file.get());
  return file;
}

std::string lex_stream(const std::string& bytes, TokenReader reader = TokenReader::basic) {
  auto file = stream_of(bytes);
  Messages messages;
  Lexer lexer(file.get(), Messages::handler, &messages);
  return lex(lexer, messages, reader);
}

struct ReaderCase {
  const char* input;
  const char* basic;
  const char* full;
  const char* word;
};

TEST(Lexer, CharacterTablesOfTheThreeReaders) {
  const ReaderCase cases[] = {
      {"", "eof", "eof", "eof"},
      {"(", "( eof", "( eof", "( eof"},
      {")", ") eof", ") eof", ") eof"},
      {"#", "# eof", "# eof", "error[1:unexpected character: `#'] eof"},
      {"*,", "* , eof", "* , eof",
       "error[1:unexpected character: `*'] error[2:unexpected character: `,']"},
      {":;", ": ; eof", ": ; eof",
       "error[1:unexpected character: `:'] error[2:unexpected character: `;']"},
      {"{|}", "{ | } eof", "{ | } eof",
       "error[1:unexpected character: `{'] error[2:unexpected character: `|']"},
      {"=", "= eof", "== eof", "error[1:unexpected character: `='] eof"},
      {"?", "? eof", "error[1:unexpected character: `?'] eof",
       "error[1:unexpected character: `?'] eof"},
      {"+2", "num:2 eof", "+ num:2 eof", "num:2 eof"},
      {"-2", "num:-2 eof", "- num:2 eof", "num:-2 eof"},
      {".5", "num:0.5 eof", "num:0.5 eof", "num:0.5 eof"},
      {"/", "error[1:unexpected character: `/'] eof", "/ eof", "name:/ eof"},
      {"^", "error[1:unexpected character: `^'] eof", "^ eof",
       "error[1:unexpected character: `^'] eof"},
      {"!=", "error[1:unexpected character: `!'] = eof", "!= eof",
       "error[1:unexpected character: `!'] error[2:unexpected character: `=']"},
      {"<", "error[1:unexpected character: `<'] eof", "< eof",
       "error[1:unexpected character: `<'] eof"},
      {">", "error[1:unexpected character: `>'] eof", "> eof",
       "error[1:unexpected character: `>'] eof"},
      {"7", "num:7 eof", "num:7 eof", "num:7 eof"},
      {"x_1", "name:x_1 eof", "name:x_1 eof", "name:x_1 eof"},
      {"_", "name:_ eof", "name:_ eof", "name:_ eof"},
      {"\"s\"", "str:s eof", "str:s eof", "str:s eof"},
  };
  for (const ReaderCase& c : cases) {
    EXPECT_EQ(lex_string(c.input, TokenReader::basic), c.basic) << c.input;
    EXPECT_EQ(lex_string(c.input, TokenReader::full), c.full) << c.input;
    EXPECT_EQ(lex_string(c.input, TokenReader::word), c.word) << c.input;
  }
  // Every other byte is an error for every reader, the high half included.
  const std::string known = "\"#()*,:;{|}=?+-./^!<>_%";
  for (int c = 1; c < 256; ++c) {
    const bool space = c == ' ' || (c >= '\t' && c <= '\r');
    const bool alnum = (c >= '0' && c <= '9') || ((c | 0x20) >= 'a' && (c | 0x20) <= 'z');
    if (space || alnum || known.find(static_cast<char>(c)) != std::string::npos) continue;
    const std::string input(1, static_cast<char>(c));
    const std::string expected = "error[1:unexpected character: `" + input + "'] eof";
    for (TokenReader reader : {TokenReader::basic, TokenReader::full, TokenReader::word})
      EXPECT_EQ(lex_string(input, reader), expected) << c;
  }
}

TEST(Lexer, NamesDottedNamesAndWords) {
  const std::pair<const char*, const char*> basic[] = {
      {"a.b", "dotted:a.b eof"},
      {"_a.B_c.d9 x", "dotted:_a.B_c.d9 name:x eof"},
      {"Abc9_(", "name:Abc9_ ( eof"},
      {"a.", "error[2:`.' must be followed by a letter or an `_'] eof"},
      {"a..b", "error[4:`.' must be followed by a letter or an `_'] eof"},
      {"a.1 x", "error[3:`.' must be followed by a letter or an `_'] name:x eof"},
      {"a._", "dotted:a._ eof"},
  };
  for (const auto& [input, expected] : basic) {
    EXPECT_EQ(lex_string(input), expected) << input;
    EXPECT_EQ(lex_string(input, TokenReader::full), expected) << input;
  }
  const std::pair<const char*, const char*> word[] = {
      {"a.b", "name:a.b eof"},       {"a..1/x+y-z", "name:a..1/x+y-z eof"},
      {"-x", "name:-x eof"},         {"-", "name:- eof"},
      {"+1e3)", "num:1000 ) eof"},   {"-1/2", "name:-1/2 eof"},
      {".5.", "name:.5. eof"},       {"-.5e-1", "num:-0.05 eof"},
      {"/usr/x", "name:/usr/x eof"}, {"3abc", "num:3 name:abc eof"},
  };
  for (const auto& [input, expected] : word) {
    EXPECT_EQ(lex_string(input, TokenReader::word), expected) << input;
    EXPECT_EQ(lex_stream(input, TokenReader::word), expected) << input;
  }
}

TEST(Lexer, BlanksCommentsAndLines) {
  for (const char* input : {"a % comment (\"\n b", "% one\n%two\r\n\ta\v\fb"}) {
    Messages messages;
    Lexer lexer(input, Messages::handler, &messages);
    EXPECT_EQ(lexer.next_token(), TOKEN_NAME);
    EXPECT_EQ(lexer.next_token(), TOKEN_NAME);
    EXPECT_EQ(lexer.text(), "b");
    EXPECT_EQ(lexer.next_token(), TOKEN_EOF);
    EXPECT_EQ(lexer.next_token(), TOKEN_EOF);
    EXPECT_TRUE(messages.all.empty());
  }
  // A comment on the last line without a newline ends the input cleanly.
  EXPECT_EQ(lex_string("a % the end"), "name:a eof");
  EXPECT_EQ(lex_stream("a % the end"), "name:a eof");
  EXPECT_EQ(lex_string("%"), "eof");

  auto file = stream_of("a\n% c\n\n  b\r\n\"x\\\ny\" c");
  Lexer lexer(file.get(), nullptr, nullptr);
  const std::pair<int, std::uint64_t> expected[] = {
      {TOKEN_NAME, 1}, {TOKEN_NAME, 4}, {TOKEN_STRING, 6}, {TOKEN_NAME, 6}, {TOKEN_EOF, 6}};
  for (const auto& [token, line] : expected) {
    EXPECT_EQ(lexer.next_token(), token);
    EXPECT_EQ(lexer.line(), line);
    EXPECT_EQ(lexer.position(), line);
  }
}

TEST(Lexer, NumbersFromStringsAndStreams) {
  struct Case {
    const char* input;
    const char* string;
    const char* stream;
  };
  const Case cases[] = {
      {"-3 +.5", "num:-3 num:0.5 eof", "num:-3 num:0.5 eof"},
      {"1-2", "num:1 num:-2 eof", "num:1 num:-2 eof"},
      {"12abc", "num:12 name:abc eof", "num:12 name:abc eof"},
      {"2.5e3)", "num:2500 ) eof", "num:2500 ) eof"},
      {"1E-2;", "num:0.01 ; eof", "num:0.01 ; eof"},
      // `L` belongs to the run but not to the number.
      {"1.5L", "num:1.5 name:L eof", "num:1.5 name:L eof"},
      // Only the stream form knows infinities and hexadecimal numbers.
      {"-inf", "error error", "num:-inf eof"},
      {"0x10", "num:0 name:x10 eof", "num:16 eof"},
      // Silent failures.
      {"..", "error error", "error error"},
      {"+ 1", "error error", "error num:1 eof"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(lex_string(c.input), c.string) << c.input;
    EXPECT_EQ(lex_stream(c.input), c.stream) << c.input;
  }
  // A number that does not convert leaves a string source where it was and
  // reports nothing.
  Messages messages;
  Lexer lexer(".x", Messages::handler, &messages);
  EXPECT_EQ(lexer.next_token(), TOKEN_ERROR);
  EXPECT_EQ(lexer.position(), 0u);
  EXPECT_EQ(lexer.error_count(), 0);
  EXPECT_TRUE(messages.all.empty());
}

TEST(Lexer, OperatorsOfTheFullReader) {
  EXPECT_EQ(lex_string("= == != <> < <= > >= <>= =>", TokenReader::full),
            "== == != != < <= > >= != == == > eof");
  EXPECT_EQ(lex_string("a!b", TokenReader::full),
            "name:a error[2:`!' must be followed by `='] name:b eof");
  EXPECT_EQ(lex_stream("!\n!", TokenReader::full),
            "error[1:`!' must be followed by `='] error[2:`!' must be followed by `=']");
  EXPECT_EQ(lex_string("x<", TokenReader::full), "name:x < eof");
}

TEST(Lexer, StringsAndEscapes) {
  const std::pair<const char*, std::string> cases[] = {
      {R"("")", "str: eof"},
      {R"("a b%c" x)", "str:a b%c name:x eof"},
      {R"("a\"b\'c\?d\\")", "str:a\"b'c?d\\ eof"},
      {R"("\a\b\f\n\r\t\v")", "str:\a\b\f\n\r\t\v eof"},
      {R"("\101\7\777\1234")", "str:A\x07\xffS4 eof"},
      {R"("\x41\x4a\x4B\x41424344g")", "str:AJKDg eof"},
      {"\"a\\\nb\\\n\"", "str:ab eof"},
      // `\x` without a digit fails silently and gives back what follows.
      {R"("\xg")", "error name:g error[5:string did not end]"},
      {R"("ab\qc")", "error[5:illegal escape sequence: `\\q'] name:c error[7:string did not end]"},
      {"\"a\\", "error[3:illegal escape sequence: `\\'] eof"},
      {R"("abc)", "error[4:string did not end] eof"},
      {"\"ab\ncd\"", "error[4:string did not end] name:cd error[7:string did not end]"},
      // A NUL escape warns without counting as an error; the text ends there.
      {R"("\0" "a\x00g" "c\000d")",
       "str:[3:warning: null character in string] str:a[11:warning: null character in string] "
       "str:c[20:warning: null character in string] eof"},
  };
  for (const auto& [input, expected] : cases) {
    EXPECT_EQ(lex_string(input), expected) << input;
    EXPECT_EQ(lex_string(input, TokenReader::word), expected) << input;
  }

  // A raw NUL byte from a stream is stored and warned about the same way.
  EXPECT_EQ(lex_stream(std::string("\"a\0b\" \0", 7)),
            "str:a[1:warning: null character in string] "
            "error[1:unexpected character: `] eof");

  // Warnings are not counted; errors are, with the "parse" code.
  Messages messages;
  Lexer lexer(R"("\0" "\z")", Messages::handler, &messages);
  EXPECT_EQ(lexer.next_token(), TOKEN_STRING);
  EXPECT_EQ(lexer.error_count(), 0);
  EXPECT_EQ(lexer.failure(), K_ERROR_NONE);
  EXPECT_EQ(lexer.next_token(), TOKEN_ERROR);
  EXPECT_EQ(lexer.error_count(), 1);
  EXPECT_EQ(lexer.failure(), K_ERROR_PARSE);
}

TEST(Lexer, PositionsErrorCodesAndTheUnexpected) {
  // A string source reports characters consumed, a stream the line.
  EXPECT_EQ(lex_string("a\n\n  @", TokenReader::full),
            "name:a error[6:unexpected character: `@'] eof");
  EXPECT_EQ(lex_stream("a\n\n  @", TokenReader::full),
            "name:a error[3:unexpected character: `@'] eof");
  // The newline that ends an unfinished string still counts.
  EXPECT_EQ(lex_stream("\"ab\n@"),
            "error[1:string did not end] error[2:unexpected character: `@']");

  for (bool stream : {false, true}) {
    auto file = stream_of("x\ny");
    Messages messages;
    Lexer lexer = stream ? Lexer(file.get(), Messages::handler, &messages)
                         : Lexer("x\ny", Messages::handler, &messages);
    EXPECT_EQ(lexer.next_token(), TOKEN_NAME);
    EXPECT_EQ(lexer.next_token(), TOKEN_NAME);
    EXPECT_EQ(lexer.report_unexpected(EOF), TOKEN_ERROR);
    EXPECT_EQ(lexer.failure(), K_ERROR_PARSE);
    EXPECT_EQ(lexer.report_unexpected('\n'), TOKEN_ERROR);
    EXPECT_EQ(lexer.report_unexpected('$'), TOKEN_ERROR);
    lexer.report_warning("warning: w");
    lexer.report_error("e");
    EXPECT_EQ(lexer.error_count(), 4);
    const std::string at = stream ? "2:" : "3:";
    EXPECT_EQ(messages.all, (std::vector<std::string>{
                                at + "unexpected end-of-file", at + "unexpected end-of-line",
                                at + "unexpected character: `$'", at + "warning: w", at + "e"}));
  }

  // Without a handler errors are still counted and coded.
  Lexer silent("$", nullptr, nullptr);
  EXPECT_EQ(silent.next_token(), TOKEN_ERROR);
  EXPECT_EQ(silent.error_count(), 1);
  EXPECT_EQ(silent.failure(), K_ERROR_PARSE);
}

TEST(Lexer, TokenTextOutOfMemory) {
  // The buffer starts with room for 64 bytes: the 65th byte of a token grows it.
  const std::string text = "a " + std::string(100, 'n') + " \"" + std::string(100, 's') + "\"";
  Messages messages;
  Lexer lexer(text.c_str(), Messages::handler, &messages);
  EXPECT_EQ(lexer.next_token(), TOKEN_NAME);
  for (int i = 0; i < 2; ++i) {
    test::fail_allocation_after(0);
    const int token = lexer.next_token();
    test::fail_allocation_after(-1);
    EXPECT_EQ(token, TOKEN_ERROR);
    EXPECT_EQ(lexer.failure(), K_ERROR_NO_MEMORY);
    EXPECT_EQ(lexer.next_token(), TOKEN_NAME);  // the rest of the token
  }
  EXPECT_EQ(lexer.next_token(), TOKEN_ERROR);  // the closing quote opens a string
  EXPECT_EQ(messages.all, (std::vector<std::string>{"67:out-of-memory", "169:out-of-memory",
                                                    "205:string did not end"}));
  EXPECT_EQ(lexer.error_count(), 3);
}

TEST(Lexer, PushbackHoldsTwoTokens) {
  for (bool stream : {false, true}) {
    auto file = stream_of("a 1 b");
    Lexer lexer = stream ? Lexer(file.get(), nullptr, nullptr) : Lexer("a 1 b", nullptr, nullptr);
    const int first = lexer.next_token();
    const int second = lexer.next_token();
    ASSERT_EQ(first, TOKEN_NAME);
    ASSERT_EQ(second, TOKEN_NUMBER);
    lexer.push_back(second);
    lexer.push_back(first);
    EXPECT_EQ(lexer.next_token(), TOKEN_NAME);
    lexer.push_back(TOKEN_NAME);
    EXPECT_EQ(lexer.next_token(), TOKEN_NAME);
    EXPECT_EQ(lexer.next_token(), TOKEN_NUMBER);
    EXPECT_EQ(lexer.number(), 1.0);  // pushback leaves the values alone
    EXPECT_EQ(lexer.next_token(), TOKEN_NAME);
    EXPECT_EQ(lexer.text(), "b");
    EXPECT_EQ(lexer.next_token(), TOKEN_EOF);
  }
}

TEST(Lexer, LineTextsRotateThroughEightBuffers) {
  LineTexts texts;
  const char* first[8];
  for (int i = 0; i < 8; ++i) first[i] = texts(static_cast<std::uint64_t>(i) * 1000);
  for (int i = 0; i < 8; ++i) EXPECT_EQ(std::string(first[i]), std::to_string(i * 1000));
  EXPECT_EQ(texts(UINT64_MAX), first[0]);  // the ninth reuses the first buffer
  EXPECT_STREQ(first[0], "HUGE");
  EXPECT_STREQ(first[1], "1000");
  EXPECT_STREQ(texts(UINT64_MAX - 1), "18446744073709551614");
}

TEST(Lexer, ParseFrameFailsWhenErrorsWereCounted) {
  Lexer lexer("x", nullptr, nullptr);
  EXPECT_EQ(run_parse(lexer, [](Lexer& l) { return l.next_token(); }), TOKEN_NAME);
  run_parse(lexer, [](Lexer&) {});
  try {
    run_parse(lexer, [](Lexer& l) {
      l.report_error("bad");
      return std::make_unique<int>(1);
    });
    ADD_FAILURE() << "no error";
  } catch (const Error& e) {
    EXPECT_EQ(e.code(), K_ERROR_PARSE);
  }
  // A parser's own failure passes through unchanged.
  try {
    run_parse(lexer, [](Lexer&) -> int { throw Error(K_ERROR_SYNTAX); });
    ADD_FAILURE() << "no error";
  } catch (const Error& e) {
    EXPECT_EQ(e.code(), K_ERROR_SYNTAX);
  }
}

// Numbers of a stream against fscanf("%lg") on each number alone: random
// decimal texts (long, short, huge and tiny exponents, hexadecimal and
// infinities), about 300 KB in all, so that numbers straddle the chunks in
// which the stream is read; each must come out with the same bits.
TEST(Lexer, StreamNumbersAsFscanfReadsThem) {
  std::mt19937_64 random(11);
  const char* const words[] = {"0x1.8p3", "+inf", "-infinity", "+0", "-0", "1e-400", "1e400"};
  std::string text;
  std::vector<double> expected;
  while (text.size() < 300000) {
    std::string w;
    if (random() % 20 == 0) {
      w = words[random() % 7];
    } else {
      if (random() % 3 == 0) w += "-+"[random() % 2];
      for (auto n = random() % 25; n-- > 0;) w += static_cast<char>('0' + random() % 10);
      if (random() % 2 == 0) w += '.';
      for (auto n = random() % 6; n-- > 0;) w += static_cast<char>('0' + random() % 10);
      if (random() % 3 == 0) w += "e" + std::to_string(static_cast<int>(random() % 700) - 350);
    }
    // Only texts that fscanf reads as a whole number are kept.
    const std::string scanned = w + " ";
    std::FILE* f = fmemopen(const_cast<char*>(scanned.data()), scanned.size(), "r");
    double value = 0;
    const bool whole = std::fscanf(f, "%lg", &value) == 1 && std::ftell(f) == long(w.size());
    std::fclose(f);
    if (!whole) continue;
    text += w + " ;\n)"[random() % 4];
    expected.push_back(value);
  }
  auto file = stream_of(text);
  Lexer lexer(file.get(), nullptr, nullptr);
  for (std::size_t i = 0; i < expected.size(); ++i) {
    // Every other number through the table readers' fast path, which must
    // take a number as the token would be, or leave it to the token.
    double read = 0;
    if (i % 2 == 1) lexer.take_parenthesis(')');
    if (i % 2 == 0 || !lexer.take_plain_number(read)) {
      int token = lexer.next_token();
      if (token == ';' || token == ')') token = lexer.next_token();
      ASSERT_EQ(token, TOKEN_NUMBER) << i;
    }
    read = lexer.number();
    ASSERT_EQ(std::memcmp(&expected[i], &read, sizeof read), 0)
        << i << ": " << expected[i] << " read as " << read;
  }
  int last = lexer.next_token();
  if (last == ';' || last == ')') last = lexer.next_token();
  EXPECT_EQ(last, TOKEN_EOF);
  EXPECT_EQ(lexer.line(),
            1 + static_cast<std::uint64_t>(std::count(text.begin(), text.end(), '\n')));
}

}  // namespace
}  // namespace kelva
