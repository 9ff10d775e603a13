#include "inference/belief_report.h"

#include <cmath>
#include <string>

#include "compile/compile_log.h"
#include "compile/junction_forest.h"
#include "inference/node_value.h"
#include "network/domain.h"
#include "network/error.h"
#include "network/node.h"
#include "network/state_text.h"
#include "platform/locale_guard.h"

namespace kelva {

namespace {

bool is_real_function(const Node& node) {
  return node.category() == K_CATEGORY_FUNCTION && !node.is_discrete();
}

bool is_discrete_function(const Node& node) {
  return node.category() == K_CATEGORY_FUNCTION && node.is_discrete();
}

/// The forest record of a discrete or continuous node, after the checks
/// that its domain is compiled and its tree holds an equilibrium.
const NodeSlot& propagated_slot(const Node& node) {
  const Domain& domain = node.domain();
  require(domain.is_compiled(), K_ERROR_NOT_COMPILED);
  const NodeSlot* slot = domain.forest()->slot(node);
  require(slot != nullptr && slot->tree != nullptr, K_ERROR_NOT_COMPILED);
  require(slot->tree->equilibrium != K_EQUILIBRIUM_NONE, K_ERROR_NO_EQUILIBRIUM);
  return *slot;
}

/// Expected utility `i` of a node's record (NaN when propagation left none).
double expected_utility(const NodeSlot& slot, std::size_t i) {
  return i < slot.expected_utility.size() ? slot.expected_utility[i]
                                          : std::numeric_limits<double>::quiet_NaN();
}

/// Writes the lines of one node; `with_utilities` adds the expected
/// utilities of discrete states.
void write_node(const CompileLog& log, Node& node, bool with_utilities) {
  const char* name = node.name_or_generate().c_str();
  if (is_real_function(node)) {
    double value = 0.0;
    bool known = true;
    try {
      value = function_node_value(node);
    } catch (const Error&) {
      known = false;
    }
    if (known) log.write("\n    %s: %g\n", name, value);
    else log.write("\n    %s: N/A\n", name);
    return;
  }
  const NodeSlot& slot = propagated_slot(node);
  if (node.is_continuous()) {
    // Until conditional-Gaussian propagation computes moments, they are
    // not known and the node reads as unavailable.
    if (std::isnan(slot.mean)) {
      log.write("\n    %s: N/A\n", name);
    } else if (slot.variance == 0.0) {
      log.write("\n    %s --> %g\n", name, slot.mean);
    } else {
      log.write("\n    %s:\n", name);
      log.write("\tMean: %g   Variance: %g   SD: %g\n", slot.mean, slot.variance,
                std::sqrt(slot.variance));
    }
    return;
  }
  const std::int64_t selected = node.evidence.propagated_code;
  if (selected >= 0) {
    const auto k = static_cast<std::size_t>(selected);
    log.write("\n    %s --> %s", name, case_state_text(node, k).c_str());
    if (with_utilities) log.write(" (%g)\n", expected_utility(slot, k));
    else log.write("\n");
    return;
  }
  log.write("\n    %s:\n", name);
  for (std::size_t i = 0; i < node.state_count(); ++i) {
    const double belief =
        i < slot.marginal.size() ? slot.marginal[i] : std::numeric_limits<double>::quiet_NaN();
    const char* label = node.state_label(i);
    if (label[0] != '\0') log.write("\t%-10s %g", label, belief);
    else log.write("\tstate%s   %g", std::to_string(i).c_str(), belief);
    if (with_utilities) log.write(" (%g)\n", expected_utility(slot, i));
    else log.write("\n");
  }
}

/// Nodes of the domain in node-list order that `keep` accepts.
template <class Keep>
std::vector<Node*> nodes_where(const Domain& domain, Keep keep) {
  std::vector<Node*> nodes;
  for (Node* n = domain.first_node(); n != nullptr; n = n->next)
    if (keep(*n)) nodes.push_back(n);
  return nodes;
}

/// Writes `heading` (with the suffix) and the nodes `keep` accepts, when
/// there are any.
template <class Keep>
void write_section(const CompileLog& log, Domain& domain, const char* heading, const char* suffix,
                   bool with_utilities, Keep keep) {
  const std::vector<Node*> nodes = nodes_where(domain, keep);
  if (nodes.empty()) return;
  log.write(heading, suffix);
  for (Node* n : nodes) write_node(log, *n, with_utilities);
}

}  // namespace

void report_domain_beliefs(Domain& domain) {
  require(domain.is_compiled(), K_ERROR_NOT_COMPILED);
  if (domain.log() == nullptr) return;
  const platform::CLocaleGuard locale;
  require(locale.ok(), K_ERROR_LOCALE);
  const CompileLog log(domain.log());
  const bool utilities = domain.count(K_CATEGORY_UTILITY) > 0;
  const char* suffix = utilities ? " (and expected utilities)" : "";
  write_section(log, domain, "\n\nBeliefs%s for decision nodes:\n", suffix, utilities,
                [](const Node& n) { return n.category() == K_CATEGORY_DECISION; });
  write_section(log, domain, "\n\nBeliefs%s for chance nodes:\n", suffix, utilities,
                [](const Node& n) { return n.category() == K_CATEGORY_CHANCE; });
  write_section(log, domain, "\n\nBeliefs%s for discrete function nodes:\n", suffix, utilities,
                is_discrete_function);
  if (utilities) {
    log.write("\n\nExpected utilities for utility nodes:\n");
    double total = 0.0;
    for (Node* n :
         nodes_where(domain, [](const Node& u) { return u.category() == K_CATEGORY_UTILITY; })) {
      const double eu = expected_utility(propagated_slot(*n), 0);
      log.write("\n    %s: %g\n", n->name_or_generate().c_str(), eu);
      total += eu;
    }
    log.write("\nOverall expected utility: %g\n", total);
  }
  const std::vector<Node*> functions = nodes_where(domain, is_real_function);
  if (!functions.empty()) {
    log.write("\n\nValues for real-valued function nodes:\n");
    for (Node* n : functions) write_node(log, *n, utilities);
  }
}

void report_node_beliefs(Node& node) {
  require(node.is_discrete() || node.is_continuous() || node.category() == K_CATEGORY_FUNCTION);
  Domain& domain = node.domain();
  if (domain.log() == nullptr) return;
  const platform::CLocaleGuard locale;
  require(locale.ok(), K_ERROR_LOCALE);
  write_node(CompileLog(domain.log()), node, domain.count(K_CATEGORY_UTILITY) > 0);
}

}  // namespace kelva
