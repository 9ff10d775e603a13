#include "inference/cg_propagate.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <unordered_map>

#include "inference/evidence.h"
#include "network/domain.h"
#include "network/error.h"
#include "network/node.h"

namespace kelva {

CgTree::CgTree() {
  Destroy<CgTree>::registered = [](CgTree* cg) noexcept { delete cg; };
}

namespace {

// Appends `node` after its continuous parents (depth first), once.
void visit(Node* node, std::vector<Node*>& order, std::unordered_map<const Node*, bool>& seen) {
  auto [it, fresh] = seen.try_emplace(node, true);
  if (!fresh) return;
  for (Node* p : node->parents())
    if (p->is_continuous()) visit(p, order, seen);
  order.push_back(node);
}

std::size_t find_root(std::vector<std::size_t>& up, std::size_t i) noexcept {
  while (up[i] != i) i = up[i] = up[up[i]];
  return i;
}

// The smallest clique of `tree` that holds every node of `discrete` (and,
// when that is empty, `member`).
Clique* home_clique(const JunctionTree& tree, const std::vector<Node*>& discrete, Node* member) {
  Clique* best = nullptr;
  for (Clique* const* c = tree.cliques.data(); *c != nullptr; ++c) {
    const Clique& clique = **c;
    bool holds = discrete.empty() ? clique.members.contains(member) : true;
    for (const Node* d : discrete) holds = holds && clique.members.contains(d);
    if (holds && (best == nullptr || clique.discrete_size < best->discrete_size)) best = *c;
  }
  if (best == nullptr)
    throw Error(K_ERROR_ERROR,
                "no clique holds the discrete parents of continuous node '" + member->name() + "'");
  return best;
}

CgComponent make_component(const JunctionTree& tree, const std::vector<Node*>& order) {
  CgComponent comp;
  std::unordered_map<const Node*, std::size_t> index;
  for (std::size_t i = 0; i < order.size(); ++i) index[order[i]] = i;
  std::vector<Node*> discrete;
  for (Node* node : order) {
    const Table& t = *node->table();
    for (std::size_t k = 0; k < t.discrete_count(); ++k)
      if (std::find(discrete.begin(), discrete.end(), t.nodes()[k]) == discrete.end())
        discrete.push_back(t.nodes()[k]);
  }
  comp.home = home_clique(tree, discrete, order.front());
  const NodeList& members = comp.home->members;
  std::sort(discrete.begin(), discrete.end(), [&members](const Node* a, const Node* b) {
    return members.index_of(a) < members.index_of(b);
  });
  std::vector<std::size_t> axes;
  for (const Node* d : discrete) axes.push_back(members.index_of(d));
  comp.plan = IndexPlan(comp.home->table->state_counts(), axes);
  comp.discrete = discrete;
  comp.configurations = comp.plan.small_size();
  for (Node* node : order) {
    const Table& t = *node->table();
    CgComponent::Member m{node, t.nodes().index_of(node) - t.discrete_count(), {}, {}};
    for (std::size_t j = t.discrete_count(); j < t.nodes().size(); ++j)
      if (t.nodes()[j] != node)
        m.parents.emplace_back(index.at(t.nodes()[j]), j - t.discrete_count());
    for (const Node* d : discrete) {
      std::uint64_t stride = 0;
      const std::size_t at = t.nodes().index_of(d);
      if (at < t.discrete_count()) {
        stride = 1;
        for (std::size_t k = at + 1; k < t.discrete_count(); ++k) stride *= t.state_counts()[k];
      }
      m.strides.push_back(stride);
    }
    comp.members.push_back(std::move(m));
  }
  const std::uint64_t n = comp.members.size();
  comp.log_density.assign(comp.configurations, 0.0);
  comp.mean.assign(comp.configurations * n, 0.0);
  comp.variance.assign(comp.configurations * n, 0.0);
  comp.weight.assign(comp.configurations, 0.0);
  return comp;
}

void build_components(JunctionTree& tree, CgTree& cg) {
  std::vector<Node*> nodes;
  std::unordered_map<const Node*, std::size_t> index;
  for (Node* const* p = tree.nodes.data(); *p != nullptr; ++p)
    if ((*p)->is_continuous() && (*p)->table() != nullptr) {
      index[*p] = nodes.size();
      nodes.push_back(*p);
    }
  std::vector<std::size_t> up(nodes.size());
  for (std::size_t i = 0; i < up.size(); ++i) up[i] = i;
  for (std::size_t i = 0; i < nodes.size(); ++i)
    for (Node* p : nodes[i]->parents())
      if (auto it = index.find(p); it != index.end())
        up[find_root(up, i)] = find_root(up, it->second);
  std::size_t largest = 0;
  std::unordered_map<const Node*, bool> seen;
  for (std::size_t r = 0; r < nodes.size(); ++r) {
    if (find_root(up, r) != r) continue;
    std::vector<Node*> order;
    for (std::size_t i = 0; i < nodes.size(); ++i)
      if (find_root(up, i) == r) visit(nodes[i], order, seen);
    largest = std::max(largest, order.size());
    cg.components.push_back(make_component(tree, order));
  }
  cg.member_mean.assign(largest, 0.0);
  cg.member_variance.assign(largest, 0.0);
  cg.gaussian.reset(largest);
}

// The Gaussian of `comp` in configuration `b` of its discrete parents,
// conditioned on the entered values: their log density, and the members'
// moments.
void solve(CgTree& cg, CgComponent& comp, std::uint64_t b) {
  const std::size_t n = comp.members.size();
  CgRegression& g = cg.gaussian;
  g.reset(n);
  for (std::size_t i = 0; i < n; ++i) {
    const CgComponent::Member& m = comp.members[i];
    const std::uint64_t c = cg_member_configuration(comp, i, b);
    const Table& t = *m.node->table();
    g.alpha(i) = t.mean(c, m.self);
    g.gamma(i) = t.covariance(c, m.self, m.self);
    for (const auto& [j, pos] : m.parents) g.beta(i, j) = t.coefficient(c, pos);
  }
  double ll = 0.0;
  for (std::size_t i = 0; i < n; ++i) {
    const Evidence& ev = comp.members[i].node->evidence;
    if (ev.entered) ll += g.condition(i, ev.entered_value);
  }
  g.moments(cg.member_mean.data(), cg.member_variance.data());
  comp.log_density[b] = ll;
  std::copy_n(cg.member_mean.data(), n, comp.mean.data() + b * n);
  std::copy_n(cg.member_variance.data(), n, comp.variance.data() + b * n);
}

double largest_log_density(const CgComponent& comp) noexcept {
  double top = -HUGE_VAL;
  for (double ll : comp.log_density) top = std::fmax(top, ll);
  return top;
}

}  // namespace

std::uint64_t cg_member_configuration(const CgComponent& comp, std::size_t i, std::uint64_t b) {
  // Digits of b, last discrete parent fastest, as in the plan's small table.
  const CgComponent::Member& m = comp.members[i];
  std::uint64_t c = 0;
  for (std::size_t q = comp.discrete.size(); q-- > 0;) {
    const std::uint64_t count = comp.discrete[q]->state_count();
    c += b % count * m.strides[q];
    b /= count;
  }
  return c;
}

void cg_solve(CgTree& tree, CgComponent& comp, std::uint64_t b) { solve(tree, comp, b); }

bool cg_evidence_waiting(const JunctionTree& tree) noexcept {
  for (Node* const* p = tree.nodes.data(); *p != nullptr; ++p)
    if ((*p)->is_continuous() && evidence_to_propagate(**p)) return true;
  return false;
}

void cg_initialise(JunctionTree& tree) {
  if (tree.cg == nullptr) {
    if (tree.domain->continuous_count() == 0) return;
    bool continuous = false;
    for (Node* const* p = tree.nodes.data(); *p != nullptr; ++p)
      continuous = continuous || (*p)->is_continuous();
    if (!continuous) return;
    auto cg = CgTreePtr(new CgTree);
    build_components(tree, *cg);
    tree.cg = std::move(cg);
  }
  tree.cg->log_scale = 0.0;
  for (CgComponent& comp : tree.cg->components) {
    comp.evidence = false;
    for (const CgComponent::Member& m : comp.members) comp.evidence |= m.node->evidence.entered;
    for (std::uint64_t b = 0; b < comp.configurations; ++b) solve(*tree.cg, comp, b);
    if (comp.evidence && !(std::exp(largest_log_density(comp)) >= DBL_MIN))
      throw Error(K_ERROR_LOW_DENSITY);
  }
}

void cg_multiply_likelihoods(JunctionTree& tree, const Parallelism& parallelism) {
  if (tree.cg == nullptr) return;
  tree.cg->log_scale = 0.0;
  for (CgComponent& comp : tree.cg->components) {
    if (!comp.evidence) continue;
    const double top = largest_log_density(comp);
    for (std::uint64_t b = 0; b < comp.configurations; ++b)
      comp.weight[b] = std::exp(comp.log_density[b] - top);
    multiply(comp.plan, comp.home->table->data(), comp.weight.data(), parallelism);
    tree.cg->log_scale += top;
  }
}

double cg_log_scale(const JunctionTree& tree) noexcept {
  return tree.cg == nullptr ? 0.0 : tree.cg->log_scale;
}

void cg_set_moments(JunctionTree& tree, const Parallelism& parallelism) {
  if (tree.cg == nullptr) return;
  Forest& forest = *tree.domain->forest();
  for (CgComponent& comp : tree.cg->components) {
    double* w = comp.weight.data();
    marginalize(comp.plan, comp.home->table->data(), w, Reduce::sum, parallelism);
    double total = 0.0;
    for (std::uint64_t b = 0; b < comp.configurations; ++b) total += w[b];
    for (std::uint64_t b = 0; b < comp.configurations && total > 0.0; ++b) w[b] /= total;
    const std::size_t n = comp.members.size();
    for (std::size_t i = 0; i < n; ++i) {
      NodeSlot* slot = forest.slot(*comp.members[i].node);
      if (slot == nullptr) continue;
      double mean = 0.0;
      for (std::uint64_t b = 0; b < comp.configurations; ++b) mean += w[b] * comp.mean[b * n + i];
      // Spread around the mixture's mean, without the cancellation of
      // E[X^2] - E[X]^2.
      double variance = 0.0;
      for (std::uint64_t b = 0; b < comp.configurations; ++b) {
        const double d = comp.mean[b * n + i] - mean;
        variance += w[b] * (comp.variance[b * n + i] + d * d);
      }
      slot->mean = mean;
      slot->variance = variance;
    }
  }
}

std::unique_ptr<Table> cg_distribution(Node& node) {
  require(node.is_continuous());
  Domain& domain = node.domain();
  require(domain.is_compiled(), K_ERROR_NOT_COMPILED);
  const NodeSlot* slot = domain.forest()->slot(node);
  require(slot != nullptr && slot->tree != nullptr, K_ERROR_NOT_COMPILED);
  require(slot->tree->equilibrium != K_EQUILIBRIUM_NONE, K_ERROR_NO_EQUILIBRIUM);
  std::size_t i = 0;
  const CgComponent* comp = cg_component_of(*slot->tree, node, &i);
  require(comp != nullptr, K_ERROR_NOT_COMPILED);
  std::vector<Node*> nodes = comp->discrete;
  nodes.push_back(&node);
  auto table = std::make_unique<Table>(domain, nodes, TableRole::free, nullptr);
  table->allocate();
  const std::size_t n = comp->members.size();
  for (std::uint64_t b = 0; b < comp->configurations; ++b) {
    table->data()[b] = comp->weight[b];
    table->set_mean(b, 0, comp->mean[b * n + i]);
    table->set_covariance(b, 0, 0, comp->variance[b * n + i]);
  }
  return table;
}

const CgComponent* cg_component_of(const JunctionTree& tree, const Node& node,
                                   std::size_t* member) noexcept {
  if (tree.cg == nullptr) return nullptr;
  for (const CgComponent& comp : tree.cg->components)
    for (std::size_t i = 0; i < comp.members.size(); ++i)
      if (comp.members[i].node == &node) {
        *member = i;
        return &comp;
      }
  return nullptr;
}

}  // namespace kelva
