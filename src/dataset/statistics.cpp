#include "dataset/statistics.h"

#include <cmath>

#include "dataset/data_set.h"
#include "network/error.h"

namespace kelva {

namespace {

double mean_of(const std::vector<double>& x) noexcept {
  double sum = 0.0;
  for (double v : x) sum += v;
  return sum / static_cast<double>(x.size());
}

// Σ (x - m)^power over the values.
double central_sum(const std::vector<double>& x, double m, int power) noexcept {
  double sum = 0.0;
  for (double v : x) {
    const double d = v - m;
    double p = d;
    for (int k = 1; k < power; ++k) p *= d;
    sum += p;
  }
  return sum;
}

// The observed and predicted columns as pairs: both gathered after checking
// that their missing cells agree row by row.
struct Pairs {
  std::vector<double> x;
  std::vector<double> y;
};

Pairs gather_pairs(const DataSet& data, std::size_t observed, std::size_t predicted) {
  require(observed < data.column_count() && predicted < data.column_count());
  for (std::size_t r = 0; r < data.row_count(); ++r)
    require((data.cell(r, observed) == nullptr) == (data.cell(r, predicted) == nullptr));
  Pairs p;
  p.x = gather_column(data, observed);
  p.y = gather_column(data, predicted);
  return p;
}

double absolute_error_sum(const Pairs& p) noexcept {
  double sum = 0.0;
  for (std::size_t i = 0; i < p.x.size(); ++i) sum += std::fabs(p.x[i] - p.y[i]);
  return sum;
}

}  // namespace

std::vector<double> gather_column(const DataSet& data, std::size_t column) {
  require(data.row_count() > 0 && column < data.column_count());
  std::vector<double> values;
  for (std::size_t r = 0; r < data.row_count(); ++r) {
    const char* text = data.cell(r, column);
    if (text == nullptr) continue;
    double v = 0.0;
    require(cell_number(text, v), K_ERROR_INVALID_EXPRESSION);
    values.push_back(v);
  }
  require(!values.empty());
  return values;
}

double column_mean(const DataSet& data, std::size_t column) {
  return mean_of(gather_column(data, column));
}

double column_variance(const DataSet& data, std::size_t column) {
  const std::vector<double> x = gather_column(data, column);
  return central_sum(x, mean_of(x), 2) / static_cast<double>(x.size());
}

double column_skewness(const DataSet& data, std::size_t column) {
  const std::vector<double> x = gather_column(data, column);
  const double n = static_cast<double>(x.size());
  const double m = mean_of(x);
  const double sum2 = central_sum(x, m, 2);
  if (x.size() == 1 || sum2 == 0.0) return 0.0;
  // Deliberately mixed divisors: the second moment over n - 1, the third over n.
  const double s2 = sum2 / (n - 1.0);
  const double m3 = central_sum(x, m, 3) / n;
  return m3 / (std::sqrt(s2) * s2);
}

double column_kurtosis(const DataSet& data, std::size_t column) {
  const std::vector<double> x = gather_column(data, column);
  const double m = mean_of(x);
  const double sum2 = central_sum(x, m, 2);
  return static_cast<double>(x.size()) * central_sum(x, m, 4) / (sum2 * sum2);
}

double mean_absolute_error(const DataSet& data, std::size_t observed, std::size_t predicted) {
  const Pairs p = gather_pairs(data, observed, predicted);
  return absolute_error_sum(p) / static_cast<double>(p.x.size());
}

double mean_absolute_percentage_error(const DataSet& data, std::size_t observed,
                                      std::size_t predicted) {
  const Pairs p = gather_pairs(data, observed, predicted);
  double sum = 0.0;
  for (std::size_t i = 0; i < p.x.size(); ++i) sum += std::fabs((p.x[i] - p.y[i]) / p.x[i]);
  return sum / static_cast<double>(p.x.size());
}

double mean_absolute_scaled_error(const DataSet& data, std::size_t observed,
                                  std::size_t predicted) {
  const Pairs p = gather_pairs(data, observed, predicted);
  const std::size_t n = p.x.size();
  if (n < 2) return -1.0;
  const double e = absolute_error_sum(p) / static_cast<double>(n);
  double steps = 0.0;
  for (std::size_t i = 1; i < n; ++i) steps += std::fabs(p.x[i] - p.x[i - 1]);
  const double d = steps / static_cast<double>(n - 1);
  return e / d;
}

}  // namespace kelva
