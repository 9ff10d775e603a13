// The G² test of conditional independence and the chi-square tail it needs.
#include "learning/independence.h"

#include <cmath>
#include <limits>
#include <unordered_map>

namespace kelva {

namespace {

// Regularized lower incomplete gamma P(a, x) by its series (x < a + 1).
double gamma_series(double a, double x) {
  double term = 1.0 / a, sum = term;
  for (int n = 1; n < 1000; ++n) {
    term *= x / (a + n);
    sum += term;
    if (std::fabs(term) < std::fabs(sum) * 1e-15) break;
  }
  return sum * std::exp(-x + a * std::log(x) - std::lgamma(a));
}

// Regularized upper incomplete gamma Q(a, x) by Lentz's continued fraction
// (x >= a + 1).
double gamma_fraction(double a, double x) {
  constexpr double kTiny = 1e-300;
  double b = x + 1.0 - a, c = 1.0 / kTiny, d = 1.0 / b, h = d;
  for (int i = 1; i < 1000; ++i) {
    const double an = -i * (i - a);
    b += 2.0;
    d = an * d + b;
    if (std::fabs(d) < kTiny) d = kTiny;
    c = b + an / c;
    if (std::fabs(c) < kTiny) c = kTiny;
    d = 1.0 / d;
    const double delta = d * c;
    h *= delta;
    if (std::fabs(delta - 1.0) < 1e-15) break;
  }
  return std::exp(-x + a * std::log(x) - std::lgamma(a)) * h;
}

}  // namespace

double chi_square_tail(double statistic, double df) {
  if (df <= 0.0 || statistic <= 0.0) return 1.0;
  const double a = df / 2.0, x = statistic / 2.0;
  return x < a + 1.0 ? 1.0 - gamma_series(a, x) : gamma_fraction(a, x);
}

IndependenceTest g2_test(const LearningData& data, std::size_t x, std::size_t y,
                         const std::vector<std::size_t>& z) {
  const std::size_t rx = data.states[x], ry = data.states[y], cell = rx * ry;
  // Each configuration of z that occurs gets a dense slot of rx * ry counts.
  std::unordered_map<std::uint64_t, std::size_t> slots;
  std::vector<double> counts;
  for (std::size_t c = 0; c < data.cases(); ++c) {
    const std::int16_t sx = data.columns[x][c], sy = data.columns[y][c];
    if (sx < 0 || sy < 0) continue;
    std::uint64_t key = 0;
    bool observed = true;
    for (std::size_t v : z) {
      const std::int16_t s = data.columns[v][c];
      if (s < 0) {
        observed = false;
        break;
      }
      key = key * data.states[v] + static_cast<std::uint64_t>(s);
    }
    if (!observed) continue;
    auto [it, fresh] = slots.try_emplace(key, counts.size());
    if (fresh) counts.resize(counts.size() + cell, 0.0);
    counts[it->second + static_cast<std::size_t>(sx) * ry + static_cast<std::size_t>(sy)] +=
        data.weights[c];
  }
  IndependenceTest result;
  std::vector<double> nx(rx), ny(ry);
  for (std::size_t base = 0; base < counts.size(); base += cell) {
    const double* t = counts.data() + base;
    std::fill(nx.begin(), nx.end(), 0.0);
    std::fill(ny.begin(), ny.end(), 0.0);
    double nz = 0.0;
    for (std::size_t i = 0; i < rx; ++i)
      for (std::size_t j = 0; j < ry; ++j) {
        nx[i] += t[i * ry + j];
        ny[j] += t[i * ry + j];
      }
    std::size_t rows = 0, cols = 0;
    for (double v : nx) {
      nz += v;
      rows += v > 0.0;
    }
    for (double v : ny) cols += v > 0.0;
    if (rows > 1 && cols > 1) result.df += static_cast<double>((rows - 1) * (cols - 1));
    for (std::size_t i = 0; i < rx; ++i)
      for (std::size_t j = 0; j < ry; ++j) {
        const double n = t[i * ry + j];
        if (n > 0.0) result.statistic += 2.0 * n * std::log(n * nz / (nx[i] * ny[j]));
      }
  }
  if (result.statistic < 0.0) result.statistic = 0.0;  // rounding
  result.p_value = chi_square_tail(result.statistic, result.df);
  return result;
}

}  // namespace kelva
