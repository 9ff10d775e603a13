// The moving window of a dynamic network: the interface algorithm.  Moving
// by k slices computes the joint distribution of the interface after slice
// k given the evidence up to it (the evidence of later slices is set aside
// for that propagation), writes it into the first slice's temporal clones
// through the chain rule, and shifts the remaining evidence down by k.
#include "dynamic/dbn_window.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

#include "compile/compile.h"
#include "compile/junction_forest.h"
#include "inference/compile_domain.h"
#include "inference/evidence.h"
#include "inference/node_value.h"
#include "inference/propagate.h"
#include "network/dbn_layout.h"
#include "network/domain.h"
#include "network/error.h"
#include "network/node.h"
#include "structure/structure.h"
#include "table/index_plan.h"
#include "table/table.h"
#include "table/table_ops.h"

namespace kelva {

namespace {

DbnLayout& layout_of(const Domain& domain) {
  require(domain.dbn != nullptr);
  return *domain.dbn;
}

// The nodes of slice `t` standing for the clones of `cluster`.
std::vector<Node*> interface_nodes(const DbnLayout& layout, std::size_t t,
                                   const std::vector<std::size_t>& cluster) {
  std::vector<Node*> nodes;
  for (std::size_t i : cluster) nodes.push_back(layout.slices[t][layout.masters[i]]);
  return nodes;
}

std::vector<Node*> clones_of(const DbnLayout& layout, const std::vector<std::size_t>& cluster) {
  std::vector<Node*> nodes;
  for (std::size_t i : cluster) nodes.push_back(layout.clones[i]);
  return nodes;
}

// Every slice's interface clusters and the first slice's clone clusters:
// the groups each clique of the window must hold one of.
std::vector<std::vector<Node*>> interface_groups(const DbnLayout& layout) {
  std::vector<std::vector<Node*>> groups;
  for (const auto& cluster : layout.clusters) {
    groups.push_back(clones_of(layout, cluster));
    for (std::size_t t = 0; t < layout.slices.size(); ++t)
      groups.push_back(interface_nodes(layout, t, cluster));
  }
  return groups;
}

// The normalised joint distribution of `nodes` (discrete, in one clique of
// the propagated forest), in their configuration order.
std::vector<double> joint_of(Domain& domain, const std::vector<Node*>& nodes) {
  if (nodes.empty()) return {1.0};  // a class without temporal clones
  Forest& forest = *domain.forest();
  const NodeSlot* first = forest.slot(*nodes.front());
  require(first != nullptr && first->tree != nullptr);
  Clique* holder = nullptr;
  for (Clique* const* c = first->tree->cliques.data(); *c != nullptr && holder == nullptr; ++c)
    if (std::all_of(nodes.begin(), nodes.end(), [&](Node* n) { return (*c)->members.contains(n); }))
      holder = *c;
  require(holder != nullptr);
  Table joint(domain, nodes, TableRole::free, nullptr);
  marginalize(IndexPlan::between(*holder->table, joint), holder->table->data(), joint.data(),
              Reduce::sum, Parallelism::of(domain));
  std::vector<double> out(joint.data(), joint.data() + joint.size());
  double total = 0.0;
  for (double v : out) total += v;
  require(total > 0.0, K_ERROR_INCONSISTENCY_OR_UNDERFLOW);
  for (double& v : out) v /= total;
  return out;
}

// Writes `joint` (over `clones`, in their configuration order) into the
// clones' tables: each gets its distribution given its parents, which are
// clones of the same group; a parent configuration of probability 0 gets a
// uniform distribution.
void write_prior(const std::vector<Node*>& clones, const std::vector<double>& joint) {
  std::vector<std::size_t> counts;
  for (Node* c : clones) counts.push_back(c->state_count());
  for (Node* clone : clones) {
    Table& table = node_table(*clone);
    const NodeList& members = table.nodes();
    // The stride in `table` of each node of `clones` (0 when absent).
    std::vector<std::uint64_t> stride(clones.size(), 0);
    std::uint64_t step = 1;
    for (std::size_t d = members.size(); d-- > 0;) {
      const auto at = std::find(clones.begin(), clones.end(), members[d]) - clones.begin();
      stride[static_cast<std::size_t>(at)] = step;
      step *= members[d]->state_count();
    }
    double* data = table.data();
    std::fill(data, data + table.size(), 0.0);
    std::vector<std::size_t> states(clones.size(), 0);
    for (double p : joint) {
      std::uint64_t index = 0;
      for (std::size_t i = 0; i < clones.size(); ++i) index += states[i] * stride[i];
      data[index] += p;
      for (std::size_t i = clones.size(); i-- > 0;) {
        if (++states[i] < counts[i]) break;
        states[i] = 0;
      }
    }
    // The clone is the table's last node: normalise each block of its states.
    const std::size_t n = clone->state_count();
    for (std::uint64_t b = 0; b < table.size(); b += n) {
      double total = 0.0;
      for (std::size_t s = 0; s < n; ++s) total += data[b + s];
      for (std::size_t s = 0; s < n; ++s)
        data[b + s] = total > 0.0 ? data[b + s] / total : 1.0 / static_cast<double>(n);
    }
    clone->table_changed();
  }
}

// The interface prior of an initialised window: the product of the clones'
// own priors.
void write_initial_prior(DbnLayout& layout) {
  for (const auto& cluster : layout.clusters) {
    std::vector<double> joint{1.0};
    for (std::size_t i : cluster) {
      const std::vector<double>& own = layout.initial_priors[i];
      std::vector<double> next;
      next.reserve(joint.size() * own.size());
      for (double a : joint)
        for (double b : own) next.push_back(a * b);
      joint = std::move(next);
    }
    write_prior(clones_of(layout, cluster), joint);
  }
  layout.offset = 0;
  layout.predicted.clear();
}

// Links the first slice's clones within each cluster (each to the clones
// before it) and nowhere else, triangulates with every interface group in
// a clique, and initialises the prior.
void triangulate_window(Domain& domain, k_triangulation_method_t method,
                        std::vector<std::vector<std::size_t>> clusters, bool bk) {
  DbnLayout& layout = layout_of(domain);
  require(!domain.is_triangulated());
  std::vector<std::size_t> cluster_of(layout.clones.size());
  for (std::size_t c = 0; c < clusters.size(); ++c)
    for (std::size_t i : clusters[c]) cluster_of[i] = c;
  for (std::size_t i = 0; i < layout.clones.size(); ++i)
    for (std::size_t j = 0; j < i; ++j) {
      Node& child = *layout.clones[i];
      Node& parent = *layout.clones[j];
      const bool linked = child.parents().contains(&parent);
      if (cluster_of[i] == cluster_of[j] && !linked) add_parent(child, parent);
      if (cluster_of[i] != cluster_of[j] && linked) remove_parent(child, parent);
    }
  layout.clusters = std::move(clusters);
  layout.bk = bk;
  write_initial_prior(layout);
  triangulate_domain_with_groups(domain, method, interface_groups(layout));
}

// Sets a node's entered evidence to `e` (of a node of the same states).
void enter_evidence(Node& node, const Evidence& e) {
  if (node.is_continuous()) {
    if (e.entered) enter_value(node, e.entered_value);
  } else if (e.value_entered) {
    enter_value(node, e.entered_value);
  } else if (e.entered_code >= 0) {
    select_state(node, static_cast<std::size_t>(e.entered_code));
  } else if (e.entered_code == Evidence::kVector) {
    for (std::size_t s = 0; s < node.state_count(); ++s)
      enter_finding(node, s, e.entered_vector[s]);
  }
}

bool has_evidence(const Node& node) noexcept {
  return node.evidence.entered_code != Evidence::kNone || node.evidence.entered;
}

void require_window_compiled(const Domain& domain) {
  layout_of(domain);
  require(domain.is_compiled(), K_ERROR_NOT_COMPILED);
  require(!domain.is_compressed(), K_ERROR_COMPRESSED);
}

// The one-slice predictor, compiled on first use with its interface in a
// clique.
Domain& compiled_predictor(DbnLayout& layout) {
  Domain& predictor = *layout.predictor;
  if (!predictor.is_compiled()) {
    predictor.uncompile();
    triangulate_domain_with_groups(predictor, K_TM_BEST_GREEDY, interface_groups(*predictor.dbn));
    compile_domain(predictor);
  }
  return predictor;
}

// The joint of every clone (in clone order) as the product of the
// clusters' joints, each over its clones in cluster order.
std::vector<double> product_of(const DbnLayout& layout,
                               const std::vector<std::vector<double>>& joints) {
  const std::size_t m = layout.clones.size();
  std::vector<std::size_t> states(m, 0);
  std::vector<double> joint;
  for (;;) {
    double p = 1.0;
    for (std::size_t c = 0; c < layout.clusters.size(); ++c) {
      std::size_t index = 0;
      for (std::size_t i : layout.clusters[c])
        index = index * layout.clones[i]->state_count() + states[i];
      p *= joints[c][index];
    }
    joint.push_back(p);
    std::size_t i = m;
    while (i-- > 0 && ++states[i] == layout.clones[i]->state_count()) states[i] = 0;
    if (i == static_cast<std::size_t>(-1)) return joint;
  }
}

// Moves the window by more slices than it holds: the interface after its
// last slice is rolled through the slices that get no evidence by the
// predictor, as predictions do; every piece of evidence leaves.
void move_beyond(Domain& domain, DbnLayout& layout, std::size_t slices) {
  propagate_domain(domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL);
  const std::size_t length = layout.slices.size();
  std::vector<std::vector<double>> joints;
  for (const auto& cluster : layout.clusters)
    joints.push_back(joint_of(domain, interface_nodes(layout, length - 1, cluster)));
  Domain& predictor = compiled_predictor(layout);
  DbnLayout& one = *predictor.dbn;
  for (std::size_t step = length; step < slices; ++step) {
    write_prior(one.clones, product_of(layout, joints));
    propagate_domain(predictor, K_EQUILIBRIUM_SUM, K_MODE_NORMAL);
    for (std::size_t c = 0; c < layout.clusters.size(); ++c)
      joints[c] = joint_of(predictor, interface_nodes(one, 0, layout.clusters[c]));
  }
  for (std::size_t c = 0; c < layout.clusters.size(); ++c)
    write_prior(clones_of(layout, layout.clusters[c]), joints[c]);
  retract_findings(domain);
  layout.offset += slices;
  layout.predicted.clear();
}

}  // namespace

void triangulate_dbn(Domain& domain, k_triangulation_method_t method) {
  std::vector<std::size_t> all(layout_of(domain).clones.size());
  for (std::size_t i = 0; i < all.size(); ++i) all[i] = i;
  triangulate_window(domain, method, {std::move(all)}, false);
}

void triangulate_dbn_for_bk(Domain& domain, k_triangulation_method_t method) {
  const DbnLayout& layout = layout_of(domain);
  // Two interface nodes are in one cluster when they are linked, or parents
  // of one child, within the first slice (clusters are the connected parts).
  const std::vector<Node*>& slice = layout.slices.front();
  const std::size_t m = layout.clones.size();
  std::vector<std::size_t> root(m);
  for (std::size_t i = 0; i < m; ++i) root[i] = i;
  auto find = [&](std::size_t i) {
    while (root[i] != i) i = root[i] = root[root[i]];
    return i;
  };
  auto interface_index = [&](const Node* n) {
    for (std::size_t i = 0; i < m; ++i)
      if (slice[layout.masters[i]] == n) return i;
    return m;
  };
  for (const Node* n : slice) {
    std::vector<std::size_t> family;
    if (std::size_t i = interface_index(n); i < m) family.push_back(i);
    for (const Node* p : n->parents())
      if (std::size_t i = interface_index(p); i < m) family.push_back(i);
    for (std::size_t i = 1; i < family.size(); ++i) root[find(family[i])] = find(family[0]);
  }
  std::vector<std::vector<std::size_t>> clusters;
  std::vector<std::size_t> cluster_at(m, m);
  for (std::size_t i = 0; i < m; ++i) {
    std::size_t& at = cluster_at[find(i)];
    if (at == m) {
      at = clusters.size();
      clusters.emplace_back();
    }
    clusters[at].push_back(i);
  }
  triangulate_window(domain, method, std::move(clusters), true);
}

bool is_triangulated_for_bk(const Domain& domain) {
  return layout_of(domain).bk && domain.is_triangulated();
}

void initialize_dbn_window(Domain& domain) {
  DbnLayout& layout = layout_of(domain);
  retract_findings(domain);
  write_initial_prior(layout);
}

void move_dbn_window(Domain& domain, std::size_t slices) {
  DbnLayout& layout = layout_of(domain);
  const std::size_t length = layout.slices.size();
  require(slices >= 1);
  require_window_compiled(domain);
  if (slices > length) {
    move_beyond(domain, layout, slices);
    return;
  }
  // The evidence of the slices that stay is set aside for the propagation
  // that gives the interface, and entered again (moved down) afterwards.
  std::vector<std::pair<Node*, Evidence>> kept;
  for (std::size_t t = slices; t < length; ++t)
    for (std::size_t j = 0; j < layout.slices[t].size(); ++j)
      if (Node* n = layout.slices[t][j]; has_evidence(*n))
        kept.emplace_back(layout.slices[t - slices][j], n->evidence);
  std::vector<std::pair<Node*, Evidence>> all;
  for (Node* n = domain.first_node(); n != nullptr; n = n->next)
    if (has_evidence(*n)) all.emplace_back(n, n->evidence);
  std::vector<std::vector<double>> joints;
  try {
    for (std::size_t t = slices; t < length; ++t)
      for (Node* n : layout.slices[t])
        if (has_evidence(*n)) retract_findings(*n);
    propagate_domain(domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL);
    for (const auto& cluster : layout.clusters)
      joints.push_back(joint_of(domain, interface_nodes(layout, slices - 1, cluster)));
  } catch (...) {
    retract_findings(domain);
    for (const auto& [node, e] : all) enter_evidence(*node, e);
    throw;
  }
  for (std::size_t c = 0; c < layout.clusters.size(); ++c)
    write_prior(clones_of(layout, layout.clusters[c]), joints[c]);
  retract_findings(domain);
  for (const auto& [node, e] : kept) enter_evidence(*node, e);
  layout.offset += slices;
  layout.predicted.clear();
}

std::size_t dbn_window_offset(const Domain& domain) { return layout_of(domain).offset; }

void compute_dbn_predictions(Domain& domain, std::size_t steps) {
  DbnLayout& layout = layout_of(domain);
  require_window_compiled(domain);
  propagate_domain(domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL);
  Domain& predictor = compiled_predictor(layout);
  DbnLayout& one = layout_of(predictor);
  std::vector<std::size_t> all(layout.clones.size());
  for (std::size_t i = 0; i < all.size(); ++i) all[i] = i;
  std::vector<double> joint =
      joint_of(domain, interface_nodes(layout, layout.slices.size() - 1, all));
  std::vector<std::vector<std::vector<double>>> predicted;
  for (std::size_t step = 0; step < steps; ++step) {
    write_prior(one.clones, joint);
    propagate_domain(predictor, K_EQUILIBRIUM_SUM, K_MODE_NORMAL);
    auto& beliefs = predicted.emplace_back();
    for (Node* n : one.slices.front()) {
      const NodeSlot* slot = predictor.forest()->slot(*n);
      if (n->category() == K_CATEGORY_FUNCTION && n->kind() == K_KIND_OTHER) {
        // A value, or no value and the code that reading it reports.
        try {
          beliefs.push_back({function_node_value(*n)});
        } catch (const Error& e) {
          beliefs.push_back(
              {std::numeric_limits<double>::quiet_NaN(), static_cast<double>(e.code())});
        }
      } else if (slot == nullptr) beliefs.emplace_back();
      else if (n->is_discrete()) beliefs.push_back(slot->marginal);
      else beliefs.push_back({slot->mean, slot->variance});
    }
    joint = joint_of(predictor, interface_nodes(one, 0, all));
  }
  layout.predicted = std::move(predicted);
}

namespace {

const std::vector<double>& prediction(const Node& node, std::size_t time) {
  const DbnLayout& layout = layout_of(node.domain());
  const std::size_t j = layout.position_of(node);
  require(j != DbnLayout::npos && time < layout.predicted.size());
  return layout.predicted[time][j];
}

}  // namespace

double predicted_belief(const Node& node, std::size_t state, std::size_t time) {
  require(node.is_discrete());
  const std::vector<double>& beliefs = prediction(node, time);
  require(state < beliefs.size());
  return beliefs[state];
}

double predicted_mean(const Node& node, std::size_t time) {
  require(node.is_continuous());
  return prediction(node, time).at(0);
}

double predicted_value(const Node& node, std::size_t time) {
  require(node.category() == K_CATEGORY_FUNCTION && node.kind() == K_KIND_OTHER);
  const std::vector<double>& v = prediction(node, time);
  if (v.size() == 2) throw Error(static_cast<k_error_t>(v[1]));
  return v[0];
}

double predicted_variance(const Node& node, std::size_t time) {
  require(node.is_continuous());
  return prediction(node, time).at(1);
}

}  // namespace kelva
