// The check of the conditional probability tables that compilation writes
// to the log: invalid entries, distributions summing to zero or infinity,
// and distributions whose sums disagree.
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "compile/compile.h"
#include "compile/compile_log.h"
#include "network/domain.h"
#include "network/error.h"
#include "network/node.h"
#include "network/state_text.h"
#include "platform/locale_guard.h"
#include "table/table.h"

namespace kelva {

namespace {

constexpr double kLargest = std::numeric_limits<double>::max();

bool valid_value(double v) noexcept { return v >= 0.0 && v < kLargest; }

// A state as a configuration line names it: by value for numeric nodes
// ("[low;high)" for an interval), by label otherwise.
std::string state_text(const Node& node, std::size_t s) {
  switch (node.subtype()) {
    case K_SUBTYPE_NUMBER:
      return format_state_value(node.state_value(s));
    case K_SUBTYPE_INTERVAL: {
      std::string text = "[";
      text += format_state_value(node.state_value(s));
      text += ';';
      text += format_state_value(node.state_value(s + 1));
      text += ')';
      return text;
    }
    default:
      return node.state_label(s);
  }
}

// One line per dimension of `table` for entry `index`, leaving out the
// dimension at `skip` (npos: none).
void write_configuration(const CompileLog& log, const Table& table, std::uint64_t index,
                         std::size_t skip) {
  const auto& counts = table.state_counts();
  std::vector<std::size_t> states(counts.size());
  for (std::size_t i = counts.size(); i-- > 0;) {
    states[i] = static_cast<std::size_t>(index % counts[i]);
    index /= counts[i];
  }
  for (std::size_t i = 0; i < counts.size(); ++i) {
    if (i == skip) continue;
    Node& node = *table.nodes()[i];
    log.write("    %s = %s\n", node.name_or_generate().c_str(),
              state_text(node, states[i]).c_str());
  }
}

// Checks the table of `node`; false when it holds an invalid value or a
// zero- or infinite-sum distribution.
bool verify_table(const CompileLog& log, Node& node, const Table& table) {
  const std::size_t pos = table.nodes().index_of(&node);
  const std::size_t dims = table.discrete_count();
  if (pos >= dims || table.size() == 0) return true;
  const auto& counts = table.state_counts();
  std::uint64_t after = 1;
  for (std::size_t i = pos + 1; i < dims; ++i) after *= counts[i];
  const std::uint64_t states = counts[pos];
  const std::uint64_t before = table.size() / (states * after);
  const double* data = table.data();
  const char* name = node.name_or_generate().c_str();

  bool valid = true;
  bool any_sum = false;
  double min = 0.0;
  double max = 0.0;
  for (std::uint64_t b = 0; b < before; ++b) {
    for (std::uint64_t a = 0; a < after; ++a) {
      const std::uint64_t first = b * states * after + a;
      bool flagged = false;
      double sum = 0.0;
      for (std::uint64_t s = 0; s < states; ++s) {
        const std::uint64_t j = first + s * after;
        const double v = data[j];
        if (valid_value(v)) {
          sum += v;
          continue;
        }
        log.write("\nPotential for %s has an invalid value (%g) for:\n", name, v);
        write_configuration(log, table, j, static_cast<std::size_t>(-1));
        flagged = true;
      }
      if (flagged) {
        valid = false;
        continue;
      }
      if (sum == 0.0 || !(sum < kLargest)) {
        const char* words = sum == 0.0 ? "a zero" : "an infinite";
        if (dims == 1) {
          log.write("\nPotential for %s is %s-sum distribution\n", name, words);
        } else {
          log.write("\nPotential for %s has %s-sum distribution for:\n", name, words);
          write_configuration(log, table, first, pos);
        }
        valid = false;
        continue;
      }
      if (!any_sum) {
        min = max = sum;
        any_sum = true;
      } else if (sum < min) {
        min = sum;
      } else if (sum > max) {
        max = sum;
      }
    }
  }
  if (!valid) return false;
  if (any_sum && max - min > min * 0.0001)
    log.write(
        "\nWarning: Conditional distributions for %s sum to different values:\n"
        "    min = %g\n    max = %g\n",
        name, min, max);
  return true;
}

}  // namespace

bool verify_probability_potentials(Domain& domain) {
  platform::CLocaleGuard locale;
  require(locale.ok(), K_ERROR_LOCALE);
  CompileLog log(domain.log());
  log.write("\n\nChecking conditional probability%s potentials:\n",
            domain.count(K_CATEGORY_DECISION) > 0 ? " and policy" : "");
  bool valid = true;
  for (Node* node = domain.first_node(); node != nullptr; node = node->next) {
    if (!node->is_discrete() || node->table() == nullptr) continue;
    if (!verify_table(log, *node, *node->table())) valid = false;
  }
  if (valid) log.write("\n    No errors found\n");
  return valid;
}

}  // namespace kelva
