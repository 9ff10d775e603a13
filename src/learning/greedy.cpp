// Score-based search: family scores from counts, hill climbing with a tabu
// list and random restarts.
#include <algorithm>
#include <cmath>
#include <deque>

#include "learning/search.h"
#include "learning/structure_learning.h"
#include "network/domain.h"
#include "network/error.h"
#include "network/node.h"

namespace kelva {

FamilyScorer::FamilyScorer(const LearningData& data, k_score_t score)
    : data_(data), kind_(score), log_n_(std::log(data.total)) {}

bool FamilyScorer::affordable(const std::vector<std::size_t>& parents) const {
  double q = 1.0;
  for (std::size_t p : parents) q *= static_cast<double>(data_.states[p]);
  return q <= static_cast<double>(data_.cases());
}

double FamilyScorer::score(std::size_t child, std::vector<std::size_t> parents) {
  std::sort(parents.begin(), parents.end());
  std::string key(2 * (parents.size() + 1), '\0');
  auto put = [&](std::size_t at, std::size_t v) {
    key[2 * at] = static_cast<char>(v & 0xff);
    key[2 * at + 1] = static_cast<char>(v >> 8);
  };
  put(0, child);
  for (std::size_t i = 0; i < parents.size(); ++i) put(i + 1, parents[i]);
  if (const auto it = cache_.find(key); it != cache_.end()) return it->second;

  std::vector<std::size_t> family = parents;
  family.push_back(child);
  const std::vector<double> n = joint_counts(data_, family);
  const std::size_t r = data_.states[child];
  double ll = 0.0;
  for (std::size_t base = 0; base < n.size(); base += r) {
    double nj = 0.0;
    for (std::size_t k = 0; k < r; ++k) nj += n[base + k];
    for (std::size_t k = 0; k < r; ++k)
      if (n[base + k] > 0.0) ll += n[base + k] * std::log(n[base + k] / nj);
  }
  const double params = static_cast<double>((r - 1) * (n.size() / r));
  double value = ll;
  if (kind_ == K_SCORE_AIC) value -= params;
  if (kind_ == K_SCORE_BIC) value -= 0.5 * params * log_n_;
  cache_.emplace(std::move(key), value);
  return value;
}

double FamilyScorer::network(const ParentSets& parents) {
  double total = 0.0;
  for (std::size_t v = 0; v < parents.size(); ++v) total += score(v, parents[v]);
  return total;
}

namespace {

bool has(const std::vector<std::size_t>& set, std::size_t v) {
  return std::find(set.begin(), set.end(), v) != set.end();
}

std::vector<std::size_t> without(std::vector<std::size_t> set, std::size_t v) {
  set.erase(std::find(set.begin(), set.end(), v));
  return set;
}

std::vector<std::size_t> with(std::vector<std::size_t> set, std::size_t v) {
  set.push_back(v);
  return set;
}

// Whether a directed path leads from `from` to `to`, ignoring the link
// skip_parent -> skip_child.
bool path(const ParentSets& parents, std::size_t from, std::size_t to, std::size_t skip_parent,
          std::size_t skip_child) {
  std::vector<std::uint8_t> seen(parents.size(), 0);
  std::vector<std::size_t> stack{to};
  while (!stack.empty()) {
    const std::size_t v = stack.back();
    stack.pop_back();
    if (v == from) return true;
    if (seen[v]) continue;
    seen[v] = 1;
    for (std::size_t p : parents[v])
      if (!(p == skip_parent && v == skip_child)) stack.push_back(p);
  }
  return false;
}

enum class Op { add, remove, reverse };

struct Move {
  Op op;
  std::size_t from, to;
  double delta;
};

// Every legal single change of `g` with its score change.
std::vector<Move> moves(const ParentSets& g, const EdgeRules& rules, FamilyScorer& scorer) {
  const std::size_t n = g.size();
  std::vector<Move> out;
  std::vector<double> current(n);
  for (std::size_t v = 0; v < n; ++v) current[v] = scorer.score(v, g[v]);
  for (std::size_t i = 0; i < n; ++i)
    for (std::size_t j = 0; j < n; ++j) {
      if (i == j) continue;
      if (has(g[j], i)) {
        if (!rules.required(i, j))
          out.push_back({Op::remove, i, j, scorer.score(j, without(g[j], i)) - current[j]});
        if (!rules.forbidden(j, i) && scorer.affordable(with(g[i], j)) && !path(g, i, j, i, j))
          out.push_back({Op::reverse, i, j,
                         scorer.score(j, without(g[j], i)) - current[j] +
                             scorer.score(i, with(g[i], j)) - current[i]});
      } else if (!has(g[i], j) && !rules.forbidden(i, j) && scorer.affordable(with(g[j], i)) &&
                 !path(g, j, i, n, n)) {
        out.push_back({Op::add, i, j, scorer.score(j, with(g[j], i)) - current[j]});
      }
    }
  return out;
}

void apply(ParentSets& g, const Move& m) {
  if (m.op != Op::add) g[m.to] = without(g[m.to], m.from);
  if (m.op == Op::add) g[m.to].push_back(m.from);
  if (m.op == Op::reverse) g[m.from].push_back(m.to);
}

// The links of a network as a sorted list, to recognise it in the tabu list.
std::vector<std::size_t> signature(const ParentSets& g) {
  std::vector<std::size_t> out;
  for (std::size_t v = 0; v < g.size(); ++v)
    for (std::size_t p : g[v]) out.push_back(p * g.size() + v);
  std::sort(out.begin(), out.end());
  return out;
}

// One climb: best improving moves; with a tabu list, also the best move to a
// network not among the last ones, until `tabu` steps bring no improvement.
ParentSets climb(ParentSets g, const EdgeRules& rules, FamilyScorer& scorer, std::size_t tabu) {
  ParentSets best = g;
  double best_score = scorer.network(g), score = best_score;
  std::deque<std::vector<std::size_t>> recent{signature(g)};
  std::size_t stale = 0;
  while (true) {
    const Move* pick = nullptr;
    std::vector<Move> all = moves(g, rules, scorer);
    std::sort(all.begin(), all.end(),
              [](const Move& a, const Move& b) { return a.delta > b.delta; });
    for (const Move& m : all) {
      if (tabu == 0) {
        if (m.delta > 1e-9 * std::max(1.0, std::fabs(score))) pick = &m;
        break;
      }
      ParentSets next = g;
      apply(next, m);
      if (std::find(recent.begin(), recent.end(), signature(next)) == recent.end()) {
        pick = &m;
        break;
      }
    }
    if (pick == nullptr) break;
    apply(g, *pick);
    score += pick->delta;
    if (tabu > 0) {
      recent.push_back(signature(g));
      if (recent.size() > tabu) recent.pop_front();
    }
    if (score > best_score + 1e-9 * std::max(1.0, std::fabs(best_score))) {
      best = g;
      best_score = score;
      stale = 0;
    } else if (++stale >= tabu) {
      break;
    }
  }
  return best;
}

}  // namespace

ParentSets greedy_search(const LearningData& data, const EdgeRules& rules,
                         const GreedyOptions& options, ParentSets start, std::mt19937_64& random) {
  FamilyScorer scorer(data, options.score);
  ParentSets best = climb(std::move(start), rules, scorer, options.tabu_length);
  double best_score = scorer.network(best);
  for (std::size_t r = 0; r < options.restarts; ++r) {
    ParentSets g = best;
    const std::size_t changes = std::max<std::size_t>(2, g.size() / 4);
    for (std::size_t k = 0; k < changes; ++k) {
      const std::vector<Move> all = moves(g, rules, scorer);
      if (all.empty()) break;
      apply(g, all[random() % all.size()]);
    }
    g = climb(std::move(g), rules, scorer, options.tabu_length);
    const double s = scorer.network(g);
    if (s > best_score) {
      best = std::move(g);
      best_score = s;
    }
  }
  return best;
}

namespace {

// The domain's links among the data's variables.
ParentSets current_links(const LearningData& data) {
  ParentSets g(data.variables());
  for (std::size_t v = 0; v < data.variables(); ++v)
    for (Node* p : data.nodes[v]->parents()) g[v].push_back(data.index_of(p));
  return g;
}

}  // namespace

void learn_greedy_structure(Domain& domain, const GreedyOptions& options, bool from_current) {
  require(options.score == K_SCORE_LOG_LIKELIHOOD || options.score == K_SCORE_AIC ||
          options.score == K_SCORE_BIC);
  const LearningData data = learning_data(domain);
  const EdgeRules rules = edge_rules(domain, data);
  const std::size_t n = data.variables();
  ParentSets start(n);
  if (from_current) {
    start = current_links(data);
    for (std::size_t v = 0; v < n; ++v)
      std::erase_if(start[v], [&](std::size_t p) { return rules.forbidden(p, v); });
  }
  // The required links that are missing, each in an allowed direction that
  // closes no cycle.
  for (std::size_t i = 0; i < n; ++i)
    for (std::size_t j = i + 1; j < n; ++j) {
      if (!rules.required(i, j) || has(start[j], i) || has(start[i], j)) continue;
      if (!rules.forbidden(i, j) && !path(start, j, i, n, n)) start[j].push_back(i);
      else if (!rules.forbidden(j, i) && !path(start, i, j, n, n)) start[i].push_back(j);
      else
        throw Error(K_ERROR_USAGE, "the required links " + data.nodes[i]->name() + " - " +
                                       data.nodes[j]->name() + " close a cycle");
    }
  std::mt19937_64& random = domain.analysis.random;
  std::mt19937_64 copy = random;
  const ParentSets found = greedy_search(data, rules, options, std::move(start), copy);
  install_structure(domain, data, found);
  random = copy;
}

double structure_score(const Domain& domain, k_score_t score) {
  require(score == K_SCORE_LOG_LIKELIHOOD || score == K_SCORE_AIC || score == K_SCORE_BIC);
  const LearningData data = learning_data(domain);
  FamilyScorer scorer(data, score);
  return scorer.network(current_links(data));
}

}  // namespace kelva
