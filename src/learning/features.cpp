// Feature selection for a classifier by joint mutual information.
#include "learning/features.h"

#include <cmath>
#include <string>

#include "learning/structure_learning.h"
#include "network/domain.h"
#include "network/error.h"
#include "network/node.h"

namespace kelva {

namespace {

// I(X_a, X_b; Y) (b == npos: I(X_a; Y)) over the cases observing all of them.
double joint_information(const LearningData& data, std::size_t a, std::size_t b, std::size_t y) {
  const bool pair = b != LearningData::npos;
  const std::vector<double> n = pair ? joint_counts(data, {a, b, y}) : joint_counts(data, {a, y});
  const std::size_t ry = data.states[y];
  const std::size_t rx = n.size() / ry;
  std::vector<double> nx(rx, 0.0), ny(ry, 0.0);
  double total = 0.0;
  for (std::size_t i = 0; i < rx; ++i)
    for (std::size_t j = 0; j < ry; ++j) {
      nx[i] += n[i * ry + j];
      ny[j] += n[i * ry + j];
      total += n[i * ry + j];
    }
  double sum = 0.0;
  for (std::size_t i = 0; i < rx; ++i)
    for (std::size_t j = 0; j < ry; ++j)
      if (n[i * ry + j] > 0.0)
        sum += n[i * ry + j] * std::log(n[i * ry + j] * total / (nx[i] * ny[j]));
  return total > 0.0 ? sum / total : 0.0;
}

}  // namespace

double jmi_score(const LearningData& data, std::size_t k, std::size_t y,
                 const std::vector<std::size_t>& selected) {
  if (selected.empty()) return joint_information(data, k, LearningData::npos, y);
  double sum = 0.0;
  for (std::size_t j : selected) sum += joint_information(data, k, j, y);
  return sum;
}

double jmi_score(const Node& feature, const Node& target, const NodeList& selected) {
  const LearningData data = learning_data(feature.domain());
  const std::size_t k = data.index_of(&feature), y = data.index_of(&target);
  require(&target.domain() == &feature.domain() && k != y && !selected.contains(&feature) &&
          !selected.contains(&target));
  std::vector<std::size_t> chosen;
  for (Node* n : selected) {
    require(&n->domain() == &feature.domain());
    chosen.push_back(data.index_of(n));
  }
  return jmi_score(data, k, y, chosen);
}

std::vector<Node*> learn_features(Domain& domain, const Node& target, std::size_t count) {
  require(&target.domain() == &domain);
  const LearningData data = learning_data(domain);
  const std::size_t y = data.index_of(&target);
  const EdgeRules rules = edge_rules(domain, data);
  std::vector<std::size_t> chosen;
  std::vector<std::uint8_t> taken(data.variables(), 0);
  taken[y] = 1;
  std::size_t candidates = 0;
  for (std::size_t k = 0; k < data.variables(); ++k) {
    for (std::size_t j = k + 1; j < data.variables(); ++j)
      if (rules.required(k, j) && k != y && j != y)
        throw Error(K_ERROR_USAGE, "feature selection cannot keep the required link between " +
                                       data.nodes[k]->name() + " and " + data.nodes[j]->name());
    // A feature the target may not point to is never chosen; a required one
    // is chosen first.
    if (k != y && rules.forbidden(y, k)) taken[k] = 1;
    if (k != y && rules.required(y, k)) {
      chosen.push_back(k);
      taken[k] = 1;
    }
    candidates += taken[k] ? 0 : 1;
  }
  require(count >= 1 && count <= candidates + chosen.size() && chosen.size() <= count);
  while (chosen.size() < count) {
    std::size_t best = LearningData::npos;
    double best_score = -1.0;
    for (std::size_t k = 0; k < data.variables(); ++k) {
      if (taken[k]) continue;
      const double s = jmi_score(data, k, y, chosen);
      if (s > best_score) {
        best_score = s;
        best = k;
      }
    }
    taken[best] = 1;
    chosen.push_back(best);
  }
  std::vector<std::vector<std::size_t>> parents(data.variables());
  for (std::size_t k : chosen) parents[k].push_back(y);
  install_structure(domain, data, parents);
  std::vector<Node*> out;
  for (std::size_t k : chosen) out.push_back(data.nodes[k]);
  return out;
}

}  // namespace kelva
