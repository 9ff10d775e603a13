// `kelva decide`: compile an influence diagram, enter evidence, update the
// policies and print, per decision, its best option for each configuration
// of its requisite parents and the expected utility of every option.

#include <cmath>
#include <string>
#include <vector>

#include "cli_error.h"
#include "commands.h"
#include "evidence_input.h"
#include "network_source.h"
#include "report_writers.h"

namespace kelva::cli {

namespace {

std::string node_name(k_node_t node) { return k_node_get_name(node); }

std::string state_text(k_node_t node, std::size_t state) {
  std::string label = k_node_get_state_label(node, state);
  if (!label.empty()) return label;
  label.push_back('#');
  label.append(std::to_string(state));
  return label;
}

std::vector<k_node_t> list_of(k_node_t* list) {
  if (list == nullptr) throw ApiError(k_error_code());
  std::vector<k_node_t> out;
  for (; *list != nullptr; ++list) out.push_back(*list);
  return out;
}

// One decision's answers.
struct DecisionReport {
  k_node_t node = nullptr;
  std::vector<k_node_t> requisite;
  /// Per configuration of the requisite parents (last fastest): the
  /// configuration's text and the option the policy takes there.
  std::vector<std::pair<std::string, std::size_t>> rules;
  std::vector<double> utilities;  ///< per option
  /// Per option: the standard deviation of the total utility.
  std::vector<double> spreads;
};

DecisionReport read_decision(k_node_t decision) {
  DecisionReport r;
  r.node = decision;
  r.requisite = list_of(k_node_get_requisite_parents(decision));
  k_table_t policy = k_node_get_table(decision);
  const std::vector<k_node_t> members = list_of(k_table_get_nodes(policy));
  std::vector<double> data(k_table_get_size(policy));
  if (k_table_get_data(policy, data.data(), data.size(), 0, data.size()) != 0)
    throw ApiError(k_error_code());
  const std::size_t options = k_node_get_number_of_states(decision);
  // Configurations of the requisite parents; each takes the policy's first
  // row that agrees with it (the other parents cannot change the choice).
  std::vector<std::size_t> states(r.requisite.size(), 0);
  for (bool more = true; more;) {
    std::string text;
    for (std::size_t i = 0; i < states.size(); ++i) {
      if (i > 0) text.push_back(' ');
      text.append(node_name(r.requisite[i]));
      text.push_back('=');
      text.append(state_text(r.requisite[i], states[i]));
    }
    for (std::size_t row = 0; row < data.size(); row += options) {
      bool agrees = true;
      std::size_t rest = row / options;
      for (std::size_t m = members.size() - 1; m-- > 0;) {
        const std::size_t count = k_node_get_number_of_states(members[m]);
        const std::size_t s = rest % count;
        rest /= count;
        for (std::size_t i = 0; i < states.size(); ++i)
          if (members[m] == r.requisite[i] && states[i] != s) agrees = false;
      }
      if (!agrees) continue;
      std::size_t best = 0;
      for (std::size_t k = 1; k < options; ++k)
        if (data[row + k] > data[row + best]) best = k;
      r.rules.emplace_back(text, best);
      break;
    }
    std::size_t i = states.size();
    while (i-- > 0 && ++states[i] == k_node_get_number_of_states(r.requisite[i])) states[i] = 0;
    more = i != static_cast<std::size_t>(-1);
  }
  for (std::size_t k = 0; k < options; ++k) {
    const double eu = k_node_get_expected_utility(decision, k);
    if (k_error_code() != K_ERROR_NONE) throw ApiError(k_error_code());
    r.utilities.push_back(eu);
    const double variance = k_node_get_variance_of_utility(decision, k);
    if (k_error_code() != K_ERROR_NONE) throw ApiError(k_error_code());
    r.spreads.push_back(std::sqrt(variance));
  }
  return r;
}

}  // namespace

void run_decide(std::FILE* out, const Options& options) {
  const Progress progress(options.quiet);
  DomainHandle domain = open_network(options.source, progress);
  if (k_domain_get_number_of_decision_nodes(domain.get()) == 0 ||
      k_domain_get_number_of_utility_nodes(domain.get()) == 0)
    throw UsageError("decide needs an influence diagram (decision and utility nodes)");
  compile_network(domain.get(), source_name(options.source), progress);
  enter_evidence(domain.get(), options);
  if (k_domain_update_policies(domain.get()) != 0) throw ApiError(k_error_code());
  std::vector<DecisionReport> reports;
  for (k_node_t n = k_domain_get_first_node(domain.get()); n != nullptr; n = k_node_get_next(n))
    if (k_node_get_category(n) == K_CATEGORY_DECISION) reports.push_back(read_decision(n));
  const double meu = k_domain_get_expected_utility(domain.get());
  if (k_error_code() != K_ERROR_NONE) throw ApiError(k_error_code());

  if (options.format == Format::tsv) {
    for (const DecisionReport& r : reports)
      for (std::size_t k = 0; k < r.utilities.size(); ++k)
        std::fprintf(out, "eu\t%s\t%s\t%.17g\n", tsv_field(node_name(r.node)).c_str(),
                     tsv_field(state_text(r.node, k)).c_str(), r.utilities[k]);
    std::fprintf(out, "expected_utility\t%.17g\n", meu);
    return;
  }
  std::fprintf(out, "decisions of %s, %zu decisions\n", source_name(options.source).c_str(),
               reports.size());
  for (const DecisionReport& r : reports) {
    std::fprintf(out, "\n%s\n", node_name(r.node).c_str());
    for (const auto& [text, option] : r.rules)
      std::fprintf(out, "  %s%s%s\n", text.c_str(), text.empty() ? "" : " -> ",
                   state_text(r.node, option).c_str());
    for (std::size_t k = 0; k < r.utilities.size(); ++k)
      std::fprintf(out, "  eu %s  %g  (sd %g)\n", state_text(r.node, k).c_str(), r.utilities[k],
                   r.spreads[k]);
  }
  std::fprintf(out, "\nmaximum expected utility: %g\n", meu);
}

}  // namespace kelva::cli
