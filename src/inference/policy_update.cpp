// Single policy updating: each decision's policy in turn becomes the best
// deterministic answer to the other policies.  The value of a policy
// entry comes from one propagation with the decision's policy set to ones
// (every option allowed, weight 1): for each configuration f of the
// decision and its parents, Q(f) = P(f, e) E[U | f, e] over the utilities
// of the decision's junction tree, gathered by one pass of expected
// utilities towards the clique that holds the policy.

#include "inference/policy_update.h"

#include <algorithm>
#include <cmath>
#include <unordered_map>
#include <vector>

#include "compile/junction_forest.h"
#include "inference/evidence.h"
#include "inference/propagate.h"
#include "inference/tree_values.h"
#include "network/domain.h"
#include "network/error.h"
#include "network/node.h"
#include "table/table.h"
#include "table/table_ops.h"

namespace kelva {

namespace {

// Adds `small` into the plan's large table: large[l] += small[s].
void add_through(const IndexPlan& plan, double* large, const double* small) {
  const std::uint64_t ss = plan.inner_small_stride();
  plan.walk(0, plan.large_size(), [&](std::uint64_t l, std::uint64_t s, std::uint64_t n) {
    for (std::uint64_t k = 0; k < n; ++k) large[l + k] += small[s + k * ss];
  });
}

// P(f, e), P(f, e) E[U | f, e] and P(f, e) E[U^2 | f, e] over the
// configurations f of a policy's nodes, from a tree in sum equilibrium
// (normalized) whose schedule is rooted at the clique the policy is
// assigned to; U is the sum of the tree's utilities.
struct FamilyValues {
  std::vector<double> probability;
  std::vector<double> weighted_utility;
  std::vector<double> weighted_square;
};

// First and second moments of the tree's total utility collected towards
// the schedule's root: each link's separator scratch receives E[U below it |
// separator] (the utilities assigned beyond the link), and the root's
// E[U | c] per root clique entry is returned; with `second`, each link's
// conditional variance of U below it is kept too and the root's
// E[U^2 | c] returned.  Given a clique's configuration the subtrees beyond
// its links are independent, so E[U^2 | c] = a(c)^2 + the sum of the
// links' conditional variances, with a(c) = E[U | c].
struct RootMoments {
  std::vector<double> first;
  std::vector<double> second;
};

RootMoments collect_utilities(JunctionTree& tree,
                              const std::vector<std::vector<const NodeSlot*>>& by_clique,
                              const Parallelism& par, bool second) {
  const auto& schedule = tree.schedule;
  double* u = tree.utility_scratch.data();
  std::vector<std::vector<double>> spread(second ? schedule.size() : 0);
  std::vector<double> v;
  // u over `clique` := its assigned utilities plus the messages of the links
  // leaving it outwards (positions first.. while their inner is the clique);
  // `var` := the sum of those links' conditional variances.
  auto gather = [&](const Clique& clique, std::size_t first, double* out,
                    std::vector<double>& var) {
    std::fill(out, out + clique.table->size(), 0.0);
    var.assign(second ? clique.table->size() : 0, 0.0);
    for (const NodeSlot* s : by_clique[clique.number])
      add_through(s->assigned_plan, out, s->node->table()->data());
    for (std::size_t k = first; k < schedule.size() && schedule[k].inner == &clique; ++k) {
      add_through(*schedule[k].inner_plan, out, schedule[k].separator->scratch.data());
      if (second) add_through(*schedule[k].inner_plan, var.data(), spread[k].data());
    }
  };
  std::vector<double> square;
  for (std::size_t i = schedule.size(); i-- > 0;) {
    const JunctionTree::Message& link = schedule[i];
    const Clique& outer = *link.outer;
    const std::uint64_t size = outer.table->size();
    gather(outer, link.first_child, u, v);
    const double* p = outer.table->data();
    if (second)
      for (std::uint64_t k = 0; k < size; ++k) v[k] = p[k] * (u[k] * u[k] + v[k]);
    for (std::uint64_t k = 0; k < size; ++k) u[k] *= p[k];
    Separator& sep = *link.separator;
    double* m = sep.scratch.data();
    const std::uint64_t n = sep.table->size();
    marginalize(*link.outer_plan, u, m, Reduce::sum, par);
    const double* ps = sep.table->data();
    for (std::uint64_t k = 0; k < n; ++k) m[k] = ps[k] > 0.0 ? m[k] / ps[k] : 0.0;
    if (!second) continue;
    square.resize(n);
    marginalize(*link.outer_plan, v.data(), square.data(), Reduce::sum, par);
    spread[i].resize(n);
    for (std::uint64_t k = 0; k < n; ++k)
      spread[i][k] = ps[k] > 0.0 ? square[k] / ps[k] - m[k] * m[k] : 0.0;
  }
  const Clique& root = *tree.schedule_root;
  RootMoments r;
  r.first.resize(root.table->size());
  gather(root, 0, r.first.data(), r.second);
  for (std::size_t k = 0; k < r.second.size(); ++k) r.second[k] += r.first[k] * r.first[k];
  return r;
}

// The utilities of `tree` by the clique they are assigned to.
std::vector<std::vector<const NodeSlot*>> utilities_by_clique(const JunctionTree& tree) {
  Forest& forest = *tree.domain->forest();
  std::vector<std::vector<const NodeSlot*>> result(forest.cliques.size());
  for (Node* const* p = tree.nodes.data(); *p != nullptr; ++p) {
    const NodeSlot* s = forest.slot(**p);
    if ((*p)->category() == K_CATEGORY_UTILITY && s != nullptr && s->assigned != nullptr)
      result[s->assigned->number].push_back(s);
  }
  return result;
}

// Sets the decision's policy aside (ones) and its manual choice too, so
// that every option is open, propagates its tree with the policy's clique
// as root and returns the family values.  The caller restores the policy
// and the choice (Suspension below).
FamilyValues evaluate_family(Node& decision,
                             const std::vector<std::vector<const NodeSlot*>>& by_clique,
                             bool second) {
  Domain& domain = decision.domain();
  NodeSlot& slot = *domain.forest()->slot(decision);
  JunctionTree& tree = *slot.tree;
  Table& policy = *decision.table();
  std::fill(policy.data(), policy.data() + policy.size(), 1.0);
  decision.evidence.entered_code = Evidence::kNone;
  tree.needs_initialisation = true;
  propagate_tree_values(tree, slot.assigned);

  const Parallelism par = Parallelism::of(domain);
  RootMoments r = collect_utilities(tree, by_clique, par, second);
  const Clique& clique = *slot.assigned;
  const double* p = clique.table->data();
  for (std::uint64_t k = 0; k < clique.table->size(); ++k) r.first[k] *= p[k];
  for (std::uint64_t k = 0; k < r.second.size(); ++k) r.second[k] *= p[k];
  FamilyValues v;
  v.probability.resize(policy.size());
  v.weighted_utility.resize(policy.size());
  marginalize(slot.assigned_plan, p, v.probability.data(), Reduce::sum, par);
  marginalize(slot.assigned_plan, r.first.data(), v.weighted_utility.data(), Reduce::sum, par);
  if (second) {
    v.weighted_square.resize(policy.size());
    marginalize(slot.assigned_plan, r.second.data(), v.weighted_square.data(), Reduce::sum, par);
  }
  return v;
}

// Keeps a decision's policy and manual choice, and puts them back.
class Suspension {
 public:
  explicit Suspension(Node& decision)
      : decision_(decision),
        policy_(decision.table()->data(), decision.table()->data() + decision.table()->size()),
        choice_(decision.evidence.entered_code) {}
  Suspension(const Suspension&) = delete;
  Suspension& operator=(const Suspension&) = delete;
  ~Suspension() { restore(); }
  void restore() noexcept {
    std::copy(policy_.begin(), policy_.end(), decision_.table()->data());
    decision_.evidence.entered_code = choice_;
    JunctionTree& tree = *decision_.domain().forest()->slot(decision_)->tree;
    tree.needs_initialisation = true;
    tree.evidence_to_propagate = count_evidence_to_propagate(tree);
  }
  const std::vector<double>& policy() const noexcept { return policy_; }

 private:
  Node& decision_;
  std::vector<double> policy_;
  std::int64_t choice_;
};

// The decisions of `tree` with a policy clique, ancestors before
// descendants.
std::vector<Node*> tree_decisions(const JunctionTree& tree) {
  Forest& forest = *tree.domain->forest();
  std::vector<Node*> decisions;
  for (Node* const* p = tree.nodes.data(); *p != nullptr; ++p) {
    const NodeSlot* s = forest.slot(**p);
    if ((*p)->category() == K_CATEGORY_DECISION && s != nullptr && s->assigned != nullptr &&
        (*p)->table() != nullptr)
      decisions.push_back(*p);
  }
  // The tree's node list runs newest first; order by depth (longest path
  // from a node without parents), which puts every ancestor first.
  std::unordered_map<const Node*, std::size_t> depth;
  std::vector<const Node*> stack;
  auto depth_of = [&](const Node* start) {
    stack.assign(1, start);
    while (!stack.empty()) {
      const Node* n = stack.back();
      if (depth.contains(n)) {
        stack.pop_back();
        continue;
      }
      std::size_t d = 0;
      bool ready = true;
      for (const Node* q : n->parents()) {
        auto it = depth.find(q);
        if (it == depth.end()) {
          stack.push_back(q);
          ready = false;
        } else {
          d = std::max(d, it->second + 1);
        }
      }
      if (!ready) continue;
      depth.emplace(n, d);
      stack.pop_back();
    }
    return depth.at(start);
  };
  std::stable_sort(decisions.begin(), decisions.end(),
                   [&](Node* a, Node* b) { return depth_of(a) < depth_of(b); });
  return decisions;
}

void require_solvable(const Domain& domain) {
  require(domain.is_compiled(), K_ERROR_NOT_COMPILED);
  require(!domain.is_compressed(), K_ERROR_COMPRESSED);
  require(domain.count(K_CATEGORY_FUNCTION) == 0, K_ERROR_FUNCTIONAL_DEPENDENCY);
}

// The best deterministic policy for the family values: per configuration
// of the parents, the option of largest Q; among options within a relative
// 1e-12 of the best, the current one if the current policy is
// deterministic there, else the lowest index.  Returns whether it differs
// from `policy`, which it overwrites.
bool choose(const std::vector<double>& q, std::size_t options, std::vector<double>& policy) {
  double scale = 0.0;
  for (double v : q) scale = std::max(scale, std::fabs(v));
  const double tolerance = 1e-12 * scale;
  bool changed = false;
  for (std::size_t row = 0; row < q.size(); row += options) {
    double best = q[row];
    for (std::size_t k = 1; k < options; ++k) best = std::max(best, q[row + k]);
    std::size_t pick = options;
    for (std::size_t k = 0; k < options; ++k)
      if (policy[row + k] == 1.0 && q[row + k] >= best - tolerance) pick = k;
    for (std::size_t k = 0; k < options && pick == options; ++k)
      if (q[row + k] >= best - tolerance) pick = k;
    for (std::size_t k = 0; k < options; ++k) {
      const double v = k == pick ? 1.0 : 0.0;
      if (policy[row + k] != v) changed = true;
      policy[row + k] = v;
    }
  }
  return changed;
}

// Sweeps over the decisions of one tree until no policy changes; returns
// the number of sweeps.
std::uint64_t solve_tree(JunctionTree& tree) {
  const std::vector<Node*> decisions = tree_decisions(tree);
  if (decisions.empty()) return 0;
  const auto by_clique = utilities_by_clique(tree);
  std::uint64_t sweeps = 0;
  for (bool changed = true; changed;) {
    changed = false;
    ++sweeps;
    for (auto it = decisions.rbegin(); it != decisions.rend(); ++it) {
      Node& d = **it;
      if (d.evidence.entered_code >= 0) continue;  // its policy is its manual choice
      std::vector<double> policy;
      FamilyValues v;
      {
        Suspension kept(d);
        v = evaluate_family(d, by_clique, false);
        policy = kept.policy();
      }
      if (choose(v.weighted_utility, d.state_count(), policy)) {
        changed = true;
        std::copy(policy.begin(), policy.end(), d.table()->data());
      }
    }
  }
  return sweeps;
}

void reset_trees(Domain& domain) noexcept {
  for (auto& t : domain.forest()->trees) {
    t->needs_initialisation = true;
    t->equilibrium = K_EQUILIBRIUM_NONE;
  }
}

// The variance of the total utility of a tree in sum equilibrium, by a
// collect over its current schedule.
double tree_variance(JunctionTree& tree) {
  const auto by_clique = utilities_by_clique(tree);
  if (std::all_of(by_clique.begin(), by_clique.end(), [](const auto& c) { return c.empty(); }))
    return 0.0;
  const RootMoments r = collect_utilities(tree, by_clique, Parallelism::of(*tree.domain), true);
  const double* p = tree.schedule_root->table->data();
  double first = 0.0;
  double second = 0.0;
  for (std::size_t k = 0; k < r.first.size(); ++k) {
    first += p[k] * r.first[k];
    second += p[k] * r.second[k];
  }
  return std::max(0.0, second - first * first);
}

// The option values of the decisions of `tree` (see set_decision_results),
// with `elsewhere` the expected utility of the other trees' utilities and
// `spread` the variance of their sum (the trees are independent).
void set_tree_results(JunctionTree& tree, double elsewhere, double spread) {
  Forest& forest = *tree.domain->forest();
  const std::vector<Node*> decisions = tree_decisions(tree);
  if (decisions.empty()) return;
  const auto by_clique = utilities_by_clique(tree);
  std::vector<std::vector<double>> options(decisions.size());
  std::vector<std::vector<double>> family(decisions.size());
  std::vector<std::vector<double>> variances(decisions.size());
  for (std::size_t i = 0; i < decisions.size(); ++i) {
    Node& d = *decisions[i];
    FamilyValues v;
    {
      Suspension kept(d);
      v = evaluate_family(d, by_clique, true);
    }
    const std::size_t n = d.state_count();
    std::vector<double> p(n, 0.0);
    std::vector<double> q(n, 0.0);
    std::vector<double> r(n, 0.0);
    family[i].resize(v.probability.size());
    for (std::size_t k = 0; k < v.probability.size(); ++k) {
      p[k % n] += v.probability[k];
      q[k % n] += v.weighted_utility[k];
      r[k % n] += v.weighted_square[k];
      family[i][k] =
          elsewhere + (v.probability[k] > 0.0 ? v.weighted_utility[k] / v.probability[k] : 0.0);
    }
    options[i].resize(n);
    variances[i].resize(n);
    for (std::size_t k = 0; k < n; ++k) {
      const double mean = p[k] > 0.0 ? q[k] / p[k] : 0.0;
      options[i][k] = elsewhere + mean;
      variances[i][k] = spread + (p[k] > 0.0 ? std::max(0.0, r[k] / p[k] - mean * mean) : 0.0);
    }
  }
  propagate_tree(tree, nullptr, K_EQUILIBRIUM_SUM, K_MODE_NORMAL);
  for (std::size_t i = 0; i < decisions.size(); ++i) {
    NodeSlot& s = *forest.slot(*decisions[i]);
    s.expected_utility = options[i];
    s.decision_utilities = family[i];
    s.utility_variance = variances[i];
  }
}

}  // namespace

std::uint64_t update_policies(Domain& domain) {
  require_solvable(domain);
  Forest& forest = *domain.forest();
  std::vector<Node*> decisions;
  std::vector<std::vector<double>> before;
  for (Node* n = domain.first_node(); n != nullptr; n = n->next) {
    if (n->category() != K_CATEGORY_DECISION || n->table() == nullptr) continue;
    require(n->evidence.entered_code != Evidence::kVector, K_ERROR_INVALID_EVIDENCE);
    decisions.push_back(n);
    before.emplace_back(n->table()->data(), n->table()->data() + n->table()->size());
  }
  std::uint64_t sweeps = 0;
  try {
    // The start: uniform policies, or "always the option taken" for a
    // decision taken by hand.
    for (Node* d : decisions) {
      double* p = d->table()->data();
      const std::size_t options = d->state_count();
      const std::int64_t choice = d->evidence.entered_code;
      for (std::uint64_t i = 0; i < d->table()->size(); ++i)
        p[i] = choice >= 0 ? (i % options == static_cast<std::uint64_t>(choice) ? 1.0 : 0.0)
                           : 1.0 / static_cast<double>(options);
    }
    for (auto& tree : forest.trees) sweeps = std::max(sweeps, solve_tree(*tree));
    for (Node* d : decisions) d->table()->notify_changed();
    propagate_domain(domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL);
  } catch (...) {
    for (std::size_t i = 0; i < decisions.size(); ++i)
      std::copy(before[i].begin(), before[i].end(), decisions[i]->table()->data());
    reset_trees(domain);
    throw;
  }
  return sweeps;
}

void set_decision_results(Domain& domain) {
  if (domain.count(K_CATEGORY_DECISION) == 0 || domain.count(K_CATEGORY_UTILITY) == 0) return;
  if (domain.is_compressed() || domain.count(K_CATEGORY_FUNCTION) > 0) return;
  Forest& forest = *domain.forest();
  // Each tree's utilities, under the current policies: a decision's options
  // change only its own tree's.
  double total = 0.0;
  std::vector<double> own(forest.trees.size(), 0.0);
  for (std::size_t t = 0; t < forest.trees.size(); ++t)
    for (Node* const* p = forest.trees[t]->nodes.data(); *p != nullptr; ++p) {
      const NodeSlot* s = forest.slot(**p);
      if ((*p)->category() == K_CATEGORY_UTILITY && s != nullptr && !s->expected_utility.empty())
        own[t] += s->expected_utility[0];
    }
  for (double v : own) total += v;
  try {
    std::vector<double> spread(forest.trees.size(), 0.0);
    for (std::size_t t = 0; t < forest.trees.size(); ++t)
      if (forest.trees.size() > 1) spread[t] = tree_variance(*forest.trees[t]);
    double spread_total = 0.0;
    for (double v : spread) spread_total += v;
    for (std::size_t t = 0; t < forest.trees.size(); ++t)
      set_tree_results(*forest.trees[t], total - own[t], spread_total - spread[t]);
  } catch (...) {
    reset_trees(domain);
    throw;
  }
}

double utility_variance(Node& utility) {
  require(utility.domain().is_compiled(), K_ERROR_NOT_COMPILED);
  const NodeSlot* slot = utility.domain().forest()->slot(utility);
  require(slot != nullptr && slot->tree != nullptr && slot->assigned != nullptr,
          K_ERROR_NOT_COMPILED);
  require(slot->tree->equilibrium != K_EQUILIBRIUM_NONE, K_ERROR_NO_EQUILIBRIUM);
  const Table& table = *utility.table();
  std::vector<double> p(table.size());
  marginalize(slot->assigned_plan, slot->assigned->table->data(), p.data(), Reduce::sum,
              Parallelism::of(utility.domain()));
  double total = 0.0;
  double first = 0.0;
  double second = 0.0;
  for (std::uint64_t k = 0; k < table.size(); ++k) {
    const double u = table.data()[k];
    total += p[k];
    first += p[k] * u;
    second += p[k] * u * u;
  }
  require(total > 0.0, K_ERROR_NO_EQUILIBRIUM);
  first /= total;
  return std::max(0.0, second / total - first * first);
}

}  // namespace kelva
