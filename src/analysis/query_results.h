#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

#include "network/node_list.h"

namespace kelva {

class Domain;
class Node;

/// The results of the last sensitivity analysis of a domain.
struct SensitivityResults {
  struct Output {
    Node* node;
    std::size_t state;
    double probability;  ///< P(state | evidence) when computed
    NodeList set;        ///< the nodes whose tables can change it
  };
  std::vector<Output> outputs;
  /// Per node of some sensitivity set: four constants per table entry per
  /// output, output-major.
  std::unordered_map<const Node*, std::vector<double>> constants;
};

/// One explanation: a subset of the evidence and its Bayes factor.
struct Explanation {
  NodeList nodes;
  double score;
};

/// The results of the last sensitivity and explanation analyses of a
/// domain, held by the domain and valid while the junction forest they were
/// computed on is.
class QueryResults {
 public:
  QueryResults();

  std::uint64_t sensitivity_forest = 0;
  bool has_sensitivity = false;
  SensitivityResults sensitivity;

  std::uint64_t explanation_forest = 0;
  bool has_explanations = false;
  std::vector<Explanation> explanations;
};

/// The domain's results, made on first use.
QueryResults& query_results(Domain& domain);

}  // namespace kelva
