// Discretisation of numeric data set columns: equal-width and
// equal-frequency bins, minimum-description-length entropy cut points
// against a class column, and the interval texts the cells become.

#include "dataset/discretize.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <map>
#include <utility>

#include "dataset/data_set.h"
#include "network/error.h"

namespace kelva {

namespace {

// Entropy in bits of class counts that sum to n.
double entropy(const std::vector<std::size_t>& counts, std::size_t n) noexcept {
  double e = 0.0;
  for (std::size_t c : counts) {
    if (c == 0) continue;
    const double p = static_cast<double>(c) / static_cast<double>(n);
    e -= p * std::log2(p);
  }
  return e;
}

std::size_t distinct(const std::vector<std::size_t>& counts) noexcept {
  return static_cast<std::size_t>(
      std::count_if(counts.begin(), counts.end(), [](std::size_t c) { return c > 0; }));
}

// Values sorted with their class numbers.
using Sample = std::vector<std::pair<double, std::size_t>>;

// Cuts sample[first, last) recursively, appending accepted cut points.
void mdl_cut(const Sample& s, std::size_t first, std::size_t last, std::size_t classes,
             std::vector<double>& cuts) {
  const std::size_t n = last - first;
  if (n < 2) return;
  std::vector<std::size_t> all(classes, 0), left(classes, 0);
  for (std::size_t i = first; i < last; ++i) ++all[s[i].second];
  const double ent = entropy(all, n);
  if (ent == 0.0) return;  // one class: nothing to gain
  double best = HUGE_VAL;
  std::size_t best_at = last;
  std::vector<std::size_t> best_left;
  for (std::size_t i = first; i + 1 < last; ++i) {
    ++left[s[i].second];
    if (s[i].first == s[i + 1].first) continue;  // only between distinct values
    std::vector<std::size_t> right(classes);
    for (std::size_t c = 0; c < classes; ++c) right[c] = all[c] - left[c];
    const std::size_t n1 = i + 1 - first;
    const double e = (static_cast<double>(n1) * entropy(left, n1) +
                      static_cast<double>(n - n1) * entropy(right, n - n1)) /
                     static_cast<double>(n);
    if (e < best) {
      best = e;
      best_at = i + 1;
      best_left = left;
    }
  }
  if (best_at == last) return;  // every value equal
  const std::size_t n1 = best_at - first;
  std::vector<std::size_t> best_right(classes);
  for (std::size_t c = 0; c < classes; ++c) best_right[c] = all[c] - best_left[c];
  const double e1 = entropy(best_left, n1), e2 = entropy(best_right, n - n1);
  const double k = static_cast<double>(distinct(all));
  const double k1 = static_cast<double>(distinct(best_left));
  const double k2 = static_cast<double>(distinct(best_right));
  const double delta = std::log2(std::pow(3.0, k) - 2.0) - (k * ent - k1 * e1 - k2 * e2);
  const double nn = static_cast<double>(n);
  if (!(ent - best > (std::log2(nn - 1.0) + delta) / nn)) return;
  mdl_cut(s, first, best_at, classes, cuts);
  cuts.push_back((s[best_at - 1].first + s[best_at].first) / 2.0);
  mdl_cut(s, best_at, last, classes, cuts);
}

void append_bound(std::string& out, double x) {
  if (std::isinf(x)) {
    out += x < 0 ? "-infinity" : "infinity";
    return;
  }
  char buffer[32];
  const auto r = std::to_chars(buffer, buffer + sizeof buffer, x);
  out.append(buffer, r.ptr);
}

bool parse_bound(const std::string& text, double& x) noexcept {
  if (text == "-infinity") x = -HUGE_VAL;
  else if (text == "infinity") x = HUGE_VAL;
  else return cell_number(text.c_str(), x);
  return true;
}

}  // namespace

std::vector<double> column_numbers(const DataSet& data, std::size_t column) {
  std::vector<double> values;
  for (std::size_t r = 0; r < data.row_count(); ++r) {
    const char* text = data.cell(r, column);
    if (text == nullptr) continue;
    double x = 0.0;
    if (!cell_number(text, x))
      throw Error(K_ERROR_INVALID_EXPRESSION, "row " + std::to_string(r) + " is not a number");
    values.push_back(x);
  }
  return values;
}

std::vector<double> binning_cut_points(std::vector<double> values, Binning binning,
                                       std::size_t intervals) {
  require(intervals >= 1);
  std::vector<double> cuts;
  if (values.empty()) return cuts;
  std::sort(values.begin(), values.end());
  const double lo = values.front(), hi = values.back();
  const std::size_t n = values.size();
  for (std::size_t k = 1; k < intervals; ++k) {
    double cut = 0.0;
    if (binning == Binning::equal_width) {
      cut = lo + (hi - lo) * static_cast<double>(k) / static_cast<double>(intervals);
    } else {
      // The first k n / intervals values (rounded down) go below the cut.
      const std::size_t below = k * n / intervals;
      if (below == 0 || below >= n || values[below - 1] == values[below]) continue;
      cut = (values[below - 1] + values[below]) / 2.0;
    }
    if (cut <= lo || cut > hi || (!cuts.empty() && cut <= cuts.back())) continue;
    cuts.push_back(cut);
  }
  return cuts;
}

std::vector<double> iem_cut_points(const DataSet& data, std::size_t column,
                                   std::size_t class_column) {
  Sample sample;
  std::map<std::string, std::size_t> classes;
  for (std::size_t r = 0; r < data.row_count(); ++r) {
    const char* text = data.cell(r, column);
    const char* label = data.cell(r, class_column);
    if (text == nullptr || label == nullptr) continue;
    double x = 0.0;
    if (!cell_number(text, x))
      throw Error(K_ERROR_INVALID_EXPRESSION, "row " + std::to_string(r) + " is not a number");
    const auto [it, added] = classes.emplace(label, classes.size());
    sample.emplace_back(x, it->second);
  }
  std::stable_sort(sample.begin(), sample.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  std::vector<double> cuts;
  mdl_cut(sample, 0, sample.size(), classes.size(), cuts);
  return cuts;
}

std::string interval_text(double lo, double hi) {
  std::string out = "[";
  append_bound(out, lo);
  out += ';';
  append_bound(out, hi);
  out += ')';
  return out;
}

bool parse_interval(const std::string& text, double& lo, double& hi) noexcept {
  std::size_t begin = text.find_first_not_of(" \t");
  std::size_t end = text.find_last_not_of(" \t");
  if (begin == std::string::npos || text[begin] != '[' || text[end] != ')') return false;
  const std::size_t semicolon = text.find(';', begin);
  if (semicolon == std::string::npos || semicolon > end) return false;
  try {
    const std::string a = text.substr(begin + 1, semicolon - begin - 1);
    const std::string b = text.substr(semicolon + 1, end - semicolon - 1);
    double x = 0.0, y = 0.0;
    if (!parse_bound(a, x) || !parse_bound(b, y) || !(x < y)) return false;
    lo = x;
    hi = y;
    return true;
  } catch (...) {
    return false;  // no memory for the bounds' copies
  }
}

bool column_holds_intervals(const DataSet& data, std::size_t column) noexcept {
  double lo = 0.0, hi = 0.0;
  for (std::size_t r = 0; r < data.row_count(); ++r) {
    const char* text = data.cell(r, column);
    if (text != nullptr && !parse_interval(text, lo, hi)) return false;
  }
  return true;
}

void apply_cut_points(DataSet& data, std::size_t column, const std::vector<double>& cuts) {
  for (std::size_t i = 0; i < cuts.size(); ++i)
    require(std::isfinite(cuts[i]) && (i == 0 || cuts[i - 1] < cuts[i]));
  // Every new text first, so that a failure changes nothing.
  // One text per interval, which the cells then point to.
  std::vector<std::string> labels(cuts.size() + 1);
  for (std::size_t k = 0; k <= cuts.size(); ++k)
    labels[k] =
        interval_text(k == 0 ? -HUGE_VAL : cuts[k - 1], k == cuts.size() ? HUGE_VAL : cuts[k]);
  std::vector<std::size_t> which;
  std::vector<const char*> texts;
  for (std::size_t r = 0; r < data.row_count(); ++r) {
    const char* text = data.cell(r, column);
    if (text == nullptr) continue;
    double x = 0.0;
    if (!cell_number(text, x))
      throw Error(K_ERROR_INVALID_EXPRESSION, "row " + std::to_string(r) + " is not a number");
    const std::size_t k =
        static_cast<std::size_t>(std::upper_bound(cuts.begin(), cuts.end(), x) - cuts.begin());
    which.push_back(r);
    texts.push_back(labels[k].c_str());
  }
  data.set_cells(column, which, texts);
}

void shift_column(DataSet& data, std::size_t column, std::int64_t shift) {
  const std::size_t rows = data.row_count();
  // The texts stay where they are until every new row is built.
  std::vector<const char*> moved(rows, nullptr);
  for (std::size_t r = 0; r < rows; ++r) {
    const std::int64_t to = static_cast<std::int64_t>(r) + shift;
    if (to < 0 || to >= static_cast<std::int64_t>(rows)) continue;
    moved[static_cast<std::size_t>(to)] = data.cell(r, column);
  }
  std::vector<std::size_t> which(rows);
  for (std::size_t r = 0; r < rows; ++r) which[r] = r;
  data.set_cells(column, which, moved);
}

}  // namespace kelva
