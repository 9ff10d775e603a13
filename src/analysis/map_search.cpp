#include "analysis/map_search.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <unordered_set>

#include "compile/junction_forest.h"
#include "inference/evidence.h"
#include "inference/propagate.h"
#include "network/domain.h"
#include "network/error.h"
#include "network/node.h"

namespace kelva {

namespace {

/// The entered evidence of a node, as the search found it.
struct EnteredEvidence {
  std::int64_t code;
  std::vector<double> vector;
  bool value_entered;
  double value;
};

EnteredEvidence save(const Node& node) {
  const Evidence& e = node.evidence;
  return {e.entered_code, e.entered_vector, e.value_entered, e.entered_value};
}

void restore(Node& node, const EnteredEvidence& saved) noexcept {
  Evidence& e = node.evidence;
  e.entered_code = saved.code;
  e.entered_vector = saved.vector;  // same size as before: no allocation
  e.value_entered = saved.value_entered;
  e.entered_value = saved.value;
}

void verify_search(const Domain& domain, const std::vector<Node*>& nodes, double min_probability) {
  require(domain.is_compiled(), K_ERROR_NOT_COMPILED);
  if (nodes.empty()) throw Error(K_ERROR_USAGE, "no MAP nodes given");
  if (!(min_probability > 0.0 && min_probability <= 1.0))
    throw Error(K_ERROR_USAGE, "the minimum probability must be above 0 and at most 1");
  std::unordered_set<const Node*> seen;
  const Forest& forest = *domain.forest();
  for (const Node* n : nodes) {
    require(n != nullptr && n->is(ObjectTag::node));
    if (&n->domain() != &domain || !n->is_discrete() || n->category() != K_CATEGORY_CHANCE ||
        n->forest_slot >= forest.nodes.size() || forest.nodes[n->forest_slot].home == nullptr)
      throw Error(K_ERROR_USAGE,
                  "MAP node '" + n->name() + "' is not a discrete chance node of the domain");
    if (!seen.insert(n).second)
      throw Error(K_ERROR_USAGE, "MAP node '" + n->name() + "' is given twice");
  }
  for (const auto& tree : forest.trees) {
    if (tree->equilibrium == K_EQUILIBRIUM_NONE)
      throw Error(K_ERROR_NO_EQUILIBRIUM, "the domain is not propagated");
    if (tree->equilibrium != K_EQUILIBRIUM_SUM || tree->mode != K_MODE_NORMAL)
      throw Error(K_ERROR_USAGE, "MAP search needs sum equilibrium in normal mode");
    if (tree->evidence_to_propagate > 0 || tree->tables_changed ||
        tree->table_changes_seen != domain.table_changes())
      throw Error(K_ERROR_USAGE, "the domain has evidence or tables still to propagate");
  }
}

class Search {
 public:
  Search(Domain& domain, const std::vector<Node*>& nodes, const std::vector<EnteredEvidence>& saved,
         double min_probability)
      : domain_(domain),
        nodes_(nodes),
        saved_(saved),
        min_(min_probability),
        states_(nodes.size()) {}

  /// Follows every state of node `depth` given the states chosen for the
  /// earlier ones, whose configuration has probability `probability`.
  void visit(std::size_t depth, double probability) {
    Node& node = *nodes_[depth];
    const std::vector<double> belief = domain_.forest()->slot(node)->marginal;
    const double total = std::accumulate(belief.begin(), belief.end(), 0.0);
    const bool last = depth + 1 == nodes_.size();
    bool chosen = false;
    for (std::size_t s = 0; s < belief.size(); ++s) {
      const double p = probability * (belief[s] / total);
      if (!(belief[s] > 0.0) || p < min_) continue;
      states_[depth] = s;
      if (last) {
        found_states.insert(found_states.end(), states_.begin(), states_.end());
        found_probabilities.push_back(p);
        continue;
      }
      select_state(node, s);
      propagate_domain(domain_, K_EQUILIBRIUM_SUM, K_MODE_NORMAL);
      visit(depth + 1, p);
      chosen = true;
    }
    if (chosen) {  // the earlier nodes' next states see this one as entered
      restore(node, saved_[depth]);
      JunctionTree& tree = *domain_.forest()->slot(node)->tree;
      tree.evidence_to_propagate = count_evidence_to_propagate(tree);
    }
  }

  std::vector<k_size_t> found_states;
  std::vector<double> found_probabilities;

 private:
  Domain& domain_;
  const std::vector<Node*>& nodes_;
  const std::vector<EnteredEvidence>& saved_;
  double min_;
  std::vector<k_size_t> states_;
};

const Domain::Analysis& searched(const Domain& domain) {
  if (!domain.is_compiled() || domain.analysis.map_forest != domain.forest_serial())
    throw Error(K_ERROR_USAGE, "no MAP configurations were found on this compilation");
  return domain.analysis;
}

}  // namespace

void find_map_configurations(Domain& domain, const std::vector<Node*>& nodes,
                             double min_probability) {
  verify_search(domain, nodes, min_probability);
  std::vector<EnteredEvidence> saved;
  saved.reserve(nodes.size());
  for (const Node* n : nodes) saved.push_back(save(*n));
  Search search(domain, nodes, saved, min_probability);
  auto put_back = [&] {
    for (std::size_t i = 0; i < nodes.size(); ++i) restore(*nodes[i], saved[i]);
    for (const auto& tree : domain.forest()->trees)
      tree->evidence_to_propagate = count_evidence_to_propagate(*tree);
    propagate_domain(domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL);
  };
  try {
    search.visit(0, 1.0);
  } catch (...) {
    try {
      put_back();
    } catch (...) {  // the first failure is the one reported
    }
    throw;
  }
  put_back();

  // Most probable first; equal probabilities in configuration order.
  const std::size_t width = nodes.size();
  const std::size_t count = search.found_probabilities.size();
  std::vector<std::size_t> order(count);
  std::iota(order.begin(), order.end(), 0);
  const auto& states = search.found_states;
  const auto& probabilities = search.found_probabilities;
  std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
    if (probabilities[a] != probabilities[b]) return probabilities[a] > probabilities[b];
    return std::lexicographical_compare(
        states.begin() + a * width, states.begin() + (a + 1) * width, states.begin() + b * width,
        states.begin() + (b + 1) * width);
  });
  std::vector<k_size_t> sorted_states;
  std::vector<double> sorted_probabilities;
  sorted_states.reserve(states.size());
  sorted_probabilities.reserve(count);
  for (std::size_t i : order) {
    sorted_states.insert(sorted_states.end(), states.begin() + i * width,
                         states.begin() + (i + 1) * width);
    sorted_probabilities.push_back(probabilities[i]);
  }
  std::vector<Node*> kept(nodes);
  auto& a = domain.analysis;
  a.map_nodes.swap(kept);
  a.map_states.swap(sorted_states);
  a.map_probabilities.swap(sorted_probabilities);
  a.map_forest = domain.forest_serial();
}

std::uint64_t map_configuration_count(const Domain& domain) {
  return searched(domain).map_probabilities.size();
}

const k_size_t* map_configuration(const Domain& domain, std::uint64_t index) {
  const auto& a = searched(domain);
  if (index >= a.map_probabilities.size())
    throw Error(K_ERROR_USAGE, "no MAP configuration " + std::to_string(index));
  return a.map_states.data() + index * a.map_nodes.size();
}

double map_configuration_probability(const Domain& domain, std::uint64_t index) {
  const auto& a = searched(domain);
  if (index >= a.map_probabilities.size())
    throw Error(K_ERROR_USAGE, "no MAP configuration " + std::to_string(index));
  return a.map_probabilities[index];
}

}  // namespace kelva
