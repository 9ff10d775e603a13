#include "analysis/random.h"

#include <cmath>
#include <numbers>

#include "network/domain.h"
#include "network/error.h"

namespace kelva {

void seed_random(Domain& domain, std::uint64_t seed) noexcept { domain.analysis.random.seed(seed); }

double uniform_deviate(Domain& domain) noexcept {
  return static_cast<double>(domain.analysis.random() >> 11) * 0x1.0p-53;
}

double normal_deviate(Domain& domain, double mean, double variance) {
  require(std::isfinite(mean) && std::isfinite(variance) && variance >= 0.0);
  const double u1 = uniform_deviate(domain);
  const double u2 = uniform_deviate(domain);
  const double z = std::sqrt(-2.0 * std::log1p(-u1)) * std::cos(2.0 * std::numbers::pi * u2);
  return mean + std::sqrt(variance) * z;
}

}  // namespace kelva
