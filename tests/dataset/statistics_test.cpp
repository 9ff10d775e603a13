// Statistics of data set columns against the textbook two-pass formulas.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <functional>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "common/expect_code.h"
#include "dataset/data_set_fixture.h"
#include "kelva/kelva.h"

namespace {

using kelva::test::DataSetHandle;
using kelva::test::fill;
const std::nullopt_t missing = std::nullopt;

struct Reference {
  double mean, variance, skewness, kurtosis;
};

// Two passes over the values, as a statistician writes them down.
Reference reference(const std::vector<double>& x) {
  const double n = static_cast<double>(x.size());
  double sum = 0;
  for (double v : x) sum += v;
  const double m = sum / n;
  double s2 = 0, s3 = 0, s4 = 0;
  for (double v : x) {
    s2 += (v - m) * (v - m);
    s3 += (v - m) * (v - m) * (v - m);
    s4 += (v - m) * (v - m) * (v - m) * (v - m);
  }
  // Skewness: the second moment over n - 1, the third over n.
  const double skew = (x.size() == 1 || s2 == 0) ? 0.0 : (s3 / n) / std::pow(s2 / (n - 1), 1.5);
  return {m, s2 / n, skew, n * s4 / (s2 * s2)};
}

std::string text(double v) {
  char buffer[40];
  std::snprintf(buffer, sizeof buffer, "%.17g", v);
  return buffer;
}

TEST(Statistics, OneValueAndNoSpread) {
  DataSetHandle ds;
  fill(ds, {"one", "pred", "flat"},
       {{missing, missing, "2"}, {"7", "5", "2"}, {missing, missing, "2"}});
  EXPECT_EQ(k_ds_compute_mean(ds, 0), 7.0);
  EXPECT_EQ(k_ds_compute_variance(ds, 0), 0.0);
  EXPECT_EQ(k_ds_compute_skewness(ds, 0), 0.0);
  EXPECT_TRUE(std::isnan(k_ds_compute_kurtosis(ds, 0)));
  EXPECT_EQ(k_error_code(), K_ERROR_NONE);
  EXPECT_EQ(k_ds_compute_skewness(ds, 2), 0.0);
  EXPECT_TRUE(std::isnan(k_ds_compute_kurtosis(ds, 2)));
  EXPECT_EQ(k_ds_compute_mean_absolute_error(ds, 0, 1), 2.0);
  // A scaled error needs two values: -1 without an error code.
  EXPECT_CODE(k_ds_compute_mean_absolute_scaled_error(ds, 0, 1), -1.0, K_ERROR_NONE);
}

TEST(Statistics, ZeroObservationMakesPercentageErrorInfinite) {
  DataSetHandle ds;
  fill(ds, {"obs", "pred"}, {{"0", "1"}, {"2", "2"}, {"0", "0"}});
  k_ds_delete_row(ds, 2);
  EXPECT_TRUE(std::isinf(k_ds_compute_mean_absolute_percentage_error(ds, 0, 1)));
  EXPECT_EQ(k_error_code(), K_ERROR_NONE);
  k_ds_set_data_item(ds, 0, 1, "0");
  EXPECT_TRUE(std::isnan(k_ds_compute_mean_absolute_percentage_error(ds, 0, 1)));
  EXPECT_EQ(k_error_code(), K_ERROR_NONE);
}

TEST(Statistics, RandomColumnsMatchTheTwoPassFormulas) {
  std::mt19937_64 random(20261122);
  std::uniform_real_distribution<double> value(-1000.0, 1000.0);
  std::bernoulli_distribution gap(0.25);
  for (int round = 0; round < 200; ++round) {
    const std::size_t rows = 1 + random() % 60;
    DataSetHandle ds;
    fill(ds, {"obs", "pred"}, {});
    std::vector<double> x, y;
    for (std::size_t r = 0; r < rows; ++r) {
      const k_size_t row = k_ds_new_row(ds);
      // Keep at least one value; a row may be absent or have both cells missing.
      if (gap(random) && !(r + 1 == rows && x.empty())) continue;
      const double a = round % 3 == 0 ? std::round(value(random)) : value(random);
      const double b = a + value(random) / 10;
      x.push_back(std::stod(text(a)));
      y.push_back(std::stod(text(b)));
      k_ds_set_data_item(ds, row, 0, text(a).c_str());
      k_ds_set_data_item(ds, row, 1, text(b).c_str());
    }
    const Reference ref = reference(x);
    const auto near = [](double expected, double actual) {
      return expected == actual ||
             std::fabs(expected - actual) <= 1e-12 * std::max(1.0, std::fabs(expected));
    };
    EXPECT_PRED2(near, ref.mean, k_ds_compute_mean(ds, 0)) << round;
    EXPECT_PRED2(near, ref.variance, k_ds_compute_variance(ds, 0)) << round;
    EXPECT_PRED2(near, ref.skewness, k_ds_compute_skewness(ds, 0)) << round;
    if (x.size() > 1) {
      EXPECT_PRED2(near, ref.kurtosis, k_ds_compute_kurtosis(ds, 0)) << round;
    }

    double e = 0, p = 0, d = 0;
    for (std::size_t i = 0; i < x.size(); ++i) {
      e += std::fabs(x[i] - y[i]);
      p += std::fabs((x[i] - y[i]) / x[i]);
      if (i > 0) d += std::fabs(x[i] - x[i - 1]);
    }
    const double n = static_cast<double>(x.size());
    EXPECT_PRED2(near, e / n, k_ds_compute_mean_absolute_error(ds, 0, 1)) << round;
    EXPECT_PRED2(near, p / n, k_ds_compute_mean_absolute_percentage_error(ds, 0, 1)) << round;
    if (x.size() > 1) {
      EXPECT_PRED2(near, (e / n) / (d / (n - 1)), k_ds_compute_mean_absolute_scaled_error(ds, 0, 1))
          << round;
    }
  }
}

TEST(Statistics, FailuresReturnMinusOneWithTheirCode) {
  DataSetHandle ds;
  fill(ds, {"x", "y", "gappy", "word", "none"},
       {{"1", "2", "3", "4", missing}, {"5", "6", missing, "five", missing}});
  DataSetHandle no_rows;
  fill(no_rows, {"x", "y"}, {});
  using Call = std::function<double()>;
  const std::vector<std::tuple<const char*, Call, k_error_t>> calls = {
      {"null", [] { return k_ds_compute_mean(nullptr, 0); }, K_ERROR_USAGE},
      {"no rows", [&] { return k_ds_compute_variance(no_rows, 0); }, K_ERROR_USAGE},
      {"no rows, two columns", [&] { return k_ds_compute_mean_absolute_error(no_rows, 0, 1); },
       K_ERROR_USAGE},
      {"column out of range", [&] { return k_ds_compute_skewness(ds, 5); }, K_ERROR_USAGE},
      {"second column out of range", [&] { return k_ds_compute_mean_absolute_error(ds, 0, 5); },
       K_ERROR_USAGE},
      {"no values", [&] { return k_ds_compute_kurtosis(ds, 4); }, K_ERROR_USAGE},
      {"no values, two columns", [&] { return k_ds_compute_mean_absolute_error(ds, 4, 4); },
       K_ERROR_USAGE},
      {"not a number", [&] { return k_ds_compute_mean(ds, 3); }, K_ERROR_INVALID_EXPRESSION},
      {"not a number, predicted", [&] { return k_ds_compute_mean_absolute_scaled_error(ds, 0, 3); },
       K_ERROR_INVALID_EXPRESSION},
      {"missing cells differ", [&] { return k_ds_compute_mean_absolute_error(ds, 0, 2); },
       K_ERROR_USAGE},
      {"missing cells differ, not a number",
       [&] { return k_ds_compute_mean_absolute_percentage_error(ds, 2, 3); }, K_ERROR_USAGE},
  };
  for (const auto& [name, call, code] : calls) {
    EXPECT_EQ(call(), -1.0) << name;
    EXPECT_EQ(k_error_code(), code) << name;
  }
  // A successful call clears the earlier code.
  EXPECT_CODE(k_ds_compute_mean(ds, 2), 3.0, K_ERROR_NONE);
}

}  // namespace
