// Quantiles of a continuous node's belief: the mixture's distribution
// function is inverted by bisection, which also finds the jump of a point
// mass exactly.
#include "analysis/quantile.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <vector>

#include "inference/cg_propagate.h"
#include "network/error.h"
#include "network/node.h"
#include "table/table.h"

namespace kelva {
namespace {

struct Component {
  double weight, mean, sd;
};

// P(X <= x) of the mixture.
double cdf(const std::vector<Component>& mixture, double x) noexcept {
  double sum = 0.0;
  for (const Component& c : mixture) {
    const double below = c.sd > 0.0 ? 0.5 * std::erfc((c.mean - x) / (c.sd * std::sqrt(2.0)))
                                    : (x >= c.mean ? 1 : 0);
    sum += c.weight * below;
  }
  return sum;
}

}  // namespace

double node_quantile(Node& node, double p) {
  require(p > 0.0 && p < 1.0);
  const std::unique_ptr<Table> table = cg_distribution(node);
  const std::size_t self = table->nodes().index_of(&node) - table->discrete_count();
  std::vector<Component> mixture;
  double total = 0.0;
  double lo = std::numeric_limits<double>::infinity();
  double hi = -lo;
  for (std::uint64_t i = 0; i < table->size(); ++i) {
    const double w = table->data()[i];
    if (!(w > 0.0)) continue;
    const double mean = table->mean(i, self);
    const double sd = std::sqrt(std::max(0.0, table->covariance(i, self, self)));
    mixture.push_back({w, mean, sd});
    total += w;
    // Beyond 40 standard deviations a normal holds less than 1e-300.
    lo = std::min(lo, mean - 40.0 * sd);
    hi = std::max(hi, mean + 40.0 * sd);
  }
  for (Component& c : mixture) c.weight /= total;
  // Invariant: cdf(lo) < p <= cdf(hi), up to the bracket's own ends, which
  // stay finite.
  constexpr double kLargest = std::numeric_limits<double>::max();
  lo = std::max(std::nextafter(lo, -kLargest), -kLargest);
  hi = std::min(hi, kLargest);
  for (;;) {
    const double mid = lo / 2.0 + hi / 2.0;
    if (mid <= lo || mid >= hi) return hi;
    (cdf(mixture, mid) >= p ? hi : lo) = mid;
  }
}

}  // namespace kelva
