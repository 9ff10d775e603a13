// Sequential updating of conditional tables from one case at a time: the
// case's expected family counts are added to the experience (fractional
// updating), after the experience of the configurations the case speaks
// about has faded by the node's fading factors.

#include "learning/adapt.h"

#include <cstdint>
#include <vector>

#include "compile/junction_forest.h"
#include "network/domain.h"
#include "network/error.h"
#include "network/node.h"
#include "table/index_plan.h"
#include "table/table.h"
#include "table/table_ops.h"

namespace kelva {

std::vector<std::uint64_t> entry_map(const Table& table, const Table& small) {
  std::vector<double> index(small.size());
  for (std::uint64_t i = 0; i < index.size(); ++i) index[i] = static_cast<double>(i);
  std::vector<double> spread(table.size());
  gather(IndexPlan::between(table, small), spread.data(), index.data());
  return {spread.begin(), spread.end()};
}

namespace {

// The new data of one adapted node, computed before anything is written.
struct Update {
  Node* node = nullptr;
  std::vector<double> table;
  std::vector<double> experience;
};

// The adapted tables of `node`, or an update without node when the node
// takes no part.
Update adapt_node(Node& node, Forest& forest) {
  Update u;
  Table* table = node.table();
  const Table* experience = node.experience_table();
  const std::vector<double> w = family_posterior(node, forest);
  if (experience == nullptr || w.empty()) return u;
  const std::uint64_t size = table->size();

  std::uint64_t stride = 1, states = node.state_count();
  {
    const auto& counts = table->state_counts();
    for (std::size_t i = table->discrete_count(); i-- > 0;) {
      if (table->nodes()[i] == &node) break;
      stride *= counts[i];
    }
  }
  const std::vector<std::uint64_t> to_experience = entry_map(*table, *experience);
  const Table* fading = node.fading_table();
  std::vector<std::uint64_t> to_fading;
  if (fading != nullptr) to_fading = entry_map(*table, *fading);

  u.table.assign(table->data(), table->data() + size);
  u.experience.assign(experience->data(), experience->data() + experience->size());
  for (std::uint64_t base = 0; base < size; ++base) {
    if ((base / stride) % states != 0) continue;  // not the first entry of its row
    const std::uint64_t e = to_experience[base];
    const double n = experience->data()[e];
    if (n < 0.0) continue;  // a negative count marks a row that is not adapted
    double wj = 0.0, row = 0.0;
    for (std::uint64_t k = 0; k < states; ++k) {
      wj += w[base + k * stride];
      row += table->data()[base + k * stride];
    }
    if (!(wj > 0.0)) continue;
    const double lambda = fading != nullptr ? fading->data()[to_fading[base]] : 1.0;
    const double f = 1.0 - wj * (1.0 - lambda);
    const double faded = f * n;
    const double n_new = faded + wj;
    for (std::uint64_t k = 0; k < states; ++k) {
      const std::uint64_t i = base + k * stride;
      // The old counts spread n over the row as the table has it.
      const double old = row > 0.0 ? faded * table->data()[i] / row : 0.0;
      u.table[i] = (old + w[i]) / n_new;
    }
    u.experience[e] = n_new;
  }
  u.node = &node;
  return u;
}

}  // namespace

void require_adaptable(const Domain& domain) {
  const Forest* forest = domain.forest();
  require(domain.is_compiled() && forest != nullptr, K_ERROR_NOT_COMPILED);
  if (domain.is_compressed())
    throw Error(K_ERROR_COMPRESSED, "adaptation needs the full clique tables");
  for (const auto& tree : forest->trees) {
    if (tree->equilibrium != K_EQUILIBRIUM_SUM || tree->evidence_to_propagate != 0 ||
        tree->needs_initialisation || tree->table_changes_seen != domain.table_changes())
      throw Error(K_ERROR_USAGE,
                  "adaptation needs the entered evidence propagated to sum equilibrium "
                  "under the current tables");
  }
}

std::vector<double> family_posterior(const Node& node, Forest& forest) {
  const Table* table = node.table();
  const NodeSlot* slot = forest.slot(node);
  if (table == nullptr || slot == nullptr || slot->assigned == nullptr) return {};
  // The assigned clique, at equilibrium, holds P(clique, evidence); its
  // marginal normalised is P(family | evidence).
  std::vector<double> w(table->size(), 0.0);
  marginalize(slot->assigned_plan, slot->assigned->table->data(), w.data(), Reduce::sum);
  double total = 0.0;
  for (double x : w) total += x;
  if (!(total > 0.0)) return {};
  for (double& x : w) x /= total;
  return w;
}

void adapt_domain(Domain& domain) {
  require_adaptable(domain);
  Forest* forest = domain.forest();
  std::vector<Update> updates;
  for (Node* node = domain.first_node(); node != nullptr; node = node->next) {
    if (node->category() != K_CATEGORY_CHANCE || !node->is_discrete()) continue;
    if (node->experience_table() == nullptr) continue;
    Update u = adapt_node(*node, *forest);
    if (u.node != nullptr) updates.push_back(std::move(u));
  }
  // Everything is computed: write it.
  for (Update& u : updates) {
    std::copy(u.table.begin(), u.table.end(), u.node->table()->data());
    std::copy(u.experience.begin(), u.experience.end(), u.node->experience_table()->data());
    u.node->table_changed();
  }
}

}  // namespace kelva
