// Hierarchical naive Bayes: latent variables introduced over pairs of
// attributes that naive Bayes would wrongly treat as independent.
#include "learning/hnb.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <string>
#include <utility>

#include "learning/independence.h"
#include "learning/structure_data.h"
#include "learning/structure_learning.h"
#include "network/domain.h"
#include "network/error.h"
#include "network/node.h"
#include "structure/structure.h"
#include "table/table.h"

namespace kelva {

namespace {

// A latent variable starts from the joint states of its pair that occur;
// pairs with more joint states than this are not offered one (the greedy
// merge costs the cube of it).
constexpr std::size_t kMaxJointStates = 64;

double xlogx(double x) { return x > 0.0 ? x * std::log(x) : 0.0; }

// A latent variable offered to a pair (a, b): the group of each joint state
// a * rb + b (npos for those that never occur), the number of groups and the
// BIC gain of target -> latent -> {a, b} over target -> a, target -> b.
struct Offer {
  std::vector<std::size_t> group_of;
  std::size_t groups = 0;
  double gain = 0.0;
};

// Counts of one group of joint states: by target state, by a, by b.
struct Group {
  std::vector<double> c, a, b;
  double total = 0.0;
  // Σ n ln n of the three families' terms that depend on the group.
  double fit() const {
    double f = -2.0 * xlogx(total);
    for (const auto* v : {&c, &a, &b})
      for (double x : *v) f += xlogx(x);
    return f;
  }
  void add(const Group& o) {
    for (std::size_t i = 0; i < c.size(); ++i) c[i] += o.c[i];
    for (std::size_t i = 0; i < a.size(); ++i) a[i] += o.a[i];
    for (std::size_t i = 0; i < b.size(); ++i) b[i] += o.b[i];
    total += o.total;
  }
};

// `n` holds the counts n(c, a, b), c varying slowest, over the cases that
// observe all three.  Each latent state starts as one joint state of (a, b)
// (the latent variable is then a function of the pair, so its value is known
// in every case and the scores are exact counts); the two groups whose merge
// raises BIC most are merged until no merge raises it.
Offer offer_latent(const std::vector<double>& n, std::size_t rc, std::size_t ra, std::size_t rb,
                   double log_n) {
  const std::size_t joint = ra * rb;
  double naive = 0.0;
  std::vector<Group> groups;
  std::vector<std::vector<std::size_t>> members;
  for (std::size_t j = 0; j < joint; ++j) {
    Group g{std::vector<double>(rc, 0.0), std::vector<double>(ra, 0.0),
            std::vector<double>(rb, 0.0), 0.0};
    for (std::size_t k = 0; k < rc; ++k) {
      const double v = n[k * joint + j];
      g.c[k] += v;
      g.a[j / rb] += v;
      g.b[j % rb] += v;
      g.total += v;
    }
    if (g.total <= 0.0) continue;
    groups.push_back(std::move(g));
    members.push_back({j});
  }
  // The naive Bayes families a | c and b | c, less the parts the latent
  // model shares (Σ_c n_c ln n_c twice, which the latent model has once).
  for (std::size_t k = 0; k < rc; ++k) {
    std::vector<double> na(ra, 0.0), nb(rb, 0.0);
    double nc = 0.0;
    for (std::size_t j = 0; j < joint; ++j) {
      na[j / rb] += n[k * joint + j];
      nb[j % rb] += n[k * joint + j];
      nc += n[k * joint + j];
    }
    for (double v : na) naive += xlogx(v);
    for (double v : nb) naive += xlogx(v);
    naive -= xlogx(nc);  // the other -n_c ln n_c cancels against the latent model's
  }
  const double half = 0.5 * log_n;
  naive -= half * static_cast<double>(rc * (ra + rb - 2));
  const double merge_saving = half * static_cast<double>(rc + ra + rb - 2);
  auto score = [&] {
    double s =
        -half * static_cast<double>(rc * (groups.size() - 1) + groups.size() * (ra + rb - 2));
    for (const Group& g : groups) s += g.fit();
    return s;
  };
  while (groups.size() > 1) {
    double best = 0.0;
    std::size_t bi = 0, bj = 0;
    for (std::size_t i = 0; i < groups.size(); ++i)
      for (std::size_t j = i + 1; j < groups.size(); ++j) {
        Group merged = groups[i];
        merged.add(groups[j]);
        const double delta = merged.fit() - groups[i].fit() - groups[j].fit() + merge_saving;
        if (delta > best) {
          best = delta;
          bi = i;
          bj = j;
        }
      }
    if (best <= 0.0) break;
    groups[bi].add(groups[bj]);
    members[bi].insert(members[bi].end(), members[bj].begin(), members[bj].end());
    groups.erase(groups.begin() + static_cast<std::ptrdiff_t>(bj));
    members.erase(members.begin() + static_cast<std::ptrdiff_t>(bj));
  }
  Offer offer;
  offer.group_of.assign(joint, LearningData::npos);
  for (std::size_t g = 0; g < members.size(); ++g)
    for (std::size_t j : members[g]) offer.group_of[j] = g;
  offer.groups = groups.size();
  offer.gain = score() - naive;
  return offer;
}

// The table of `child` given `parent` (npos: none) as the node table holds
// it, the parent's state varying slowest: counts over the cases observing
// both, plus one pseudo-count per parent state spread evenly over the
// child's states, so that no configuration is impossible.
std::vector<double> estimate(const LearningData& data, std::size_t child, std::size_t parent) {
  const std::vector<double> n = parent == LearningData::npos ? joint_counts(data, {child})
                                                             : joint_counts(data, {parent, child});
  const std::size_t r = data.states[child];
  std::vector<double> p(n.size());
  for (std::size_t base = 0; base < n.size(); base += r) {
    double total = 1.0;
    for (std::size_t s = 0; s < r; ++s) total += n[base + s];
    for (std::size_t s = 0; s < r; ++s)
      p[base + s] = (n[base + s] + 1.0 / static_cast<double>(r)) / total;
  }
  return p;
}

}  // namespace

std::vector<Node*> learn_hnb_structure(Domain& domain, Node& target) {
  require(&target.domain() == &domain);
  LearningData work = learning_data(domain);
  const std::size_t y = work.index_of(&target);
  const std::size_t n = work.variables();
  const EdgeRules rules = edge_rules(domain, work);
  // active: a child of the target now; pairable: may get a latent parent.
  std::vector<std::uint8_t> active(n, 1), pairable(n, 1);
  active[y] = 0;
  for (std::size_t k = 0; k < n; ++k) {
    if (k == y) continue;
    for (std::size_t j = k + 1; j < n; ++j)
      if (j != y && rules.required(k, j))
        throw Error(K_ERROR_USAGE,
                    "a hierarchical naive Bayes model cannot keep the required link "
                    "between " +
                        work.nodes[k]->name() + " and " + work.nodes[j]->name());
    if (rules.required(y, k) && rules.forbidden(y, k))
      throw Error(K_ERROR_USAGE, "a hierarchical naive Bayes model cannot give its class " +
                                     target.name() + " the parent " + work.nodes[k]->name());
    if (rules.forbidden(y, k)) active[k] = 0;
    if (rules.required(y, k)) pairable[k] = 0;
  }

  const double alpha = domain.significance_level;
  const double log_n = std::log(work.total);
  std::map<std::pair<std::size_t, std::size_t>, IndependenceTest> tests;
  std::map<std::pair<std::size_t, std::size_t>, bool> refused;
  std::vector<std::array<std::size_t, 2>> children;  // of latent n + i
  for (;;) {
    struct Candidate {
      double p, statistic;
      std::size_t a, b;
    };
    std::vector<Candidate> candidates;
    for (std::size_t a = 0; a < work.variables(); ++a)
      for (std::size_t b = a + 1; b < work.variables(); ++b) {
        if (!active[a] || !active[b] || !pairable[a] || !pairable[b] || refused.count({a, b}))
          continue;
        auto it = tests.find({a, b});
        if (it == tests.end())
          it = tests.emplace(std::make_pair(a, b), g2_test(work, a, b, {y})).first;
        if (it->second.p_value <= alpha)
          candidates.push_back({it->second.p_value, it->second.statistic, a, b});
      }
    std::stable_sort(candidates.begin(), candidates.end(),
                     [](const Candidate& l, const Candidate& r) {
                       return l.p < r.p || (l.p == r.p && l.statistic > r.statistic);
                     });
    bool grown = false;
    for (const Candidate& cand : candidates) {
      const std::size_t a = cand.a, b = cand.b, ra = work.states[a], rb = work.states[b];
      refused[{a, b}] = true;
      if (ra * rb > kMaxJointStates) continue;
      const Offer offer =
          offer_latent(joint_counts(work, {y, a, b}), work.states[y], ra, rb, log_n);
      // Above rounding noise in sums of n ln n.
      if (!(offer.gain > 1e-9 * work.total)) continue;
      std::vector<std::int16_t> column(work.cases(), -1);
      for (std::size_t c = 0; c < work.cases(); ++c) {
        const std::int16_t sa = work.columns[a][c], sb = work.columns[b][c];
        if (sa < 0 || sb < 0) continue;
        const std::size_t g =
            offer.group_of[static_cast<std::size_t>(sa) * rb + static_cast<std::size_t>(sb)];
        // A joint state seen only in cases without the target has no group.
        if (g != LearningData::npos) column[c] = static_cast<std::int16_t>(g);
      }
      work.nodes.push_back(nullptr);
      work.states.push_back(offer.groups);
      work.columns.push_back(std::move(column));
      children.push_back({a, b});
      active[a] = active[b] = 0;
      active.push_back(1);
      pairable.push_back(1);
      grown = true;
      break;
    }
    if (!grown) break;
  }

  // Parents and tables first, so that nothing can fail after the links change.
  const std::size_t items = work.variables();
  std::vector<std::vector<std::size_t>> parents(items);
  for (std::size_t i = 0; i < items; ++i)
    if (active[i]) parents[i] = {y};
  for (std::size_t l = 0; l < children.size(); ++l)
    for (std::size_t child : children[l]) parents[child] = {n + l};
  std::vector<std::vector<double>> tables(items);
  for (std::size_t i = 0; i < items; ++i)
    if (i == y || !parents[i].empty())
      tables[i] = estimate(work, i, parents[i].empty() ? LearningData::npos : parents[i][0]);

  const std::uint64_t counter = domain.counter();
  std::vector<Node*> made;
  try {
    std::size_t suffix = 0;
    for (std::size_t i = n; i < items; ++i) {
      Node* node = domain.new_node(K_CATEGORY_CHANCE, K_KIND_DISCRETE, K_SUBTYPE_LABEL);
      made.push_back(node);
      set_number_of_states(*node, work.states[i]);
      std::string name;
      do name = "Latent" + std::to_string(++suffix);
      while (domain.find(name) != nullptr);
      domain.rename(*node, name.c_str());
      work.nodes[i] = node;
    }
    install_structure(domain, work, parents);
  } catch (...) {
    for (Node* node : made) delete_node(*node);
    domain.rewind_counter(counter);
    throw;
  }
  for (std::size_t i = 0; i < items; ++i) {
    if (tables[i].empty()) continue;
    Table& t = node_table(*work.nodes[i]);
    std::copy(tables[i].begin(), tables[i].end(), t.data());
    t.notify_changed();
  }
  return made;
}

}  // namespace kelva
