// Discretisation of data set columns: cut points by entropy, equal width or
// equal frequency, interval texts, and shifting a column's cells.
#include "dataset/discretize.h"

#include <algorithm>
#include <vector>

#include "capi/boundary.h"
#include "capi/data_set.h"
#include "dataset/data_set.h"

using kelva::DataSet;
using kelva::require;
using kelva::capi::get;
using kelva::capi::guard;
using kelva::capi::guard_status;
using kelva::capi::with_column;

namespace {

// Hands out cut points as the C API does: their number, and as many as fit.
k_size_t hand_out(const std::vector<double>& found, double* cuts, k_size_t length) {
  require(cuts != nullptr || length == 0);
  std::copy_n(found.begin(), std::min<std::size_t>(found.size(), length), cuts);
  return found.size();
}

}  // namespace

extern "C" {

k_size_t k_ds_compute_intervals_iem(k_data_set_t data_set, k_size_t column, k_size_t class_column,
                                    double* cuts, k_size_t cuts_length) {
  return guard<k_size_t>(K_SIZE_ERROR, [&] {
    const DataSet& d = with_column(data_set, column);
    require(class_column < d.column_count());
    require(cuts != nullptr || cuts_length == 0);
    return hand_out(kelva::iem_cut_points(d, column, class_column), cuts, cuts_length);
  });
}

k_size_t k_ds_discretize_column(k_data_set_t data_set, k_size_t column, k_discretization_t method,
                                k_size_t intervals, double* cuts, k_size_t cuts_length) {
  return guard<k_size_t>(K_SIZE_ERROR, [&] {
    DataSet& d = with_column(data_set, column);
    require(method == K_DISCRETIZE_EQUAL_WIDTH || method == K_DISCRETIZE_EQUAL_FREQUENCY);
    require(intervals >= 1);
    require(cuts != nullptr || cuts_length == 0);
    std::vector<double> values = kelva::column_numbers(d, column);
    require(!values.empty());
    const std::vector<double> found = kelva::binning_cut_points(
        std::move(values), static_cast<kelva::Binning>(method), intervals);
    kelva::apply_cut_points(d, column, found);
    return hand_out(found, cuts, cuts_length);
  });
}

k_status_t k_ds_apply_discretization(k_data_set_t data_set, k_size_t column, const double* cuts,
                                     k_size_t count) {
  return guard_status([&] {
    DataSet& d = with_column(data_set, column);
    require(cuts != nullptr || count == 0);
    kelva::apply_cut_points(d, column, std::vector<double>(cuts, cuts + count));
  });
}

k_bool_t k_ds_column_data_are_intervals(k_data_set_t data_set, k_size_t column) {
  return guard<k_bool_t>(-1, [&] {
    return kelva::column_holds_intervals(with_column(data_set, column), column) ? 1 : 0;
  });
}

k_status_t k_ds_shift_column_data(k_data_set_t data_set, k_size_t column, int64_t shift) {
  return guard_status([&] { kelva::shift_column(with_column(data_set, column), column, shift); });
}

}  // extern "C"
