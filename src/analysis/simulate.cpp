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

/// Appends the step of `clique` to the sampler.
void add_step(Sampler& sampler, const Forest& forest, const Clique& clique) {
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
  std::vector<std::uint64_t> fresh_counts;
  step.separator = static_cast<std::uint32_t>(sampler.separator_slots.size());
  step.fresh = static_cast<std::uint32_t>(sampler.new_slots.size());
  for (std::size_t i = 0; i < d; ++i) {
    const auto slot = static_cast<std::uint32_t>(clique.members[i]->forest_slot);
    if (in_separator(clique.members[i])) {
      group_members.push_back(i);
      group_counts.push_back(counts[i]);
      sampler.separator_slots.push_back(slot);
    } else {
      new_members.push_back(i);
      fresh_counts.push_back(counts[i]);
      sampler.new_slots.push_back(slot);
      sampler.new_counts.push_back(static_cast<std::uint32_t>(counts[i]));
    }
  }
  step.separator_count = static_cast<std::uint32_t>(group_members.size());
  step.width = static_cast<std::uint32_t>(new_members.size());
  const std::vector<std::uint64_t> group_strides = strides_of(group_counts);
  const std::vector<std::uint64_t> fresh_strides = strides_of(fresh_counts);
  sampler.separator_strides.insert(sampler.separator_strides.end(), group_strides.begin(),
                                   group_strides.end());
  for (std::uint64_t c : fresh_counts) step.block *= c;
  step.base = sampler.cumulative.size();
  const std::uint64_t size = clique.table->size();
  sampler.cumulative.resize(step.base + size, 0.0);

  // Entry e of the clique goes to its separator state's block, at its new
  // members' configuration.
  auto position = [&](std::uint64_t e) {
    std::uint64_t g = 0;
    for (std::size_t k = 0; k < group_members.size(); ++k)
      g += (e / strides[group_members[k]]) % counts[group_members[k]] * group_strides[k];
    std::uint64_t local = 0;
    for (std::size_t k = 0; k < new_members.size(); ++k)
      local += (e / strides[new_members[k]]) % counts[new_members[k]] * fresh_strides[k];
    return step.base + g * step.block + local;
  };
  double* out = sampler.cumulative.data();
  if (forest.compressed) {
    const CompressedClique& c = forest.compressed->cliques[clique.number];
    for (std::size_t k = 0; k < c.index.size(); ++k) out[position(c.index[k])] = c.values[k];
  } else {
    const double* data = clique.table->data();
    for (std::uint64_t e = 0; e < size; ++e) out[position(e)] = data[e];
  }
  for (std::uint64_t b = step.base; b < step.base + size; b += step.block)
    for (std::uint64_t k = b + 1; k < b + step.block; ++k) out[k] += out[k - 1];
  sampler.steps.push_back(step);
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
    for (Clique* const* c = tree->cliques.data(); *c != nullptr; ++c) add_step(*this, forest, **c);
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
    else if (slot.node->is_discrete() && (slot.node->subtype() == K_SUBTYPE_NUMBER ||
                                          slot.node->subtype() == K_SUBTYPE_INTERVAL))
      numeric.push_back(slot.node->forest_slot);
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
  const double* cumulative = sampler.cumulative.data();
  for (const Sampler::Step& step : sampler.steps) {
    std::uint64_t g = 0;
    for (std::uint32_t k = step.separator; k < step.separator + step.separator_count; ++k)
      g += static_cast<std::uint64_t>(states[sampler.separator_slots[k]]) *
           sampler.separator_strides[k];
    const std::uint64_t first = step.base + g * step.block;
    const std::uint64_t last = first + step.block;
    if (!(cumulative[last - 1] > 0.0))
      throw Error(K_ERROR_ERROR, "a clique gives no weight to a separator state drawn");
    const double total = cumulative[last - 1];
    // Below the total even where u * total rounds up to it.
    const double r = std::min(uniform_deviate(domain) * total, std::nextafter(total, 0.0));
    // Blocks are mostly a few entries: a scan, or a binary search when long.
    // Entries of weight 0 never hold the first running sum above r.
    std::uint64_t at = first;
    if (step.block > 16)
      at = static_cast<std::uint64_t>(
          std::upper_bound(cumulative + first, cumulative + last - 1, r) - cumulative);
    else
      while (at + 1 < last && cumulative[at] <= r) ++at;
    std::uint64_t local = at - first;
    for (std::uint32_t j = step.width; j-- > 0;) {
      const std::uint32_t count = sampler.new_counts[step.fresh + j];
      states[sampler.new_slots[step.fresh + j]] = static_cast<std::int64_t>(local % count);
      local /= count;
    }
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
  for (std::size_t slot : sampler.numeric) {
    const Node& node = *forest.nodes[slot].node;
    const auto s = static_cast<std::size_t>(states[slot]);
    values[slot] = node.subtype() == K_SUBTYPE_NUMBER
                       ? node.state_value(s)
                       : (node.state_value(s) + node.state_value(s + 1)) / 2.0;
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
