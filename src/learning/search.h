#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include "kelva/kelva.h"
#include "learning/pdag.h"
#include "learning/structure_data.h"

namespace kelva {

class Domain;
class Node;

/// Parent sets by variable.
using ParentSets = std::vector<std::vector<std::size_t>>;

/// Decomposable scores of families from the cases, cached by family.  A
/// family's log-likelihood is Σ_jk N_jk ln(N_jk / N_j) over the cases that
/// observe it; AIC subtracts its free parameters (r - 1) q, BIC half of them
/// times ln of the total case count.
class FamilyScorer {
 public:
  FamilyScorer(const LearningData& data, k_score_t score);
  /// The score of `child` with `parents` (in any order).
  double score(std::size_t child, std::vector<std::size_t> parents);
  /// Whether the family has at most as many parent configurations as cases.
  bool affordable(const std::vector<std::size_t>& parents) const;
  double network(const ParentSets& parents);

 private:
  const LearningData& data_;
  k_score_t kind_;
  double log_n_;
  std::unordered_map<std::string, double> cache_;
};

/// The options of the greedy search.
struct GreedyOptions {
  k_score_t score = K_SCORE_BIC;
  std::size_t tabu_length = 0;
  std::size_t restarts = 0;
};

/// Hill climbing from `start` (which must hold the required links and be
/// acyclic) over single additions, deletions and reversals the rules allow.
/// Returns the best network seen; its score is never below the start's.
ParentSets greedy_search(const LearningData& data, const EdgeRules& rules,
                         const GreedyOptions& options, ParentSets start, std::mt19937_64& random);

/// The Chow-Liu tree directed from `root`; with a `target` (not npos), the
/// tree-augmented naive Bayes network of the other variables.  Throws
/// Error(usage) when the rules cannot be met by such a tree.
ParentSets chow_liu(const LearningData& data, const EdgeRules& rules, std::size_t root,
                    std::size_t target);

/// Domain-level learners: read the cases, learn, install.
void learn_greedy_structure(Domain& domain, const GreedyOptions& options, bool from_current);
void learn_tree_structure(Domain& domain, const Node& root, const Node* target);
/// The score of the domain's links over its cases.
double structure_score(const Domain& domain, k_score_t score);

}  // namespace kelva
