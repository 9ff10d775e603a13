#pragma once

#include <cstddef>
#include <vector>

namespace kelva {

class DataSet;

// Descriptive statistics of data set columns and forecast-error measures of
// a pair of columns (observed, predicted).  Each throws Error: "usage" for a
// data set without rows, a column index out of range, a column without
// values or two columns whose missing cells differ; "invalid_expression"
// for a present cell that is not a number.

/// The numbers of the present cells of `column` in row order.
std::vector<double> gather_column(const DataSet& data, std::size_t column);

double column_mean(const DataSet& data, std::size_t column);
/// Divisor n.
double column_variance(const DataSet& data, std::size_t column);
/// Third central moment over n divided by the 3/2 power of the second
/// central moment over n - 1; 0 for one value or no spread.
double column_skewness(const DataSet& data, std::size_t column);
/// Plain (not excess) kurtosis; not a number for no spread.
double column_kurtosis(const DataSet& data, std::size_t column);

double mean_absolute_error(const DataSet& data, std::size_t observed, std::size_t predicted);
/// As a fraction of the observed values (not a percentage).
double mean_absolute_percentage_error(const DataSet& data, std::size_t observed,
                                      std::size_t predicted);
/// The mean absolute error over the mean absolute one-step difference of
/// the observed column; -1.0 (without error) for fewer than two values.
double mean_absolute_scaled_error(const DataSet& data, std::size_t observed, std::size_t predicted);

}  // namespace kelva
