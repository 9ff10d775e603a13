#pragma once

#include <cstddef>
#include <vector>

#include "learning/structure_data.h"

namespace kelva {

/// The probability that a chi-square variable with `df` degrees of freedom
/// is at least `statistic` (the p-value of a G² test); 1 when df is 0.
double chi_square_tail(double statistic, double df);

/// The outcome of one G² (likelihood-ratio) test of conditional independence.
struct IndependenceTest {
  double statistic = 0.0;  ///< G² = 2 Σ n(x,y,z) ln(n(x,y,z) n(z) / (n(x,z) n(y,z)))
  double df = 0.0;         ///< Σ_z (nonzero x rows - 1)(nonzero y columns - 1)
  double p_value = 1.0;
};

/// Tests x ⫫ y | z on the cases that observe x, y and every member of z.
IndependenceTest g2_test(const LearningData& data, std::size_t x, std::size_t y,
                         const std::vector<std::size_t>& z);

}  // namespace kelva
