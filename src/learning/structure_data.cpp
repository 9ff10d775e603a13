// Reading the case store into columns, and the counts and information
// measures that every structure learner shares.
#include "learning/structure_data.h"

#include <cmath>

#include "network/domain.h"
#include "network/error.h"
#include "network/node.h"

namespace kelva {

std::size_t LearningData::index_of(const Node* node) const noexcept {
  for (std::size_t i = 0; i < nodes.size(); ++i)
    if (nodes[i] == node) return i;
  return npos;
}

LearningData learning_data(const Domain& domain) {
  LearningData data;
  for (Node* n = domain.first_node(); n != nullptr; n = n->next) {
    if (n->category() != K_CATEGORY_CHANCE || !n->is_discrete())
      throw Error(K_ERROR_USAGE, "structure learning needs discrete chance nodes only; " +
                                     n->name() + " is not one");
    data.nodes.insert(data.nodes.begin(), n);
  }
  if (data.nodes.size() < 2) throw Error(K_ERROR_USAGE, "structure learning needs two nodes");
  const std::size_t cases = domain.cases.size();
  if (cases < 2) throw Error(K_ERROR_USAGE, "structure learning needs at least two cases");
  for (std::size_t c = 0; c < cases; ++c) {
    data.weights.push_back(domain.cases.count(c));
    data.total += data.weights.back();
  }
  if (!(data.total > 0.0)) throw Error(K_ERROR_USAGE, "the cases' counts sum to zero");
  for (Node* n : data.nodes) {
    data.states.push_back(n->state_count());
    std::vector<std::int16_t> column(cases);
    std::int32_t seen = -1;
    bool varies = false;
    for (std::size_t c = 0; c < cases; ++c) {
      const std::int32_t s = n->cases.state(c);
      column[c] = static_cast<std::int16_t>(s);
      if (s < 0 || data.weights[c] <= 0.0) continue;
      if (seen >= 0 && s != seen) varies = true;
      seen = s;
    }
    if (!varies)
      throw Error(K_ERROR_USAGE, "node " + n->name() + " has the same state in every case");
    data.columns.push_back(std::move(column));
  }
  return data;
}

std::vector<double> joint_counts(const LearningData& data, const std::vector<std::size_t>& vars) {
  std::size_t size = 1;
  for (std::size_t v : vars) size *= data.states[v];
  std::vector<double> counts(size, 0.0);
  for (std::size_t c = 0; c < data.cases(); ++c) {
    std::size_t index = 0;
    bool observed = true;
    for (std::size_t v : vars) {
      const std::int16_t s = data.columns[v][c];
      if (s < 0) {
        observed = false;
        break;
      }
      index = index * data.states[v] + static_cast<std::size_t>(s);
    }
    if (observed) counts[index] += data.weights[c];
  }
  return counts;
}

double mutual_information(const LearningData& data, std::size_t x, std::size_t y, std::size_t z) {
  const bool given = z != LearningData::npos;
  const std::vector<double> n = given ? joint_counts(data, {z, x, y}) : joint_counts(data, {x, y});
  const std::size_t rx = data.states[x], ry = data.states[y];
  const std::size_t rz = given ? data.states[z] : 1;
  double total = 0.0, sum = 0.0;
  for (std::size_t k = 0; k < rz; ++k) {
    const double* t = n.data() + k * rx * ry;
    std::vector<double> nx(rx, 0.0), ny(ry, 0.0);
    double nz = 0.0;
    for (std::size_t i = 0; i < rx; ++i)
      for (std::size_t j = 0; j < ry; ++j) {
        nx[i] += t[i * ry + j];
        ny[j] += t[i * ry + j];
        nz += t[i * ry + j];
      }
    total += nz;
    for (std::size_t i = 0; i < rx; ++i)
      for (std::size_t j = 0; j < ry; ++j)
        if (t[i * ry + j] > 0.0)
          sum += t[i * ry + j] * std::log(t[i * ry + j] * nz / (nx[i] * ny[j]));
  }
  return total > 0.0 ? sum / total : 0.0;
}

}  // namespace kelva
