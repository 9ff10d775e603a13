// The data set functions of the C API: the object, its columns, rows and
// cells, the statistics of columns, and the cases a domain takes from it.
#include "capi/data_set.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "capi/boundary.h"
#include "dataset/statistics.h"
#include "learning/cases.h"

using kelva::DataSet;
using kelva::require;
using kelva::capi::get;
using kelva::capi::guard;
using kelva::capi::guard_status;
using kelva::capi::handle;
using kelva::capi::with_column;

namespace {

// A data set and a cell index inside it, or Error(usage).
DataSet& with_cell(k_data_set_t data_set, k_size_t row, k_size_t column) {
  DataSet& d = with_column(data_set, column);
  require(row < d.row_count());
  return d;
}

// rows start .. start+count-1 lie inside `d`.
void require_rows(const DataSet& d, k_size_t start, k_size_t count) {
  require(start <= d.row_count() && count <= d.row_count() - start);
}

template <class F>
double statistic(F&& compute) noexcept {
  return guard<double>(-1.0, std::forward<F>(compute));
}

}  // namespace

extern "C" {

k_data_set_t k_new_data_set(void) {
  return guard<k_data_set_t>(nullptr, [] { return handle(new DataSet()); });
}

k_status_t k_ds_delete(k_data_set_t data_set) {
  return guard_status([&] { delete &get(data_set); });
}

k_size_t k_ds_new_column(k_data_set_t data_set, const char* name) {
  return guard<k_size_t>(K_SIZE_ERROR, [&] {
    DataSet& d = get(data_set);
    require(name != nullptr);
    return static_cast<k_size_t>(d.add_column(name));
  });
}

k_size_t k_ds_new_row(k_data_set_t data_set) {
  return guard<k_size_t>(K_SIZE_ERROR,
                         [&] { return static_cast<k_size_t>(get(data_set).add_row()); });
}

k_status_t k_ds_delete_column(k_data_set_t data_set, k_size_t column) {
  return guard_status([&] { with_column(data_set, column).erase_column(column); });
}

k_status_t k_ds_delete_row(k_data_set_t data_set, k_size_t row) {
  return guard_status([&] {
    DataSet& d = get(data_set);
    require(row < d.row_count());
    d.erase_row(row);
  });
}

k_size_t k_ds_get_number_of_columns(k_data_set_t data_set) {
  return guard<k_size_t>(K_SIZE_ERROR,
                         [&] { return static_cast<k_size_t>(get(data_set).column_count()); });
}

k_size_t k_ds_get_number_of_rows(k_data_set_t data_set) {
  return guard<k_size_t>(K_SIZE_ERROR,
                         [&] { return static_cast<k_size_t>(get(data_set).row_count()); });
}

const char* k_ds_get_column_name(k_data_set_t data_set, k_size_t column) {
  return guard<const char*>(nullptr,
                            [&] { return with_column(data_set, column).columns[column].c_str(); });
}

k_status_t k_ds_set_column_name(k_data_set_t data_set, k_size_t column, const char* name) {
  return guard_status([&] {
    DataSet& d = with_column(data_set, column);
    require(name != nullptr);
    d.columns[column] = std::string(name);
  });
}

const char* k_ds_get_data_item(k_data_set_t data_set, k_size_t row, k_size_t column) {
  return guard<const char*>(
      nullptr, [&]() -> const char* { return with_cell(data_set, row, column).cell(row, column); });
}

k_status_t k_ds_set_data_item(k_data_set_t data_set, k_size_t row, k_size_t column,
                              const char* text) {
  return guard_status([&] { with_cell(data_set, row, column).set_cell(row, column, text); });
}

k_status_t k_ds_move_column(k_data_set_t data_set, k_size_t column, k_size_t new_index) {
  return guard_status([&] {
    DataSet& d = with_column(data_set, column);
    require(new_index < d.column_count());
    d.move_column(column, new_index);
  });
}

k_status_t k_ds_move_row(k_data_set_t data_set, k_size_t row, k_size_t new_index) {
  return guard_status([&] {
    DataSet& d = get(data_set);
    require(row < d.row_count() && new_index < d.row_count());
    d.move_row(row, new_index);
  });
}

k_size_t k_ds_copy_column(k_data_set_t data_set, k_size_t column) {
  return guard<k_size_t>(K_SIZE_ERROR, [&] {
    return static_cast<k_size_t>(with_column(data_set, column).copy_column(column));
  });
}

k_bool_t k_ds_column_is_empty(k_data_set_t data_set, k_size_t column) {
  return guard<k_bool_t>(-1, [&] {
    const DataSet& d = with_column(data_set, column);
    for (std::size_t r = 0; r < d.row_count(); ++r)
      if (d.cell(r, column) != nullptr) return k_bool_t{0};
    return k_bool_t{1};
  });
}

k_bool_t k_ds_column_data_are_numbers(k_data_set_t data_set, k_size_t column) {
  return guard<k_bool_t>(-1, [&] {
    const DataSet& d = with_column(data_set, column);
    double value = 0.0;
    for (std::size_t r = 0; r < d.row_count(); ++r) {
      const char* text = d.cell(r, column);
      if (text != nullptr && !kelva::cell_number(text, value)) return k_bool_t{0};
    }
    return k_bool_t{1};
  });
}

k_size_t k_ds_find_row(k_data_set_t data_set, k_size_t column, const char* text, k_size_t start) {
  return guard<k_size_t>(K_SIZE_ERROR, [&] {
    const DataSet& d = with_column(data_set, column);
    require(start <= d.row_count());
    for (std::size_t r = start; r < d.row_count(); ++r) {
      const char* cell = d.cell(r, column);
      if (text == nullptr ? cell == nullptr : cell != nullptr && std::strcmp(cell, text) == 0)
        return static_cast<k_size_t>(r);
    }
    return K_SIZE_ERROR;
  });
}

const char* const* k_ds_get_distinct_values(k_data_set_t data_set, k_size_t column) {
  return guard<const char* const*>(
      nullptr, [&] { return with_column(data_set, column).distinct_values(column); });
}

k_size_t k_ds_replace_values(k_data_set_t data_set, k_size_t column, const char* old_text,
                             const char* new_text) {
  return guard<k_size_t>(K_SIZE_ERROR, [&] {
    return static_cast<k_size_t>(
        with_column(data_set, column).replace_values(column, old_text, new_text));
  });
}

k_status_t k_ds_sort_rows(k_data_set_t data_set, k_size_t column, k_bool_t descending) {
  return guard_status([&] {
    DataSet& d = with_column(data_set, column);
    require(descending == 0 || descending == 1);
    d.sort_rows(column, false, descending == 1);
  });
}

k_status_t k_ds_sort_rows_numerically(k_data_set_t data_set, k_size_t column, k_bool_t descending) {
  return guard_status([&] {
    DataSet& d = with_column(data_set, column);
    require(descending == 0 || descending == 1);
    d.sort_rows(column, true, descending == 1);
  });
}

k_size_t k_ds_count_data(k_data_set_t data_set, k_size_t column) {
  return guard<k_size_t>(K_SIZE_ERROR, [&] {
    const DataSet& d = with_column(data_set, column);
    k_size_t n = 0;
    for (std::size_t r = 0; r < d.row_count(); ++r)
      if (d.cell(r, column) != nullptr) ++n;
    return n;
  });
}

k_status_t k_ds_get_numbers(k_data_set_t data_set, k_size_t column, double* array,
                            k_size_t array_length, k_size_t start, k_size_t count) {
  return guard_status([&] {
    const DataSet& d = with_column(data_set, column);
    require(array != nullptr && count <= array_length);
    require_rows(d, start, count);
    std::vector<double> numbers(count, std::nan(""));
    for (k_size_t i = 0; i < count; ++i)
      if (const char* text = d.cell(start + i, column))
        require(kelva::cell_number(text, numbers[i]), K_ERROR_INVALID_EXPRESSION);
    std::copy(numbers.begin(), numbers.end(), array);
  });
}

k_status_t k_domain_add_cases(k_domain_t domain, k_data_set_t data_set, k_size_t start,
                              k_size_t count) {
  return guard_status([&] {
    kelva::Domain& dom = get(domain);
    const DataSet& d = get(data_set);
    require_rows(d, start, count);
    kelva::add_cases(dom, d, start, count);
  });
}

double k_ds_compute_mean(k_data_set_t data_set, k_size_t column) {
  return statistic([&] { return kelva::column_mean(get(data_set), column); });
}

double k_ds_compute_variance(k_data_set_t data_set, k_size_t column) {
  return statistic([&] { return kelva::column_variance(get(data_set), column); });
}

double k_ds_compute_skewness(k_data_set_t data_set, k_size_t column) {
  return statistic([&] { return kelva::column_skewness(get(data_set), column); });
}

double k_ds_compute_kurtosis(k_data_set_t data_set, k_size_t column) {
  return statistic([&] { return kelva::column_kurtosis(get(data_set), column); });
}

double k_ds_compute_mean_absolute_error(k_data_set_t data_set, k_size_t observed,
                                        k_size_t predicted) {
  return statistic([&] { return kelva::mean_absolute_error(get(data_set), observed, predicted); });
}

double k_ds_compute_mean_absolute_percentage_error(k_data_set_t data_set, k_size_t observed,
                                                   k_size_t predicted) {
  return statistic(
      [&] { return kelva::mean_absolute_percentage_error(get(data_set), observed, predicted); });
}

double k_ds_compute_mean_absolute_scaled_error(k_data_set_t data_set, k_size_t observed,
                                               k_size_t predicted) {
  return statistic(
      [&] { return kelva::mean_absolute_scaled_error(get(data_set), observed, predicted); });
}

}  // extern "C"

kelva::DataSet& kelva::capi::with_column(k_data_set_t data_set, k_size_t column) {
  DataSet& d = get(data_set);
  require(column < d.column_count());
  return d;
}
