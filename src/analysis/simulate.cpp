#include "analysis/simulate.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <memory>

#include "analysis/random.h"
#include "analysis/sampler.h"
#include "compile/junction_forest.h"
#include "network/domain.h"
#include "network/error.h"
#include "network/node.h"
#include "table/table.h"

namespace kelva {

namespace {

void destroy_sampler(Sampler* sampler) noexcept { delete sampler; }

/// The strides of a configuration index over `counts`, last fastest.
std::vector<std::uint64_t> strides_of(const std::vector<std::uint64_t>& counts) {
  std::vector<std::uint64_t> strides(counts.size(), 1);
  for (std::size_t i = counts.size(); i-- > 1;) strides[i - 1] = strides[i] * counts[i];
  return strides;
}

/// The separator between `clique` and its parent, or null at a root.
const Separator* parent_separator(const Clique& clique) noexcept {
  for (const Clique::Link& link : clique.links)
    if (link.neighbour == clique.parent) return link.separator;
  return nullptr;
}

Sampler::Step make_step(const Forest& forest, const Clique& clique) {
  Sampler::Step step;
  const std::size_t d = clique.discrete_members;
  std::vector<std::uint64_t> counts(d);
  for (std::size_t i = 0; i < d; ++i) counts[i] = clique.members[i]->state_count();
  const std::vector<std::uint64_t> strides = strides_of(counts);

  const Separator* sep = clique.parent != nullptr ? parent_separator(clique) : nullptr;
  auto in_separator = [sep](const Node* n) {
    if (sep == nullptr) return false;
    for (Node* const* m = sep->members.data(); *m != nullptr; ++m)
      if (*m == n) return true;
    return false;
  };
  std::vector<std::size_t> group_members;  // positions in the clique
  std::vector<std::uint64_t> group_counts;
  std::vector<std::size_t> new_members;  // positions in the clique
  for (std::size_t i = 0; i < d; ++i) {
    const std::size_t slot = clique.members[i]->forest_slot;
    if (in_separator(clique.members[i])) {
      group_members.push_back(i);
      group_counts.push_back(counts[i]);
      step.separator_slots.push_back(slot);
    } else {
      step.new_slots.push_back(slot);
      new_members.push_back(i);
    }
  }
  step.separator_strides = strides_of(group_counts);
  std::uint64_t groups = 1;
  for (std::uint64_t c : group_counts) groups *= c;

  // The clique's non-zero entries, from the full or the compressed table.
  std::vector<std::uint64_t> index;
  std::vector<double> values;
  if (forest.compressed) {
    const CompressedClique& c = forest.compressed->cliques[clique.number];
    index = c.index;
    values = c.values;
  } else {
    const double* data = clique.table->data();
    for (std::uint64_t e = 0; e < clique.table->size(); ++e)
      if (data[e] != 0.0) {
        index.push_back(e);
        values.push_back(data[e]);
      }
  }
  auto group_of = [&](std::uint64_t e) {
    std::uint64_t g = 0;
    for (std::size_t k = 0; k < group_members.size(); ++k)
      g += (e / strides[group_members[k]]) % counts[group_members[k]] * step.separator_strides[k];
    return g;
  };
  step.start.assign(groups + 1, 0);
  for (std::uint64_t e : index) ++step.start[group_of(e) + 1];
  for (std::uint64_t g = 0; g < groups; ++g) step.start[g + 1] += step.start[g];
  std::vector<std::uint64_t> fill(step.start.begin(), step.start.end() - 1);
  const std::size_t width = new_members.size();
  step.cumulative.resize(index.size());
  step.drawn.resize(index.size() * width);
  for (std::size_t k = 0; k < index.size(); ++k) {
    const std::uint64_t at = fill[group_of(index[k])]++;
    step.cumulative[at] = values[k];
    for (std::size_t j = 0; j < width; ++j) {
      const std::size_t m = new_members[j];
      step.drawn[at * width + j] = static_cast<std::uint32_t>(index[k] / strides[m] % counts[m]);
    }
  }
  for (std::uint64_t g = 0; g < groups; ++g)
    for (std::uint64_t k = step.start[g] + 1; k < step.start[g + 1]; ++k)
      step.cumulative[k] += step.cumulative[k - 1];
  return step;
}

/// The index of the configuration of the discrete members of `table` in
/// the states drawn.
std::uint64_t drawn_configuration(const Table& table, const std::vector<std::int64_t>& states) {
  std::uint64_t c = 0;
  for (std::size_t i = 0; i < table.discrete_count(); ++i) {
    const Node* member = table.nodes()[i];
    const std::int64_t s = member->forest_slot < states.size() ? states[member->forest_slot] : -1;
    if (s < 0)
      throw Error(K_ERROR_USAGE,
                  "node '" + member->name() + "' is not part of the junction forest");
    c = c * table.state_counts()[i] + static_cast<std::uint64_t>(s);
  }
  return c;
}

void verify_simulable(const Domain& domain) {
  require(domain.is_compiled(), K_ERROR_NOT_COMPILED);
  for (const auto& tree : domain.forest()->trees) {
    if (tree->equilibrium == K_EQUILIBRIUM_NONE)
      throw Error(K_ERROR_NO_EQUILIBRIUM, "the domain is not propagated");
    if (tree->equilibrium != K_EQUILIBRIUM_SUM)
      throw Error(K_ERROR_USAGE, "simulation needs sum equilibrium");
    if (tree->evidence_to_propagate > 0 || tree->tables_changed ||
        tree->table_changes_seen != domain.table_changes())
      throw Error(K_ERROR_USAGE, "the domain has evidence or tables still to propagate");
  }
}

const Node& sampled_node(const Node& node, bool wanted) {
  require(wanted);
  const Domain& domain = node.domain();
  require(domain.is_compiled(), K_ERROR_NOT_COMPILED);
  const auto& a = domain.analysis;
  if (a.sample_forest != domain.forest_serial() || node.forest_slot >= a.sampled_states.size())
    throw Error(K_ERROR_NO_VALUE, "nothing was simulated since the domain was compiled");
  return node;
}

}  // namespace

Sampler::Sampler(Domain& domain) {
  Destroy<Sampler>::registered = destroy_sampler;
  Forest& forest = *domain.forest();
  for (const auto& tree : forest.trees)
    for (Clique* const* c = tree->cliques.data(); *c != nullptr; ++c)
      steps.push_back(make_step(forest, **c));
  // Continuous nodes after their continuous parents.
  std::vector<char> placed(forest.nodes.size(), 0);
  std::function<void(const Node&)> place = [&](const Node& node) {
    const std::size_t slot = node.forest_slot;
    if (slot >= forest.nodes.size() || placed[slot]) return;
    placed[slot] = 1;
    for (Node* const* p = node.parents().data(); *p != nullptr; ++p)
      if ((*p)->is_continuous()) place(**p);
    continuous.push_back(slot);
  };
  for (const NodeSlot& slot : forest.nodes) {
    if (slot.node == nullptr) continue;
    if (slot.node->is_continuous()) place(*slot.node);
    else if (slot.node->category() == K_CATEGORY_UTILITY)
      utilities.push_back(slot.node->forest_slot);
  }
  this->forest = domain.forest_serial();
  calibrations = domain.analysis.calibrations;
}

void simulate_domain(Domain& domain) {
  verify_simulable(domain);
  auto& a = domain.analysis;
  if (!a.sampler || a.sampler->forest != domain.forest_serial() ||
      a.sampler->calibrations != a.calibrations)
    a.sampler.reset(new Sampler(domain));
  const Sampler& sampler = *a.sampler;
  const Forest& forest = *domain.forest();

  // Written in place: a failure leaves no sample.
  a.sample_forest = 0;
  std::vector<std::int64_t>& states = a.sampled_states;
  std::vector<double>& values = a.sampled_values;
  states.assign(forest.nodes.size(), -1);
  values.assign(forest.nodes.size(), std::nan(""));
  for (const Sampler::Step& step : sampler.steps) {
    std::uint64_t g = 0;
    for (std::size_t k = 0; k < step.separator_slots.size(); ++k)
      g += static_cast<std::uint64_t>(states[step.separator_slots[k]]) * step.separator_strides[k];
    const std::uint64_t first = step.start[g];
    const std::uint64_t last = step.start[g + 1];
    if (first == last || !(step.cumulative[last - 1] > 0.0))
      throw Error(K_ERROR_ERROR, "a clique gives no weight to a separator state drawn");
    const double r = uniform_deviate(domain) * step.cumulative[last - 1];
    // Groups are mostly a few entries: a scan, or a binary search when long.
    std::uint64_t at = first;
    if (last - first > 16) {
      const auto begin = step.cumulative.begin();
      at = static_cast<std::uint64_t>(
          std::upper_bound(begin + static_cast<std::ptrdiff_t>(first),
                           begin + static_cast<std::ptrdiff_t>(last - 1), r) -
          begin);
    } else {
      while (at + 1 < last && step.cumulative[at] <= r) ++at;
    }
    const std::size_t width = step.new_slots.size();
    for (std::size_t j = 0; j < width; ++j) states[step.new_slots[j]] = step.drawn[at * width + j];
  }
  for (std::size_t slot : sampler.continuous) {
    const Node& node = *forest.nodes[slot].node;
    const Table& table = *node.table();
    const std::uint64_t c = drawn_configuration(table, states);
    double mean = 0.0;
    double variance = 0.0;
    for (std::size_t j = 0; j < table.cg_dimension(); ++j) {
      const Node* member = table.nodes()[table.discrete_count() + j];
      if (member == &node) {
        mean += table.mean(c, j);
        variance = table.covariance(c, j, j);
      } else {
        mean += table.coefficient(c, j) * values[member->forest_slot];
      }
    }
    values[slot] = normal_deviate(domain, mean, variance);
  }
  for (std::size_t slot : sampler.utilities) {
    const Table& table = *forest.nodes[slot].node->table();
    values[slot] = table.data()[drawn_configuration(table, states)];
  }
  for (std::size_t slot = 0; slot < forest.nodes.size(); ++slot) {
    const Node* node = forest.nodes[slot].node;
    if (node == nullptr || !node->is_discrete() || states[slot] < 0) continue;
    const auto s = static_cast<std::size_t>(states[slot]);
    if (node->subtype() == K_SUBTYPE_NUMBER) values[slot] = node->state_value(s);
    else if (node->subtype() == K_SUBTYPE_INTERVAL)
      values[slot] = (node->state_value(s) + node->state_value(s + 1)) / 2.0;
  }
  a.sample_forest = domain.forest_serial();
}

std::int64_t sampled_state(const Node& node) {
  const Node& n = sampled_node(node, node.is_discrete());
  const std::int64_t s = n.domain().analysis.sampled_states[n.forest_slot];
  if (s < 0) throw Error(K_ERROR_NO_VALUE, "no state was drawn for node '" + n.name() + "'");
  return s;
}

double sampled_value(const Node& node) {
  const bool numeric =
      node.is_continuous() || (node.is_discrete() && (node.subtype() == K_SUBTYPE_NUMBER ||
                                                      node.subtype() == K_SUBTYPE_INTERVAL));
  const Node& n = sampled_node(node, numeric);
  const double v = n.domain().analysis.sampled_values[n.forest_slot];
  if (std::isnan(v))
    throw Error(K_ERROR_NO_VALUE, "no value was drawn for node '" + n.name() + "'");
  return v;
}

double sampled_utility(const Node& node) {
  const Node& n = sampled_node(node, node.category() == K_CATEGORY_UTILITY);
  return n.domain().analysis.sampled_values[n.forest_slot];
}

}  // namespace kelva
