#include "beliefs_report.h"

#include <algorithm>
#include <cmath>

#include "cli_error.h"
#include "report_writers.h"

namespace kelva::cli {

namespace {

/// True for the nodes whose beliefs are reported: discrete chance,
/// decision and function nodes.
bool has_beliefs(k_node_t node) {
  if (checked(k_node_get_kind(node)) != K_KIND_DISCRETE) return false;
  const k_category_t category = checked(k_node_get_category(node));
  return category == K_CATEGORY_CHANCE || category == K_CATEGORY_DECISION ||
         category == K_CATEGORY_FUNCTION;
}

/// A belief as the text report writes it ("%g").
std::string number_text(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", value);
  return text;
}

/// Cells of a full bar: a belief of 1 fills them all.
constexpr int kBarCells = 20;

/// `belief` as a bar of block characters, eighths of a cell at the end;
/// empty for 0 and for what is not a number, full for 1 and above.
std::string belief_bar(double belief) {
  static constexpr const char* kEighths[] = {"",       "\u258f", "\u258e", "\u258d",
                                             "\u258c", "\u258b", "\u258a", "\u2589"};
  if (!(belief > 0.0)) return {};
  const double clamped = std::min(belief, 1.0);
  const auto units = static_cast<int>(std::lround(clamped * kBarCells * 8));
  std::string bar;
  for (int cell = 0; cell < units / 8; ++cell) bar += "\u2588";
  bar += kEighths[units % 8];
  return bar;
}

/// A state line: the name padded to `name_width`, the belief, and its bar
/// after the belief padded to `number_width`, so that the bars of a node
/// start in one column. A line without a bar ends at the belief.
void write_state_line(std::FILE* out, const std::string& name, int name_width, double belief,
                      bool with_bar, int number_width) {
  const std::string bar = with_bar ? belief_bar(belief) : std::string();
  if (bar.empty()) {
    std::fprintf(out, "  %-*s  %g\n", name_width, name.c_str(), belief);
    return;
  }
  std::fprintf(out, "  %-*s  %-*s  %s\n", name_width, name.c_str(), number_width,
               number_text(belief).c_str(), bar.c_str());
}

}  // namespace

BeliefsInfo read_beliefs(k_domain_t domain) {
  BeliefsInfo info;
  for (k_node_t node = checked(k_domain_get_first_node(domain)); node != nullptr;
       node = checked(k_node_get_next(node))) {
    if (checked(k_node_get_kind(node)) == K_KIND_CONTINUOUS &&
        checked(k_node_get_category(node)) == K_CATEGORY_CHANCE) {
      // A continuous node is reported by its mean and variance, as two
      // "states" of those names.
      NodeBeliefs moments;
      moments.name = checked(k_node_get_name(node));
      moments.evidence = checked(k_node_evidence_is_entered(node)) == 1;
      moments.labels = {"mean", "variance"};
      moments.moments = true;
      moments.beliefs = {checked(k_node_get_mean(node)), checked(k_node_get_variance(node))};
      info.nodes.push_back(std::move(moments));
      continue;
    }
    if (!has_beliefs(node)) continue;
    NodeBeliefs beliefs;
    beliefs.name = checked(k_node_get_name(node));
    beliefs.evidence = checked(k_node_evidence_is_entered(node)) == 1;
    const k_size_t count = checked(k_node_get_number_of_states(node));
    for (k_size_t i = 0; i < count; ++i) {
      beliefs.labels.emplace_back(checked(k_node_get_state_label(node, i)));
      beliefs.beliefs.push_back(checked(k_node_get_belief(node, i)));
    }
    info.nodes.push_back(std::move(beliefs));
  }
  info.normalization_constant = checked(k_domain_get_normalization_constant(domain));
  if (checked(k_domain_get_number_of_utility_nodes(domain)) > 0 &&
      checked(k_domain_equilibrium_is(domain, K_EQUILIBRIUM_SUM)) == 1)
    info.expected_utility = checked(k_domain_get_expected_utility(domain));
  return info;
}

std::string state_name(const NodeBeliefs& node, std::size_t state) {
  if (!node.labels[state].empty()) return node.labels[state];
  std::string name = "#";
  name += std::to_string(state);
  return name;
}

void write_beliefs_text(std::FILE* out, const BeliefsInfo& info) {
  std::fprintf(out, "beliefs of %s (%s equilibrium), %zu nodes\n", info.source.c_str(),
               info.equilibrium == K_EQUILIBRIUM_MAX ? "max" : "sum", info.nodes.size());
  std::fprintf(out, "evidence:");
  if (info.findings.empty()) std::fprintf(out, " none");
  for (const std::string& finding : info.findings) std::fprintf(out, " %s", finding.c_str());
  std::fprintf(out, "\n");
  for (const NodeBeliefs& node : info.nodes) {
    std::fprintf(out, "\n%s%s\n", node.name.c_str(), node.evidence ? " (evidence)" : "");
    std::size_t width = 0;
    std::size_t number_width = 0;
    for (std::size_t s = 0; s < node.labels.size(); ++s) {
      width = std::max(width, state_name(node, s).size());
      number_width = std::max(number_width, number_text(node.beliefs[s]).size());
    }
    for (std::size_t s = 0; s < node.labels.size(); ++s)
      write_state_line(out, state_name(node, s), static_cast<int>(width), node.beliefs[s],
                       !node.moments, static_cast<int>(number_width));
  }
  std::fprintf(out, "\nnormalization constant: %g\n", info.normalization_constant);
  if (info.expected_utility) std::fprintf(out, "expected utility: %g\n", *info.expected_utility);
}

void write_beliefs_tsv(std::FILE* out, const BeliefsInfo& info) {
  for (const NodeBeliefs& node : info.nodes) {
    const std::string name = tsv_field(node.name);
    for (std::size_t s = 0; s < node.labels.size(); ++s)
      std::fprintf(out, "%s\t%s\t%.17g\n", name.c_str(), tsv_field(state_name(node, s)).c_str(),
                   node.beliefs[s]);
  }
  std::fprintf(out, "normalization_constant\t%.17g\n", info.normalization_constant);
  if (info.expected_utility) std::fprintf(out, "expected_utility\t%.17g\n", *info.expected_utility);
}

}  // namespace kelva::cli
