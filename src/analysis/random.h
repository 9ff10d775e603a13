#pragma once

#include <cstdint>

namespace kelva {

class Domain;

// The domain's random stream is std::mt19937_64.  A seed s restarts it as
// std::mt19937_64(s); a new domain starts as seed 0.  Deviates are made from
// the raw 64-bit outputs by the functions below, not by the standard
// library's distributions (whose algorithms differ between libraries), so
// a seed gives the same draws everywhere.

/// Restarts the domain's stream with `seed` (k_domain_seed_random).
void seed_random(Domain& domain, std::uint64_t seed) noexcept;

/// A uniform deviate in [0, 1): the top 53 bits of one output, times 2^-53.
double uniform_deviate(Domain& domain) noexcept;

/// A normal deviate with `mean` and `variance` (finite, variance >= 0, else
/// Error(usage)), by the Box-Muller transform of two uniform deviates
/// (u1, u2): mean + sqrt(variance) * sqrt(-2 ln(1 - u1)) * cos(2 pi u2).
double normal_deviate(Domain& domain, double mean, double variance);

}  // namespace kelva
