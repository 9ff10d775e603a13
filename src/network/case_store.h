#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace kelva {

class Node;

/// One node's column of the domain's case store: per case a state index (a
/// discrete node) or a value (a continuous node), or nothing.  A column grows
/// only when something is set, so a case past its end has nothing set; a
/// discrete column keeps 16-bit states because a case state index is at most
/// 32767.
class CaseColumn {
 public:
  static constexpr std::int32_t kUnset = -1;
  static constexpr std::int32_t kMaxState = 32767;

  bool is_set(std::size_t c) const noexcept {
    if (c < states_.size()) return states_[c] >= 0;
    return c < values_.size() && !std::isnan(values_[c]);
  }
  /// The state of case `c`, or kUnset.
  std::int32_t state(std::size_t c) const noexcept {
    return c < states_.size() ? states_[c] : kUnset;
  }
  /// The value of case `c`, or NaN.
  double value(std::size_t c) const noexcept {
    return c < values_.size() ? values_[c] : std::numeric_limits<double>::quiet_NaN();
  }
  /// Setters grow the column as needed (they may throw std::bad_alloc and
  /// then leave the column as it was).  A column holds states or values,
  /// never both: the node's kind decides which setter is used.
  void set_state(std::size_t c, std::int32_t state) {
    if (c >= states_.size()) states_.resize(c + 1, static_cast<std::int16_t>(kUnset));
    states_[c] = static_cast<std::int16_t>(state);
  }
  void set_value(std::size_t c, double v) {
    if (c >= values_.size()) values_.resize(c + 1, std::numeric_limits<double>::quiet_NaN());
    values_[c] = v;
  }
  void unset(std::size_t c) noexcept {
    if (c < states_.size()) states_[c] = static_cast<std::int16_t>(kUnset);
    if (c < values_.size()) values_[c] = std::numeric_limits<double>::quiet_NaN();
  }
  /// Forgets every case from `n` on.
  void truncate(std::size_t n) noexcept {
    if (states_.size() > n) states_.resize(n);
    if (values_.size() > n) values_.resize(n);
  }
  /// Removes case `c`; later cases move down by one.
  void erase(std::size_t c) noexcept {
    if (c < states_.size()) states_.erase(states_.begin() + static_cast<std::ptrdiff_t>(c));
    if (c < values_.size()) values_.erase(values_.begin() + static_cast<std::ptrdiff_t>(c));
  }
  /// Unsets every state at or above `count` (the node now has fewer states).
  void drop_states_from(std::size_t count) noexcept {
    for (auto& s : states_)
      if (s >= 0 && static_cast<std::size_t>(s) >= count) s = static_cast<std::int16_t>(kUnset);
  }
  /// Follows a reordering of the node's states: old state new_to_old[i] is
  /// now state i.  Allocates before it changes anything.
  void permute_states(const std::vector<std::size_t>& new_to_old) {
    std::vector<std::int16_t> old_to_new(new_to_old.size(), static_cast<std::int16_t>(kUnset));
    for (std::size_t i = 0; i < new_to_old.size(); ++i)
      if (new_to_old[i] < old_to_new.size())
        old_to_new[new_to_old[i]] = static_cast<std::int16_t>(i);
    for (auto& s : states_)
      if (s >= 0 && static_cast<std::size_t>(s) < old_to_new.size()) s = old_to_new[s];
  }
  void clear() noexcept {
    states_.clear();
    values_.clear();
  }

 private:
  std::vector<std::int16_t> states_;
  std::vector<double> values_;
};

/// The domain's case store: the number of cases and each case's count (1
/// until set).  The items of a case live in the nodes' columns
/// (Node::cases), so deleting a node deletes its items.
class CaseStore {
 public:
  std::size_t size() const noexcept { return counts_.size(); }
  /// Appends a case with count 1 and nothing set; returns its index.
  std::size_t add() {
    counts_.push_back(1.0);
    return counts_.size() - 1;
  }
  double count(std::size_t c) const noexcept { return counts_[c]; }
  /// Sets a count (the caller checked it is finite and nonnegative); from
  /// then on the store says that counts are set.
  void set_count(std::size_t c, double count) noexcept {
    counts_[c] = count;
    counts_set_ = true;
  }
  /// True once any count was set (by the API or a data file with counts).
  bool counts_set() const noexcept { return counts_set_; }
  void set_counts_set(bool value) noexcept { counts_set_ = value; }
  /// The sum of the counts when counts are set, else the number of cases.
  double total_count() const noexcept {
    if (!counts_set_) return static_cast<double>(counts_.size());
    double total = 0.0;
    for (double c : counts_) total += c;
    return total;
  }
  /// Keeps the first `n` cases (new ones count 1); the caller truncates the
  /// nodes' columns when `n` is smaller.  Going back to no cases forgets
  /// that counts were set.
  void resize(std::size_t n) {
    counts_.resize(n, 1.0);
    if (n == 0) counts_set_ = false;
  }
  void erase(std::size_t c) noexcept {
    counts_.erase(counts_.begin() + static_cast<std::ptrdiff_t>(c));
    if (counts_.empty()) counts_set_ = false;
  }

 private:
  std::vector<double> counts_;
  bool counts_set_ = false;
};

}  // namespace kelva
