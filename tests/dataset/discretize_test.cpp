// Discretisation of data set columns: entropy cut points against hand
// results and a brute-force search, bins, interval texts, shifting.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "dataset/data_set_fixture.h"
#include "kelva/kelva.h"

namespace {

using kelva::test::DataSetHandle;
using kelva::test::fill;
using kelva::test::Grid;

std::vector<double> iem(k_data_set_t ds, k_size_t column, k_size_t classes) {
  std::vector<double> cuts(64);
  const k_size_t n = k_ds_compute_intervals_iem(ds, column, classes, cuts.data(), cuts.size());
  EXPECT_NE(n, K_SIZE_ERROR);
  cuts.resize(n == K_SIZE_ERROR ? 0 : n);
  return cuts;
}

// The minimum-description-length search written out from its definition:
// every candidate cut's entropies counted afresh.
double entropy_of(const std::vector<std::pair<double, int>>& s) {
  std::map<int, double> counts;
  for (const auto& [v, c] : s) counts[c] += 1.0;
  double e = 0.0;
  for (const auto& [c, n] : counts) e -= n / s.size() * std::log2(n / s.size());
  return e;
}

double classes_in(const std::vector<std::pair<double, int>>& s) {
  std::map<int, int> counts;
  for (const auto& [v, c] : s) counts[c] = 1;
  return static_cast<double>(counts.size());
}

void brute_force(std::vector<std::pair<double, int>> s, std::vector<double>& cuts) {
  std::sort(s.begin(), s.end());
  double best = 1e300, cut = 0.0;
  std::vector<std::pair<double, int>> best1, best2;
  for (std::size_t i = 1; i < s.size(); ++i) {
    if (s[i - 1].first == s[i].first) continue;
    std::vector<std::pair<double, int>> a(s.begin(), s.begin() + i), b(s.begin() + i, s.end());
    const double e = (a.size() * entropy_of(a) + b.size() * entropy_of(b)) / s.size();
    if (e < best - 1e-12) best = e, cut = (s[i - 1].first + s[i].first) / 2, best1 = a, best2 = b;
  }
  if (best1.empty()) return;
  const double n = s.size(), ent = entropy_of(s), k = classes_in(s);
  const double delta =
      std::log2(std::pow(3.0, k) - 2) -
      (k * ent - classes_in(best1) * entropy_of(best1) - classes_in(best2) * entropy_of(best2));
  if (ent - best <= (std::log2(n - 1) + delta) / n) return;
  brute_force(best1, cuts);
  cuts.push_back(cut);
  brute_force(best2, cuts);
}

TEST(Discretize, EntropyCutPointsMatchHandResultsAndBruteForce) {
  {
    // Two pure halves: one cut (gain 1 against a threshold of about 0.45);
    // three pure thirds: two cuts; alternating classes: none.
    DataSetHandle ds;
    Grid grid;
    for (int i = 1; i <= 9; ++i)
      grid.push_back({std::to_string(i), i <= 4 ? "a" : "b", std::string(1, "abc"[(i - 1) / 3]),
                      i % 2 ? "x" : "y"});
    grid.push_back({std::nullopt, "a", "a", "x"});  // left out
    fill(ds, {"v", "two", "three", "alternating"}, grid);
    EXPECT_EQ(iem(ds, 0, 1), (std::vector<double>{4.5}));
    EXPECT_EQ(iem(ds, 0, 2), (std::vector<double>{3.5, 6.5}));
    EXPECT_EQ(iem(ds, 0, 3), std::vector<double>{});
    EXPECT_EQ(k_ds_compute_intervals_iem(ds, 1, 0, nullptr, 0), K_SIZE_ERROR);
    EXPECT_EQ(k_error_code(), K_ERROR_INVALID_EXPRESSION);
  }
  std::mt19937 rng(7);
  for (int round = 0; round < 40; ++round) {
    DataSetHandle ds;
    Grid grid;
    std::vector<std::pair<double, int>> sample;
    const int n = 10 + static_cast<int>(rng() % 60), classes = 2 + static_cast<int>(rng() % 3);
    for (int i = 0; i < n; ++i) {
      const double v = static_cast<double>(rng() % 40);
      // Classes that mostly follow the value, so that some cuts pay off.
      const int c =
          rng() % 4 == 0 ? static_cast<int>(rng() % classes) : static_cast<int>(v) * classes / 40;
      sample.emplace_back(v, c);
      grid.push_back({std::to_string(v), std::to_string(c)});
    }
    fill(ds, {"v", "class"}, grid);
    std::vector<double> expected;
    brute_force(sample, expected);
    EXPECT_EQ(iem(ds, 0, 1), expected) << "round " << round;
  }
}

// The interval text of each cell, per interval, counted.
std::map<std::string, int> bins(k_data_set_t ds, k_size_t column) {
  std::map<std::string, int> count;
  for (k_size_t r = 0; r < k_ds_get_number_of_rows(ds); ++r)
    if (const char* cell = k_ds_get_data_item(ds, r, column)) ++count[cell];
  return count;
}

TEST(Discretize, BinsHoldEqualCountsOrEqualWidths) {
  std::mt19937 rng(11);
  for (int round = 0; round < 30; ++round) {
    DataSetHandle ds;
    Grid grid;
    const std::size_t n = 1 + rng() % 50, k = 1 + rng() % 8;
    std::vector<double> values;
    for (std::size_t i = 0; i < n; ++i) values.push_back(i * 0.25 - 3);  // distinct
    std::shuffle(values.begin(), values.end(), rng);
    for (double v : values) grid.push_back({std::to_string(v)});
    fill(ds, {"v"}, grid);
    std::vector<double> cuts(k);
    const k_size_t found =
        k_ds_discretize_column(ds, 0, K_DISCRETIZE_EQUAL_FREQUENCY, k, cuts.data(), cuts.size());
    ASSERT_EQ(found, std::min(k, n) - 1);
    EXPECT_EQ(k_ds_column_data_are_intervals(ds, 0), 1);
    const auto count = bins(ds, 0);
    ASSERT_EQ(count.size(), found + 1);
    int lo = 1 << 30, hi = 0;
    for (const auto& [text, c] : count) lo = std::min(lo, c), hi = std::max(hi, c);
    EXPECT_LE(hi - lo, 1) << n << " values in " << k;
  }
  DataSetHandle ds;
  fill(ds, {"v"}, {{"0"}, {"10"}, {"3"}, {"3"}, {std::nullopt}, {"10"}});
  std::vector<double> cuts(4);
  ASSERT_EQ(k_ds_discretize_column(ds, 0, K_DISCRETIZE_EQUAL_WIDTH, 5, cuts.data(), 4), 4u);
  EXPECT_EQ(cuts, (std::vector<double>{2, 4, 6, 8}));
  EXPECT_EQ(std::string(k_ds_get_data_item(ds, 0, 0)), "[-infinity;2)");
  EXPECT_EQ(std::string(k_ds_get_data_item(ds, 2, 0)), "[2;4)");
  EXPECT_EQ(std::string(k_ds_get_data_item(ds, 5, 0)), "[8;infinity)");
  EXPECT_EQ(k_ds_get_data_item(ds, 4, 0), nullptr);
  // Ties are never cut: 0 3 3 10 10 in two equal-frequency bins.
  DataSetHandle ties;
  fill(ties, {"v"}, {{"0"}, {"3"}, {"3"}, {"10"}, {"10"}, {"10"}});
  EXPECT_EQ(k_ds_discretize_column(ties, 0, K_DISCRETIZE_EQUAL_FREQUENCY, 2, nullptr, 0), 1u);
  EXPECT_EQ(k_ds_discretize_column(ties, 0, K_DISCRETIZE_EQUAL_WIDTH, 0, nullptr, 0), K_SIZE_ERROR);
}

TEST(Discretize, IntervalTextsFeedIntervalNodesAndColumnsShift) {
  DataSetHandle ds;
  fill(ds, {"X", "word"}, {{"-3", "a"}, {"2", "b"}, {"0.1", "c"}, {std::nullopt, "d"}});
  const double bad[] = {2.0, 2.0};
  EXPECT_NE(k_ds_apply_discretization(ds, 0, bad, 2), 0);
  EXPECT_EQ(k_ds_apply_discretization(ds, 1, bad, 1), 1);
  EXPECT_EQ(k_error_code(), K_ERROR_INVALID_EXPRESSION);
  EXPECT_EQ(std::string(k_ds_get_data_item(ds, 0, 0)), "-3");  // unchanged
  const double cuts[] = {-1.5, 2.0};
  ASSERT_EQ(k_ds_apply_discretization(ds, 0, cuts, 2), 0);
  EXPECT_EQ(std::string(k_ds_get_data_item(ds, 0, 0)), "[-infinity;-1.5)");
  EXPECT_EQ(std::string(k_ds_get_data_item(ds, 1, 0)), "[2;infinity)");
  EXPECT_EQ(std::string(k_ds_get_data_item(ds, 2, 0)), "[-1.5;2)");
  EXPECT_EQ(k_ds_column_data_are_intervals(ds, 0), 1);
  EXPECT_EQ(k_ds_column_data_are_intervals(ds, 1), 0);

  // An interval node whose bounds are the cut points takes the texts.
  k_domain_t d = k_new_domain();
  k_node_t x = k_domain_new_node(d, K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_INTERVAL);
  k_node_set_name(x, "X");
  k_node_set_number_of_states(x, 3);
  const double bounds[] = {-HUGE_VAL, -1.5, 2.0, HUGE_VAL};
  for (int i = 0; i < 4; ++i) k_node_set_state_value(x, i, bounds[i]);
  ASSERT_EQ(k_domain_add_cases(d, ds, 0, 4), 0);
  EXPECT_EQ(k_node_get_case_state(x, 0), 0);
  EXPECT_EQ(k_node_get_case_state(x, 1), 2);
  EXPECT_EQ(k_node_get_case_state(x, 2), 1);
  k_ds_set_data_item(ds, 0, 0, "[-1;2)");  // no such state
  EXPECT_NE(k_domain_add_cases(d, ds, 0, 1), 0);
  k_domain_delete(d);

  // Shifting: down by two, then up by three (past the top).
  DataSetHandle s;
  fill(s, {"v"}, {{"1"}, {"2"}, {"3"}, {std::nullopt}, {"5"}});
  auto column = [&] {
    std::string out;
    for (k_size_t r = 0; r < 5; ++r) {
      const char* c = k_ds_get_data_item(s, r, 0);
      out += c ? c : "-";
    }
    return out;
  };
  ASSERT_EQ(k_ds_shift_column_data(s, 0, 2), 0);
  EXPECT_EQ(column(), "--123");
  ASSERT_EQ(k_ds_shift_column_data(s, 0, -3), 0);
  EXPECT_EQ(column(), "23---");
  EXPECT_NE(k_ds_shift_column_data(s, 1, 1), 0);
}

}  // namespace
