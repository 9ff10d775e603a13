// Data sets as delimited text: what the writer writes, that the reader gives
// the cells back (present, empty and missing kept apart), every message of
// the reader with its position for a file and for a string, and the C API's
// refusals.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "common/expect_code.h"
#include "common/fail_new.h"
#include "dataset/data_set.h"
#include "kelva/kelva.h"
#include "text/text_files.h"

namespace kelva {
namespace {

using test::TempFile;

using Cells = std::vector<std::vector<std::optional<std::string>>>;

std::unique_ptr<DataSet> owned(k_data_set_t h) {
  return std::unique_ptr<DataSet>(reinterpret_cast<DataSet*>(h));
}
k_data_set_t handle(DataSet& ds) { return reinterpret_cast<k_data_set_t>(&ds); }

// One parse: the data set, the error code and the messages as
// "position:message" joined by "|".
struct Parsed {
  std::unique_ptr<DataSet> ds;
  k_error_t code = K_ERROR_NONE;
  std::string messages;

  // From a file (positions are lines) or, with `string`, from memory.
  Parsed(const std::string& text, char separator, bool string) {
    if (string) {
      ds = owned(k_parse_data_set_string(text.c_str(), separator, &test::collect, &messages));
    } else {
      TempFile file(text);
      ds = owned(k_parse_data_set(file.path.c_str(), separator, &test::collect, &messages));
    }
    code = k_error_code();
    EXPECT_EQ(ds == nullptr, code != K_ERROR_NONE);
  }
};

// The cells with the column names as row 0; an absent row reads as a row of
// missing cells.
Cells cells_of(const DataSet& ds) {
  Cells out;
  out.emplace_back(ds.columns.begin(), ds.columns.end());
  for (std::size_t r = 0; r < ds.row_count(); ++r) {
    auto& row = out.emplace_back();
    for (std::size_t c = 0; c < ds.column_count(); ++c) {
      const char* cell = ds.cell(r, c);
      row.push_back(cell ? std::optional<std::string>(cell) : std::nullopt);
    }
  }
  return out;
}

std::unique_ptr<DataSet> make(const Cells& cells) {
  auto ds = std::make_unique<DataSet>();
  for (const auto& name : cells.at(0)) ds->columns.push_back(name.value());
  for (std::size_t r = 1; r < cells.size(); ++r) {
    RowBuilder row;
    for (const auto& cell : cells[r]) row.add(cell ? cell->c_str() : nullptr);
    ds->rows.push_back(row.build());
  }
  return ds;
}

std::string csv(const DataSet& ds, char separator) {
  char* text = k_ds_to_csv_string(handle(const_cast<DataSet&>(ds)), separator);
  EXPECT_NE(text, nullptr) << k_error_code();
  std::string out = text != nullptr ? text : "";
  std::free(text);
  return out;
}

const std::nullopt_t kMissing = std::nullopt;

TEST(DataSetFile, WritesQuotingOnlyWhatNeedsIt) {
  auto ds = make({{"name", "a,b", ""},
                  {"plain", kMissing, ""},
                  {" lead", "trail\t", "say \"hi\""},
                  {"in side", "x;y", "\xE9t\xE9"}});
  ds->rows.emplace_back();  // absent
  EXPECT_EQ(csv(*ds, ','),
            "name,\"a,b\",\"\"\n"
            "plain,,\"\"\n"
            "\" lead\",\"trail\t\",\"say \"\"hi\"\"\"\n"
            "in side,x;y,\xE9t\xE9\n"
            ",,\n");
  EXPECT_EQ(csv(*ds, ';'),
            "name;a,b;\"\"\n"
            "plain;;\"\"\n"
            "\" lead\";\"trail\t\";\"say \"\"hi\"\"\"\n"
            "in side;\"x;y\";\xE9t\xE9\n"
            ";;\n");
  // A space separator quotes every cell with a space in it.
  EXPECT_EQ(csv(*ds, ' ').substr(0, 16), "name a,b \"\"\nplai");
  EXPECT_NE(csv(*ds, ' ').find("\"in side\" x;y"), std::string::npos);

  // No columns: one empty line for the header and for each row.
  DataSet bare;
  bare.rows.resize(2);
  EXPECT_EQ(csv(bare, ','), "\n\n\n");
}

// Random cells over characters that the writer must take care of: the
// separators, quotes, white space at the ends, empty and missing cells.
TEST(DataSetFile, WriteThenReadGivesTheSameCells) {
  std::mt19937 random(7);
  const std::string alphabet = "ab ,;\t|\"\r\v\f\xA7x";
  auto text = [&](std::size_t max) {
    std::string s;
    for (std::size_t n = random() % (max + 1); n > 0; --n)
      s += alphabet[random() % alphabet.size()];
    return s;
  };
  for (char separator : {',', ';', '\t', ' ', '|', '\xA7'}) {
    for (int round = 0; round < 20; ++round) {
      const std::size_t columns = 2 + random() % 5;
      Cells cells(1);
      for (std::size_t c = 0; c < columns; ++c) cells[0].push_back(text(6));
      // Up to 40 rows, so that most rows are read by the fast path, which
      // needs 80 bytes ahead.
      for (std::size_t r = random() % 40; r > 0; --r) {
        auto& row = cells.emplace_back();
        for (std::size_t c = 0; c < columns; ++c) {
          if (random() % 4 == 0) {
            row.push_back(kMissing);
          } else {
            row.push_back(text(8));
          }
        }
      }
      auto ds = make(cells);
      if (random() % 3 == 0) ds->rows.emplace_back();  // absent: read back as missing cells
      const std::string written = csv(*ds, separator);
      for (bool string : {true, false}) {
        Parsed back(written, separator, string);
        ASSERT_NE(back.ds, nullptr) << back.messages << "\n" << written;
        EXPECT_EQ(cells_of(*back.ds), cells_of(*ds)) << written;
        EXPECT_EQ(back.messages, "");
      }
    }
  }
}

// The edge cases of the format, one by one.
TEST(DataSetFile, EdgeCases) {
  // A cell `a,b` is quoted and comes back as one cell; "" is a present
  // empty cell, an empty field a missing one.
  Parsed one("x,y,z\n\"a,b\",\"\",\n", ',', true);
  ASSERT_NE(one.ds, nullptr);
  EXPECT_EQ(cells_of(*one.ds), (Cells{{"x", "y", "z"}, {"a,b", "", kMissing}}));

  // The last line needs its newline unless it ends in a quoted field.
  for (bool string : {true, false}) {
    EXPECT_EQ(Parsed("x,y\n1,2", ',', string).code, K_ERROR_PARSE);
    EXPECT_EQ(Parsed("x,y\n1,", ',', string).code, K_ERROR_PARSE);
    Parsed quoted("x,y\n1,\"2\"  ", ',', string);
    ASSERT_NE(quoted.ds, nullptr);
    EXPECT_EQ(cells_of(*quoted.ds), (Cells{{"x", "y"}, {"1", "2"}}));
  }

  // A newline inside a cell is written as it stands and does not read back;
  // inside quotes (a cell ending in a newline) it is refused as well.
  auto broken = make({{"x", "y"}, {"a\nb", "c\n"}});
  EXPECT_EQ(csv(*broken, ','), "x,y\na\nb,\"c\n\"\n");
  EXPECT_EQ(Parsed(csv(*broken, ','), ',', true).messages, "11:unexpected end-of-line");

  // White space around fields goes, inside them it stays; blank lines are
  // skipped; CRLF line ends work; short rows are filled with missing cells.
  Parsed spaced("\n  \r\n x , y  y ,z\r\n\n  1 ,\t\"\" ,\r\n a b\n", ',', false);
  ASSERT_NE(spaced.ds, nullptr) << spaced.messages;
  EXPECT_EQ(cells_of(*spaced.ds),
            (Cells{{"x", "y  y", "z"}, {"1", "", kMissing}, {"a b", kMissing, kMissing}}));

  // A space or tab separator is never skipped as white space: two of them
  // in a row make a missing cell between.
  Parsed tabs("x\ty\tz\n1\t\t3\n\t \t\n", '\t', true);
  ASSERT_NE(tabs.ds, nullptr);
  EXPECT_EQ(cells_of(*tabs.ds),
            (Cells{{"x", "y", "z"}, {"1", kMissing, "3"}, {kMissing, kMissing, kMissing}}));
  Parsed spaces("x y\n1  3\n", ' ', true);
  EXPECT_EQ(spaces.messages, "9:too many fields");

  // One column: a missing cell is written as an empty line, which the
  // reader skips as blank.
  auto single = make({{"x"}, {"1"}, {kMissing}, {""}});
  EXPECT_EQ(csv(*single, ','), "x\n1\n\n\"\"\n");
  Parsed single_back(csv(*single, ','), ',', true);
  ASSERT_NE(single_back.ds, nullptr);
  EXPECT_EQ(cells_of(*single_back.ds), (Cells{{"x"}, {"1"}, {""}}));

  // A doubled quote is one quote; quoted names are allowed in the header.
  Parsed quotes("\"a \"\"b\"\"\",\"\"\n\"\"\"\",x\n", ',', true);
  ASSERT_NE(quotes.ds, nullptr);
  EXPECT_EQ(cells_of(*quotes.ds), (Cells{{"a \"b\"", ""}, {"\"", "x"}}));
}

// Every message, with its position in a file (the line) and in a string
// (the characters consumed when it was found).
TEST(DataSetFile, MessagesAndPositions) {
  struct Case {
    const char* text;
    int line;
    int consumed;
    const char* message;
  };
  const Case cases[] = {
      {"", 1, 0, "empty file"},
      {"\n \t\n\n", 4, 5, "empty file"},
      {"a,,b\n", 1, 3, "missing field in header"},
      {"\n\na, \n", 3, 6, "missing field in header"},
      {"a,b\n1,2,3\n", 2, 10, "too many fields"},
      {"a,b\n\n\n1,2,\n", 4, 11, "too many fields"},
      {"a,b\n1,\"x\ny\"\n", 2, 9, "unexpected end-of-line"},
      {"a,b\n1,2", 2, 7, "unexpected end-of-file"},
      {"a,b\n1,2\n3, ", 3, 11, "unexpected end-of-file"},
      {"a,b\n1,\"2", 2, 8, "unexpected end-of-file"},
      {"a,b\n1,x\"y\n", 2, 8, "unexpected character: `\"'"},
      {"a,b\n\"1\" x,2\n", 2, 9, "unexpected character: `x'"},
      {"\"a\"\"\"b\n", 1, 6, "unexpected character: `b'"},
  };
  // Each row case again after 20 good rows and, unless it ends the input,
  // before 20 more: found in the middle of a long input rather than near
  // its end.
  const std::string good = "12,\"q,r\"\n";
  std::string filler;
  for (int k = 0; k < 20; ++k) filler += good;
  for (const Case& c : cases) {
    for (bool padded : {false, true}) {
      std::string text = c.text;
      int line = c.line, consumed = c.consumed;
      if (padded) {
        if (text.rfind("a,b\n", 0) != 0) continue;
        text.insert(4, filler);
        line += 20;
        consumed += static_cast<int>(filler.size());
        if (std::string(c.message).find("end-of-file") == std::string::npos) text += filler;
      }
      Parsed file(text, ',', false);
      EXPECT_EQ(file.code, K_ERROR_PARSE) << text;
      EXPECT_EQ(file.messages, std::to_string(line) + ':' + c.message) << text;
      Parsed string(text, ',', true);
      EXPECT_EQ(string.code, K_ERROR_PARSE) << text;
      EXPECT_EQ(string.messages, std::to_string(consumed) + ':' + c.message) << text;
    }
  }

  // Without a handler the failure shows only in the code.
  EXPECT_NULL_WITH(k_parse_data_set_string("a,b\n1,2", ',', nullptr, nullptr), K_ERROR_PARSE);

  // NUL bytes (only a file can hold them) are dropped with a warning that
  // does not fail the read.
  const std::string nul = std::string("a,\"b") + '\0' + "c\"\n" + '\0' + "x,\"y\"" + '\0' + "\n";
  Parsed dropped(nul, ',', false);
  ASSERT_NE(dropped.ds, nullptr) << dropped.messages;
  EXPECT_EQ(cells_of(*dropped.ds), (Cells{{"a", "bc"}, {"x", "y"}}));
  EXPECT_EQ(dropped.messages,
            "1:warning: null character ignored|2:warning: null character ignored|"
            "2:warning: null character ignored");
}

// Fields that cross the reader's 1 MiB buffer: a doubled quote split by the
// boundary, a NUL on it, an unquoted field across it.
TEST(DataSetFile, FieldsAcrossTheBuffer) {
  constexpr std::size_t kBuffer = std::size_t{1} << 20;
  std::string text = "a,b\n\"";
  text.append(kBuffer - 1 - text.size(), 'x');
  text += "\"\"q\",";  // the doubled quote straddles the boundary
  const std::string first = std::string(kBuffer - 6, 'x') + "\"q";
  std::string second(kBuffer - 3, 'y');
  second[kBuffer - 5] = '\0';  // the last byte before the second boundary
  text += second + "\n";
  text += std::string(kBuffer / 2, 'z') + "," + std::string(kBuffer, 'w') + "\n";

  Parsed back(text, ',', false);
  ASSERT_NE(back.ds, nullptr) << back.messages;
  ASSERT_EQ(back.ds->row_count(), 2u);
  EXPECT_EQ(std::string(back.ds->cell(0, 0)), first);
  std::string second_read = second;
  second_read.erase(kBuffer - 5, 1);
  EXPECT_EQ(std::string(back.ds->cell(0, 1)), second_read);
  EXPECT_EQ(std::string(back.ds->cell(1, 0)), std::string(kBuffer / 2, 'z'));
  EXPECT_EQ(std::string(back.ds->cell(1, 1)), std::string(kBuffer, 'w'));
  EXPECT_EQ(back.messages, "2:warning: null character ignored");
}

TEST(DataSetFile, RefusalsOfTheCApi) {
  auto ds = make({{"x"}, {"1"}});
  const std::string kept = "kept\n";
  TempFile file(kept);
  // Bad separators: "usage" before anything is read or written (the file
  // is not even truncated).
  for (char separator : {'\0', '\n', '"', '\r', '\v', '\f'}) {
    EXPECT_NULL_WITH(k_parse_data_set_string("x\n1\n", separator, nullptr, nullptr), K_ERROR_USAGE);
    EXPECT_NULL_WITH(k_parse_data_set(file.path.c_str(), separator, nullptr, nullptr),
                     K_ERROR_USAGE);
    EXPECT_FAILS(k_ds_save(handle(*ds), file.path.c_str(), separator), K_ERROR_USAGE);
    EXPECT_NULL_WITH(k_ds_to_csv_string(handle(*ds), separator), K_ERROR_USAGE);
  }
  EXPECT_EQ(file.contents(), kept);

  // Null texts and handles, a handle of another sort.
  EXPECT_NULL_WITH(k_parse_data_set(nullptr, ',', nullptr, nullptr), K_ERROR_USAGE);
  EXPECT_NULL_WITH(k_parse_data_set_string(nullptr, ',', nullptr, nullptr), K_ERROR_USAGE);
  EXPECT_FAILS(k_ds_save(nullptr, file.path.c_str(), ','), K_ERROR_USAGE);
  EXPECT_FAILS(k_ds_save(handle(*ds), nullptr, ','), K_ERROR_USAGE);
  k_domain_t domain = k_new_domain();
  EXPECT_NULL_WITH(k_ds_to_csv_string(reinterpret_cast<k_data_set_t>(domain), ','), K_ERROR_USAGE);
  k_domain_delete(domain);

  // Files that cannot be read or written.
  const std::string missing = ::testing::TempDir() + "no-such-dir/none.csv";
  EXPECT_NULL_WITH(k_parse_data_set(missing.c_str(), ',', nullptr, nullptr), K_ERROR_IO);
  EXPECT_FAILS(k_ds_save(handle(*ds), missing.c_str(), ','), K_ERROR_IO);
  if (std::FILE* full = std::fopen("/dev/full", "w")) {
    std::fclose(full);
    EXPECT_FAILS(k_ds_save(handle(*ds), "/dev/full", ','), K_ERROR_IO);
  }

  // A save that works; a successful call clears the earlier failure.
  EXPECT_EQ(k_ds_save(handle(*ds), file.path.c_str(), ';'), 0);
  EXPECT_EQ(k_error_code(), K_ERROR_NONE);
  EXPECT_EQ(file.contents(), "x\n1\n");
}

// Running out of memory at any point of a read or of writing a string
// gives "no_memory" and leaves nothing behind.
TEST(DataSetFile, OutOfMemory) {
  const std::string text = "x,y\n\"1\",2\n3,4\n";
  auto ds = make({{"x", "y"}, {"1", "2"}});
  bool read_failed = false;
  for (long n = 0; n < 1000; ++n) {
    test::fail_allocation_after(n);
    k_data_set_t h = k_parse_data_set_string(text.c_str(), ',', nullptr, nullptr);
    test::fail_allocation_after(-1);
    if (h != nullptr) {
      EXPECT_EQ(owned(h)->row_count(), 2u);
      break;
    }
    read_failed = true;
    EXPECT_EQ(k_error_code(), K_ERROR_NO_MEMORY);
  }
  EXPECT_TRUE(read_failed);

  test::fail_allocation_after(0);
  char* written = k_ds_to_csv_string(handle(*ds), ',');
  test::fail_allocation_after(-1);
  EXPECT_NULL_WITH(written, K_ERROR_NO_MEMORY);
}

// Rows read from text (in the reader's arena, some large enough for chunks
// of their own, one over 2 MiB) and then edited through every operation
// must hold what a plain table of optional texts holds after the same edits.
TEST(DataSetFile, EditedRowsMatchAPlainTable) {
  std::mt19937 random(5);
  auto text = [&]() -> std::optional<std::string> {
    if (random() % 4 == 0) return std::nullopt;
    const std::size_t n = random() % 97 == 0 ? 20000 : random() % 4;
    std::string s;
    for (std::size_t i = 0; i < n; ++i) s += "ab,\" "[random() % 5];
    return s;
  };
  for (int round = 0; round < 30; ++round) {
    Cells model(1);
    const std::size_t columns = 1 + random() % 5;
    for (std::size_t c = 0; c < columns; ++c) model[0].push_back("c" + std::to_string(c));
    for (std::size_t r = 1 + random() % 30; r > 0; --r) {
      auto& row = model.emplace_back();
      for (std::size_t c = 0; c < columns; ++c) row.push_back(text());
      if (columns == 1 && !row[0]) row[0] = "";  // an empty line would be skipped
    }
    if (round == 0) model[1][0] = std::string(std::size_t{3} << 20, 'h');
    Parsed read(csv(*make(model), ','), ',', round % 2 == 0);
    ASSERT_NE(read.ds, nullptr) << read.messages;
    DataSet& ds = *read.ds;
    ASSERT_EQ(cells_of(ds), model);
    for (int step = 0; step < 40; ++step) {
      const std::size_t rows = model.size() - 1, cols = model[0].size();
      const std::size_t r = random() % (rows + 1), c = cols ? random() % cols : 0;
      const std::size_t r2 = rows ? random() % rows : 0, c2 = cols ? random() % cols : 0;
      auto move = [](auto& v, std::size_t from, std::size_t to) {
        auto x = std::move(v[from]);
        v.erase(v.begin() + static_cast<std::ptrdiff_t>(from));
        v.insert(v.begin() + static_cast<std::ptrdiff_t>(to), std::move(x));
      };
      const auto value = text();
      const auto op = cols == 0 ? 0 : rows == 0 ? 1 : random() % 9;
      switch (op) {
        case 0:
          ds.add_column("n");
          for (auto& row : model) row.push_back(std::nullopt);
          model[0].back() = "n";
          break;
        case 1:
          ds.add_row();
          model.emplace_back(model[0].size(), kMissing);
          break;
        case 2:
          ds.set_cell(r2, c, value ? value->c_str() : nullptr);
          model[r2 + 1][c] = value;
          break;
        case 3:
          ds.erase_column(c);
          for (auto& row : model) row.erase(row.begin() + static_cast<std::ptrdiff_t>(c));
          break;
        case 4:
          ds.move_column(c, c2);
          for (auto& row : model) move(row, c, c2);
          break;
        case 5:
          ds.copy_column(c);
          for (auto& row : model) row.push_back(row[c]);
          break;
        case 6: {
          const auto from = model[r2 + 1][c];
          ds.replace_values(c, from ? from->c_str() : nullptr, value ? value->c_str() : nullptr);
          for (std::size_t i = 1; i < model.size(); ++i)
            if (model[i][c] == from) model[i][c] = value;
          break;
        }
        case 7: {
          const bool down = random() % 2 == 1;
          ds.sort_rows(c, false, down);
          std::stable_sort(model.begin() + 1, model.end(), [&](const auto& a, const auto& b) {
            if (!a[c] || !b[c]) return a[c] && !b[c];
            return down ? *b[c] < *a[c] : *a[c] < *b[c];
          });
          break;
        }
        default:
          if (random() % 2 == 0) {
            ds.erase_row(r2);
            model.erase(model.begin() + static_cast<std::ptrdiff_t>(r2 + 1));
          } else {
            ds.move_row(r2, r % rows);
            move(model, r2 + 1, r % rows + 1);
          }
      }
      ASSERT_EQ(cells_of(ds), model) << "round " << round << " step " << step;
    }
  }
}

}  // namespace
}  // namespace kelva
