#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kelva {

class DataSet;

// Cutting a numeric column of a data set into intervals.  Cut points are
// finite and strictly increasing; cut points c1 < ... < ck make the k + 1
// intervals [-infinity;c1), [c1;c2), ..., [ck;infinity), a value equal to a
// cut point falling into the interval above it (as in interval nodes).

/// How discretize_column places its cut points.
enum class Binning {
  /// intervals - 1 cut points that divide [min, max] into equal widths.
  equal_width = 0,
  /// Cut points between sorted values such that the intervals hold equal
  /// numbers of values, within one when the values are distinct.
  equal_frequency = 1,
};

/// The numbers of the present cells of `column`, in row order.
/// Error(invalid_expression) for a present cell that is not a number.
std::vector<double> column_numbers(const DataSet& data, std::size_t column);

/// The cut points of `binning` into at most `intervals` intervals (at least
/// 1).  Fewer when the values do not allow them: none for values that are
/// all equal, and for equal frequency no cut point inside a run of equal
/// values.
std::vector<double> binning_cut_points(std::vector<double> values, Binning binning,
                                       std::size_t intervals);

/// Minimum-description-length entropy discretisation of `column` against
/// the classes (distinct texts) of `class_column`: the cut point with the
/// least class entropy is taken when its information gain exceeds
/// (log2(N - 1) + log2(3^k - 2) - k Ent(S) + k1 Ent(S1) + k2 Ent(S2)) / N,
/// and each side is cut again in the same way.  Rows where either cell is
/// missing are left out; candidate cut points are the midpoints between
/// consecutive distinct values; of equal entropies the lowest cut point
/// wins.  Error(invalid_expression) for a value cell that is not a number.
std::vector<double> iem_cut_points(const DataSet& data, std::size_t column,
                                   std::size_t class_column);

/// Rewrites every present cell of `column` as the text of the interval
/// that holds its number.  Error(usage) when the cut points are not finite
/// and strictly increasing, Error(invalid_expression) when a present cell
/// is not a number; then nothing changes.
void apply_cut_points(DataSet& data, std::size_t column, const std::vector<double>& cuts);

/// "[lo;hi)", each bound the shortest decimal text that reads back as it,
/// or the words "-infinity" / "infinity" for an unbounded side.
std::string interval_text(double lo, double hi);
/// Reads an interval text (white space around it allowed); false when
/// `text` is not one.  The words give -HUGE_VAL and HUGE_VAL.
bool parse_interval(const std::string& text, double& lo, double& hi) noexcept;

/// Whether every present cell of `column` is an interval text (true for a
/// column without present cells).
bool column_holds_intervals(const DataSet& data, std::size_t column) noexcept;

/// Moves the cells of `column` `shift` rows down (up when negative): cell r
/// goes to row r + shift; cells moved past either end are dropped and the
/// cells left behind are missing.  Absent rows take part as rows of missing
/// cells.
void shift_column(DataSet& data, std::size_t column, std::int64_t shift);

}  // namespace kelva
