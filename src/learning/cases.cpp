// Stored cases above the network's case store: rows of a data set added as
// cases, and a stored case entered as evidence.
#include "learning/cases.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "dataset/data_set.h"
#include "dataset/discretize.h"
#include "inference/evidence.h"
#include "network/domain.h"
#include "network/error.h"
#include "network/node.h"

namespace kelva {

namespace {

// True when stored cases can give `node` an item: a state for a discrete
// chance, decision or function node, a value for a continuous chance node.
bool holds_case_items(const Node& node) noexcept {
  if (node.is_discrete())
    return node.category() == K_CATEGORY_CHANCE || node.category() == K_CATEGORY_DECISION ||
           node.category() == K_CATEGORY_FUNCTION;
  return node.is_continuous() && node.category() == K_CATEGORY_CHANCE;
}

// The state whose value (number node) or interval [v(i), v(i+1)) (interval
// node) holds `x`, or -1.
std::int64_t state_of_value(const Node& node, double x) noexcept {
  for (std::size_t i = 0; i < node.state_count(); ++i) {
    const bool holds = node.subtype() == K_SUBTYPE_NUMBER
                           ? node.state_value(i) == x
                           : node.state_value(i) <= x && x < node.state_value(i + 1);
    if (holds) return static_cast<std::int64_t>(i);
  }
  return -1;
}

// The state of an interval node whose bounds are [lo, hi), or -1.  A bound
// at or beyond the largest double counts as infinite, as NET text has it.
std::int64_t state_of_interval(const Node& node, double lo, double hi) noexcept {
  const auto same = [](double a, double b) {
    const double big = std::numeric_limits<double>::max();
    return a == b || (a >= big && b >= big) || (a <= -big && b <= -big);
  };
  for (std::size_t i = 0; i < node.state_count(); ++i)
    if (same(node.state_value(i), lo) && same(node.state_value(i + 1), hi))
      return static_cast<std::int64_t>(i);
  return -1;
}

// The one state labelled `text`, or -1 (none, or more than one).
std::int64_t state_of_label(const Node& node, const std::string& text) noexcept {
  std::int64_t found = -1;
  for (std::size_t i = 0; i < node.state_count(); ++i) {
    if (text != node.state_label(i)) continue;
    if (found >= 0) return -1;
    found = static_cast<std::int64_t>(i);
  }
  return found;
}

// `#` and a state index, or -1.
std::int64_t state_of_index(const Node& node, const std::string& text) noexcept {
  if (text.size() < 2 || text[0] != '#' || text.size() > 20) return -1;
  std::uint64_t index = 0;
  for (std::size_t i = 1; i < text.size(); ++i) {
    if (text[i] < '0' || text[i] > '9') return -1;
    index = index * 10 + static_cast<std::uint64_t>(text[i] - '0');
    if (index >= node.state_count()) return -1;
  }
  return static_cast<std::int64_t>(index);
}

// The state a cell names for a discrete node: a number for number and
// interval nodes (or an interval text for interval nodes), false/true for
// boolean nodes, a unique label, or `#` and
// an index.  Error(usage) when it names none.
std::int32_t cell_state(const Node& node, const std::string& text) {
  std::int64_t state = -1;
  double x = 0.0;
  const bool numeric = node.subtype() == K_SUBTYPE_NUMBER || node.subtype() == K_SUBTYPE_INTERVAL;
  double lo = 0.0, hi = 0.0;
  if (numeric && cell_number(text.c_str(), x)) {
    state = state_of_value(node, x);
  } else if (node.subtype() == K_SUBTYPE_INTERVAL && parse_interval(text, lo, hi)) {
    state = state_of_interval(node, lo, hi);
  } else {
    if (node.subtype() == K_SUBTYPE_BOOLEAN && node.state_count() == 2) {
      if (text == "false") state = 0;
      if (text == "true") state = 1;
    }
    if (state < 0) state = state_of_label(node, text);
    if (state < 0) state = state_of_index(node, text);
  }
  require(state >= 0);
  require(state <= CaseColumn::kMaxState, K_ERROR_CASE_STATE_TOO_LARGE);
  return static_cast<std::int32_t>(state);
}

// One used column with its converted cells.
struct Items {
  std::size_t column;
  Node* node;
  std::vector<std::int32_t> states;  // discrete nodes; kUnset for missing
  std::vector<double> values;        // continuous nodes; NaN for missing
};

}  // namespace

void add_cases(Domain& domain, const DataSet& data, std::size_t first, std::size_t count) {
  // Match the columns and convert every cell before anything is stored.
  std::vector<Items> used;
  const std::size_t no_column = data.column_count();
  std::size_t count_column = no_column;
  for (std::size_t c = 0; c < data.column_count(); ++c) {
    if (data.columns[c] == kCountColumn) {
      require(count_column == no_column);
      count_column = c;
      continue;
    }
    Node* node = domain.find(data.columns[c]);
    if (node == nullptr || !holds_case_items(*node)) continue;
    for (const Items& u : used) require(u.node != node);  // two columns for one node
    used.push_back(Items{c, node, {}, {}});
  }
  for (Items& u : used) {
    if (u.node->is_discrete()) u.states.assign(count, CaseColumn::kUnset);
    else u.values.assign(count, std::nan(""));
    for (std::size_t i = 0; i < count; ++i) {
      const char* text = data.cell(first + i, u.column);
      if (text == nullptr) continue;
      if (u.node->is_discrete()) {
        u.states[i] = cell_state(*u.node, text);
      } else {
        require(cell_number(text, u.values[i]));
      }
    }
  }
  std::vector<double> counts;
  if (count_column != no_column) {
    counts.assign(count, -1.0);  // -1: the cell is missing, the count stays 1
    for (std::size_t i = 0; i < count; ++i) {
      const char* text = data.cell(first + i, count_column);
      if (text == nullptr) continue;
      require(cell_number(text, counts[i]) && counts[i] >= 0.0);
    }
  }

  // Store; running out of memory half-way drops the new cases again.
  const std::size_t before = domain.cases.size();
  const bool counts_were_set = domain.cases.counts_set();
  try {
    domain.set_number_of_cases(before + count);
    for (const Items& u : used)
      for (std::size_t i = 0; i < count; ++i) {
        if (u.node->is_discrete()) {
          if (u.states[i] != CaseColumn::kUnset) u.node->cases.set_state(before + i, u.states[i]);
        } else if (!std::isnan(u.values[i])) {
          u.node->cases.set_value(before + i, u.values[i]);
        }
      }
    for (std::size_t i = 0; i < counts.size(); ++i)
      if (counts[i] >= 0.0) domain.cases.set_count(before + i, counts[i]);
  } catch (...) {
    domain.set_number_of_cases(before);
    domain.cases.set_counts_set(counts_were_set);
    throw;
  }
  if (count > 0) domain.cached_log_likelihood.reset();
}

bool case_can_be_entered(const Domain& domain, std::size_t c) noexcept {
  if (c >= domain.cases.size() || !accepts_evidence(domain)) return false;
  for (const Node* n = domain.first_node(); n != nullptr; n = n->next) {
    if (!n->cases.is_set(c)) continue;
    if (n->is_discrete()) {
      const auto state = n->cases.state(c);
      if (state < 0 || static_cast<std::size_t>(state) >= n->state_count()) return false;
    } else if (!n->is_continuous() || !std::isfinite(n->cases.value(c))) {
      return false;
    }
  }
  return true;
}

void enter_case_evidence(Domain& domain, std::size_t c) {
  for (Node* n = domain.first_node(); n != nullptr; n = n->next) {
    if (!n->is_discrete() && !n->is_continuous()) continue;
    if (!n->cases.is_set(c)) retract_findings(*n);
    else if (n->is_discrete()) select_state(*n, static_cast<std::size_t>(n->cases.state(c)));
    else enter_value(*n, n->cases.value(c));
  }
}

}  // namespace kelva
