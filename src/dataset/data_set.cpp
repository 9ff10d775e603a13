#include "dataset/data_set.h"

#include <locale.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <unordered_set>
#include <utility>

#include "network/error.h"

namespace kelva {

namespace {

bool is_space(char c) noexcept {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

bool is_digit(char c) noexcept { return c >= '0' && c <= '9'; }

// The length of the decimal number at the start of `s`, or 0 when there is
// none: [+-] (digits [. digits] | . digits) [(e|E) [+-] digits].
std::size_t decimal_length(std::string_view s) noexcept {
  std::size_t i = 0;
  if (i < s.size() && (s[i] == '+' || s[i] == '-')) ++i;
  std::size_t digits = 0;
  while (i < s.size() && is_digit(s[i])) ++i, ++digits;
  if (i < s.size() && s[i] == '.') {
    ++i;
    while (i < s.size() && is_digit(s[i])) ++i, ++digits;
  }
  if (digits == 0) return 0;
  if (i < s.size() && (s[i] == 'e' || s[i] == 'E')) {
    std::size_t j = i + 1;
    if (j < s.size() && (s[j] == '+' || s[j] == '-')) ++j;
    if (j >= s.size() || !is_digit(s[j])) return 0;
    while (j < s.size() && is_digit(s[j])) ++j;
    i = j;
  }
  return i;
}

// Moves the element at `from` to `to` in `v`; those between shift by one.
template <class T>
void move_element(std::vector<T>& v, std::size_t from, std::size_t to) noexcept {
  auto first = v.begin();
  if (from < to)
    std::rotate(first + static_cast<std::ptrdiff_t>(from),
                first + static_cast<std::ptrdiff_t>(from) + 1,
                first + static_cast<std::ptrdiff_t>(to) + 1);
  else if (to < from)
    std::rotate(first + static_cast<std::ptrdiff_t>(to), first + static_cast<std::ptrdiff_t>(from),
                first + static_cast<std::ptrdiff_t>(from) + 1);
}

}  // namespace

bool cell_number(const char* text, double& value) noexcept {
  std::size_t begin = 0;
  std::size_t end = std::strlen(text);
  while (begin < end && is_space(text[begin])) ++begin;
  while (end > begin && is_space(text[end - 1])) --end;
  const std::string_view s(text + begin, end - begin);
  if (s.empty() || decimal_length(s) != s.size()) return false;
  // The syntax is checked; strtod_l in the "C" locale does the rounding.
  static const locale_t c_locale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
  if (c_locale == static_cast<locale_t>(nullptr)) return false;
  const double v = strtod_l(text + begin, nullptr, c_locale);
  if (!std::isfinite(v)) return false;  // overflow
  value = v;
  return true;
}

namespace {

// Every present row rebuilt aside by `make(row, builder)`, absent rows left
// absent; the data set's rows are replaced only once all are built, so that
// running out of memory changes nothing.
template <class Make>
void rebuild_rows(std::vector<DataRow>& rows, Make&& make) {
  std::vector<DataRow> built(rows.size());
  RowBuilder builder;
  for (std::size_t r = 0; r < rows.size(); ++r) {
    if (!rows[r]) continue;
    builder.clear();
    make(rows[r], builder);
    built[r] = builder.build();
  }
  rows.swap(built);
}

}  // namespace

std::size_t DataSet::add_column(std::string name) {
  columns.reserve(columns.size() + 1);
  rebuild_rows(rows, [&](const DataRow& row, RowBuilder& b) {
    for (std::size_t c = 0; c < row.size(); ++c) b.add(row.cell(c));
    b.add_missing();
  });
  columns.push_back(std::move(name));
  distinct_.clear();
  return columns.size() - 1;
}

std::size_t DataSet::add_row() {
  rows.emplace_back();
  return rows.size() - 1;
}

void DataSet::erase_column(std::size_t column) noexcept {
  columns.erase(columns.begin() + static_cast<std::ptrdiff_t>(column));
  for (Row& row : rows)
    if (row) row.erase(column);
  distinct_.clear();
}

void DataSet::erase_row(std::size_t row) noexcept {
  rows.erase(rows.begin() + static_cast<std::ptrdiff_t>(row));
  distinct_.clear();
}

void DataSet::set_cell(std::size_t row, std::size_t column, const char* text) {
  set_cells(column, {row}, {text});
}

void DataSet::set_cells(std::size_t column, const std::vector<std::size_t>& which,
                        const std::vector<const char*>& texts) {
  std::vector<DataRow> built(which.size());
  RowBuilder builder;
  for (std::size_t k = 0; k < which.size(); ++k) {
    const DataRow& old = rows[which[k]];
    if (!old && texts[k] == nullptr) continue;  // missing already
    builder.clear();
    for (std::size_t c = 0; c < columns.size(); ++c)
      builder.add(c == column ? texts[k] : c < old.size() ? old.cell(c) : nullptr);
    built[k] = builder.build();
  }
  for (std::size_t k = 0; k < which.size(); ++k)
    if (built[k]) rows[which[k]] = std::move(built[k]);
  distinct_.clear();
}

void DataSet::move_column(std::size_t from, std::size_t to) noexcept {
  move_element(columns, from, to);
  for (Row& row : rows)
    if (row) row.move(from, to);
  distinct_.clear();
}

void DataSet::move_row(std::size_t from, std::size_t to) noexcept {
  move_element(rows, from, to);
  distinct_.clear();
}

std::size_t DataSet::copy_column(std::size_t column) {
  std::string name = columns[column];
  columns.reserve(columns.size() + 1);
  rebuild_rows(rows, [&](const DataRow& row, RowBuilder& b) {
    for (std::size_t c = 0; c < row.size(); ++c) b.add(row.cell(c));
    b.add(row.cell(column));
  });
  columns.push_back(std::move(name));
  distinct_.clear();
  return columns.size() - 1;
}

std::size_t DataSet::replace_values(std::size_t column, const char* from, const char* to) {
  std::vector<std::size_t> hits;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const char* text = cell(i, column);
    if (from == nullptr ? text == nullptr : text != nullptr && std::strcmp(text, from) == 0)
      hits.push_back(i);
  }
  if (from == nullptr && to == nullptr) return hits.size();
  if (!hits.empty()) set_cells(column, hits, std::vector<const char*>(hits.size(), to));
  return hits.size();
}

void DataSet::sort_rows(std::size_t column, bool numerically, bool descending) {
  std::vector<std::size_t> present;
  std::vector<std::size_t> missing;
  std::vector<double> numbers;
  if (numerically) numbers.resize(rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const char* text = cell(i, column);
    if (text == nullptr) {
      missing.push_back(i);
      continue;
    }
    if (numerically) require(cell_number(text, numbers[i]), K_ERROR_INVALID_EXPRESSION);
    present.push_back(i);
  }
  // Equal keys keep their row order: the row index breaks ties, so a plain
  // sort is stable without a temporary buffer.  Texts hold no NUL, so
  // strcmp orders them bytewise.
  auto before = [&](std::size_t a, std::size_t b) {
    int order = 0;
    if (numerically) {
      order = numbers[a] < numbers[b] ? -1 : numbers[b] < numbers[a] ? 1 : 0;
    } else {
      order = std::strcmp(cell(a, column), cell(b, column));
    }
    if (order == 0) return a < b;
    return descending ? order > 0 : order < 0;
  };
  std::sort(present.begin(), present.end(), before);
  std::vector<Row> sorted;
  sorted.reserve(rows.size());
  for (std::size_t i : present) sorted.push_back(std::move(rows[i]));
  for (std::size_t i : missing) sorted.push_back(std::move(rows[i]));
  rows.swap(sorted);
  distinct_.clear();
}

const char* const* DataSet::distinct_values(std::size_t column) {
  std::vector<const char*> list;
  std::unordered_set<std::string_view> seen;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const char* text = cell(i, column);
    if (text != nullptr && seen.insert(text).second) list.push_back(text);
  }
  list.push_back(nullptr);
  distinct_.swap(list);
  return distinct_.data();
}

}  // namespace kelva
