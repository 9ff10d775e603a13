// Reads the input as a data set, the first byte being the separator.  A
// data set that reads is written with the same separator and read again:
// the cells must come back, present, empty and missing alike.  The one
// loss the format allows: with a single column, a row whose cell is
// missing is written as an empty line, which reads as blank.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "dataset/data_set.h"
#include "fuzz_check.h"
#include "network/error.h"
#include "text/data_set_file.h"
#include "text/net_writer.h"

namespace {

std::unique_ptr<kelva::DataSet> read(const std::string& text, int separator) {
  try {
    return kelva::read_data_set(text.c_str(), separator, ignore, nullptr);
  } catch (const kelva::Error& e) {
    CHECK(e.code() == K_ERROR_PARSE || e.code() == K_ERROR_USAGE);
    return nullptr;
  }
}

bool has_newline(const kelva::DataSet& ds) {
  for (const auto& name : ds.columns)
    if (name.find('\n') != std::string::npos) return true;
  for (const auto& row : ds.rows)
    for (std::size_t c = 0; c < row.size(); ++c)
      if (row.cell(c) != nullptr && std::strchr(row.cell(c), '\n') != nullptr) return true;
  return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const int separator = data[0];
  const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  auto first = read(text, separator);
  if (first == nullptr) return 0;
  CHECK(kelva::is_data_set_separator(separator));
  CHECK(first->column_count() > 0);
  for (const auto& row : first->rows) CHECK(row && row.size() == first->column_count());
  if (has_newline(*first)) return 0;

  kelva::TextSink sink;
  kelva::write_data_set(*first, separator, sink);
  auto again = read(sink.text(), separator);
  if (again == nullptr)
    std::fprintf(stderr, "written text does not read:\n%s\n", sink.text().c_str());
  CHECK(again != nullptr);
  CHECK(again->columns == first->columns);
  // Rows of one missing cell are written as empty lines, which read as nothing.
  std::size_t r = 0;
  for (const auto& row : first->rows) {
    if (first->column_count() == 1 && row.cell(0) == nullptr) continue;
    CHECK(r < again->row_count());
    for (std::size_t c = 0; c < row.size(); ++c) {
      const char* a = row.cell(c);
      const char* b = again->cell(r, c);
      CHECK(a == nullptr ? b == nullptr : b != nullptr && std::strcmp(a, b) == 0);
    }
    ++r;
  }
  CHECK(r == again->row_count());
  return 0;
}
