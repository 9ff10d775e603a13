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

bool cell_number(const std::string& text, double& value) noexcept {
  std::size_t begin = 0;
  std::size_t end = text.size();
  while (begin < end && is_space(text[begin])) ++begin;
  while (end > begin && is_space(text[end - 1])) --end;
  const std::string_view s(text.data() + begin, end - begin);
  if (s.empty() || decimal_length(s) != s.size()) return false;
  // The syntax is checked; strtod_l in the "C" locale does the rounding.
  static const locale_t c_locale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
  if (c_locale == static_cast<locale_t>(nullptr)) return false;
  const double v = strtod_l(text.c_str() + begin, nullptr, c_locale);
  if (!std::isfinite(v)) return false;  // overflow
  value = v;
  return true;
}

std::size_t DataSet::add_column(std::string name) {
  // Make room everywhere first, so that nothing below can fail.
  columns.reserve(columns.size() + 1);
  for (Row& row : rows)
    if (row) row->reserve(row->size() + 1);
  columns.push_back(std::move(name));
  for (Row& row : rows)
    if (row) row->emplace_back();
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
    if (row) row->erase(row->begin() + static_cast<std::ptrdiff_t>(column));
  distinct_.clear();
}

void DataSet::erase_row(std::size_t row) noexcept {
  rows.erase(rows.begin() + static_cast<std::ptrdiff_t>(row));
  distinct_.clear();
}

void DataSet::set_cell(std::size_t row, std::size_t column, Cell value) {
  Row& r = rows[row];
  if (!r) {
    if (!value) return;  // already missing
    r.emplace(columns.size());
  }
  (*r)[column] = std::move(value);
  distinct_.clear();
}

void DataSet::move_column(std::size_t from, std::size_t to) noexcept {
  move_element(columns, from, to);
  for (Row& row : rows)
    if (row) move_element(*row, from, to);
  distinct_.clear();
}

void DataSet::move_row(std::size_t from, std::size_t to) noexcept {
  move_element(rows, from, to);
  distinct_.clear();
}

std::size_t DataSet::copy_column(std::size_t column) {
  // Copy the cells aside, then make room everywhere: nothing after that
  // can fail.
  std::string name = columns[column];
  std::vector<Cell> copies(rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i)
    if (const std::string* text = cell(i, column)) copies[i] = *text;
  columns.reserve(columns.size() + 1);
  for (Row& row : rows)
    if (row) row->reserve(row->size() + 1);
  columns.push_back(std::move(name));
  for (std::size_t i = 0; i < rows.size(); ++i)
    if (rows[i]) rows[i]->push_back(std::move(copies[i]));
  distinct_.clear();
  return columns.size() - 1;
}

std::size_t DataSet::replace_values(std::size_t column, const char* from, const char* to) {
  std::vector<std::size_t> hits;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const std::string* text = cell(i, column);
    if (from == nullptr ? text == nullptr : text != nullptr && *text == from) hits.push_back(i);
  }
  if (from == nullptr && to == nullptr) return hits.size();
  // Build the new cells (and rows for absent ones) aside; then move them in.
  std::vector<Cell> values(hits.size());
  std::vector<Row> new_rows(hits.size());
  for (std::size_t k = 0; k < hits.size(); ++k) {
    if (to != nullptr) values[k] = std::string(to);
    if (!rows[hits[k]]) new_rows[k].emplace(columns.size());
  }
  for (std::size_t k = 0; k < hits.size(); ++k) {
    Row& r = rows[hits[k]];
    if (!r) r = std::move(new_rows[k]);
    (*r)[column] = std::move(values[k]);
  }
  if (!hits.empty()) distinct_.clear();
  return hits.size();
}

void DataSet::sort_rows(std::size_t column, bool numerically, bool descending) {
  std::vector<std::size_t> present;
  std::vector<std::size_t> missing;
  std::vector<double> numbers;
  if (numerically) numbers.resize(rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const std::string* text = cell(i, column);
    if (text == nullptr) {
      missing.push_back(i);
      continue;
    }
    if (numerically) require(cell_number(*text, numbers[i]), K_ERROR_INVALID_EXPRESSION);
    present.push_back(i);
  }
  // Equal keys keep their row order: the row index breaks ties, so a plain
  // sort is stable without a temporary buffer.
  auto before = [&](std::size_t a, std::size_t b) {
    int order = 0;
    if (numerically) {
      order = numbers[a] < numbers[b] ? -1 : numbers[b] < numbers[a] ? 1 : 0;
    } else {
      order = cell(a, column)->compare(*cell(b, column));
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
    const std::string* text = cell(i, column);
    if (text != nullptr && seen.insert(*text).second) list.push_back(text->c_str());
  }
  list.push_back(nullptr);
  distinct_.swap(list);
  return distinct_.data();
}

}  // namespace kelva
