#include "beliefs_report.h"

#include <algorithm>

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
    for (std::size_t s = 0; s < node.labels.size(); ++s)
      width = std::max(width, state_name(node, s).size());
    for (std::size_t s = 0; s < node.labels.size(); ++s)
      std::fprintf(out, "  %-*s  %g\n", static_cast<int>(width), state_name(node, s).c_str(),
                   node.beliefs[s]);
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
