// Optimal triangulation by total weight.
//
// Every minimal triangulation is made of potential maximal cliques (PMCs),
// and the least total weight is reached by a minimal triangulation (thinning
// a triangulation never makes a maximal clique heavier than one it had).
// So the search lists the minimal separators (by the closure of Berry,
// Bordat and Cogis), the PMCs (vertex by vertex, after Bouchitte and
// Todinca: a PMC of G[a1..ai+1] is a PMC of G[a1..ai], possibly with ai+1
// added, or S + ai+1 or S + (T n C) for minimal separators S of the larger
// and T of the smaller graph), and then solves, smallest first, every full
// block (S, C): the best triangulation of C with S made complete is a PMC
// between S and S + C plus the best triangulations of the blocks it leaves
// inside C.
#include "compile/optimal_triangulation.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <limits>
#include <unordered_map>
#include <unordered_set>

namespace kelva {

namespace {

using Index = std::uint32_t;
using Words = std::vector<std::uint64_t>;

struct WordsHash {
  std::size_t operator()(const Words& words) const noexcept {
    std::uint64_t h = 1469598103934665603ULL;
    for (std::uint64_t w : words) {
      h ^= w;
      h *= 1099511628211ULL;
      h ^= h >> 29;
    }
    return static_cast<std::size_t>(h);
  }
};

using WordsSet = std::unordered_set<Words, WordsHash>;

bool test(const Words& s, Index v) noexcept { return ((s[v >> 6] >> (v & 63)) & 1U) != 0; }
void set(Words& s, Index v) noexcept { s[v >> 6] |= std::uint64_t{1} << (v & 63); }

std::size_t count(const Words& s) noexcept {
  std::size_t total = 0;
  for (std::uint64_t w : s) total += static_cast<std::size_t>(std::popcount(w));
  return total;
}

bool subset(const Words& a, const Words& b) noexcept {
  for (std::size_t i = 0; i < a.size(); ++i)
    if ((a[i] & ~b[i]) != 0) return false;
  return true;
}

bool empty(const Words& s) noexcept {
  return std::all_of(s.begin(), s.end(), [](std::uint64_t w) { return w == 0; });
}

template <class F>
void for_each(const Words& s, F f) {
  for (std::size_t i = 0; i < s.size(); ++i)
    for (std::uint64_t w = s[i]; w != 0; w &= w - 1)
      f(static_cast<Index>(i * 64 + static_cast<std::size_t>(std::countr_zero(w))));
}

Index first(const Words& s) noexcept {
  for (std::size_t i = 0; i < s.size(); ++i)
    if (s[i] != 0)
      return static_cast<Index>(i * 64 + static_cast<std::size_t>(std::countr_zero(s[i])));
  return 0;
}

// Thrown inside the search when a bound is passed.
struct LimitExceeded {};

class Search {
 public:
  Search(const std::vector<std::vector<Index>>& adjacency, const std::vector<double>& weights,
         const OptimalSearchLimits& limits)
      : n_(static_cast<Index>(adjacency.size())),
        words_((adjacency.size() + 63) / 64),
        weights_(weights),
        limits_(limits) {
    for (const std::vector<Index>& list : adjacency) {
      Words row(words_, 0);
      for (Index w : list) set(row, w);
      adjacency_.push_back(std::move(row));
    }
  }

  OptimalSearchResult run();

 private:
  Words none() const { return Words(words_, 0); }

  // The connected components of the graph induced by `within` minus
  // `removed`.
  std::vector<Words> components(const Words& within, const Words& removed) const {
    std::vector<Words> out;
    Words open(words_);
    for (std::size_t i = 0; i < words_; ++i) open[i] = within[i] & ~removed[i];
    std::vector<Index> stack;
    while (!empty(open)) {
      Words component = none();
      const Index start = first(open);
      open[start >> 6] &= ~(std::uint64_t{1} << (start & 63));
      stack.push_back(start);
      while (!stack.empty()) {
        const Index u = stack.back();
        stack.pop_back();
        set(component, u);
        const Words& row = adjacency_[u];
        for (std::size_t i = 0; i < words_; ++i) {
          std::uint64_t next = row[i] & open[i];
          open[i] &= ~next;
          for (; next != 0; next &= next - 1)
            stack.push_back(
                static_cast<Index>(i * 64 + static_cast<std::size_t>(std::countr_zero(next))));
        }
      }
      out.push_back(std::move(component));
    }
    return out;
  }

  // The neighbours of `c` inside `within`, outside `c`.
  Words neighbourhood(const Words& c, const Words& within) const {
    Words out = none();
    for_each(c, [&](Index v) {
      for (std::size_t i = 0; i < words_; ++i) out[i] |= adjacency_[v][i];
    });
    for (std::size_t i = 0; i < words_; ++i) out[i] &= within[i] & ~c[i];
    return out;
  }

  bool separator_allowed(const Words& s) const {
    return limits_.max_separator_size <= 0 ||
           count(s) <= static_cast<std::size_t>(limits_.max_separator_size);
  }

  void add_separator(WordsSet& found, std::vector<Words>& queue, Words s) const {
    if (empty(s) || !separator_allowed(s) || !found.insert(s).second) return;
    if (limits_.max_separators > 0 &&
        found.size() > static_cast<std::size_t>(limits_.max_separators))
      throw LimitExceeded{};
    queue.push_back(std::move(s));
  }

  // The minimal separators of the connected graph induced by `within`.
  WordsSet minimal_separators(const Words& within) const {
    WordsSet found;
    std::vector<Words> queue;
    for_each(within, [&](Index v) {
      Words closed = adjacency_[v];
      set(closed, v);
      for (const Words& c : components(within, closed))
        add_separator(found, queue, neighbourhood(c, within));
    });
    while (!queue.empty()) {
      const Words s = std::move(queue.back());
      queue.pop_back();
      for_each(s, [&](Index x) {
        Words removed = s;
        for (std::size_t i = 0; i < words_; ++i) removed[i] |= adjacency_[x][i];
        for (const Words& c : components(within, removed))
          add_separator(found, queue, neighbourhood(c, within));
      });
    }
    return found;
  }

  // Whether `omega` is a PMC of the graph induced by `within`: no component
  // left by it sees all of it, and it becomes complete once the
  // neighbourhood of every component is.
  bool is_pmc(const Words& omega, const Words& within) const {
    std::vector<Words> seen;
    for (const Words& c : components(within, omega)) {
      Words around = neighbourhood(c, within);
      if (around == omega) return false;
      seen.push_back(std::move(around));
    }
    bool ok = true;
    for_each(omega, [&](Index x) {
      if (!ok) return;
      Words covered = adjacency_[x];
      set(covered, x);
      for (const Words& around : seen)
        if (test(around, x))
          for (std::size_t i = 0; i < words_; ++i) covered[i] |= around[i];
      ok = subset(omega, covered);
    });
    return ok;
  }

  void add_pmc(WordsSet& pmcs, Words omega) const {
    if (pmcs.insert(std::move(omega)).second && limits_.max_separators > 0 &&
        pmcs.size() > static_cast<std::size_t>(limits_.max_separators) * n_)
      throw LimitExceeded{};
  }

  // The PMCs of the whole graph, growing it one vertex at a time in an
  // order that keeps every prefix connected.
  std::vector<Words> potential_maximal_cliques(std::uint64_t& separator_count) const;

  double weight(const Words& s) const {
    double product = 1.0;
    for_each(s, [&](Index v) { product *= weights_[v]; });
    return product;
  }

  Index n_;
  std::size_t words_;
  std::vector<Words> adjacency_;
  const std::vector<double>& weights_;
  OptimalSearchLimits limits_;
};

std::vector<Words> Search::potential_maximal_cliques(std::uint64_t& separator_count) const {
  std::vector<Index> order{0};
  std::vector<bool> queued(n_, false);
  queued[0] = true;
  for (std::size_t head = 0; head < order.size(); ++head)
    for_each(adjacency_[order[head]], [&](Index w) {
      if (!queued[w]) {
        queued[w] = true;
        order.push_back(w);
      }
    });

  Words within = none();
  set(within, order[0]);
  WordsSet pmcs{within};
  WordsSet separators;
  for (std::size_t i = 1; i < order.size(); ++i) {
    const Index a = order[i];
    Words larger = within;
    set(larger, a);
    WordsSet next_separators = minimal_separators(larger);
    WordsSet next;
    for (const Words& omega : pmcs) {
      if (is_pmc(omega, larger)) {
        add_pmc(next, omega);
        continue;
      }
      Words grown = omega;
      set(grown, a);
      if (is_pmc(grown, larger)) add_pmc(next, std::move(grown));
    }
    for (const Words& s : next_separators) {
      Words with_a = s;
      set(with_a, a);
      if (is_pmc(with_a, larger)) add_pmc(next, std::move(with_a));
      if (test(s, a) || separators.count(s) != 0) continue;
      for (const Words& c : components(larger, s))
        for (const Words& t : separators) {
          Words candidate = s;
          for (std::size_t k = 0; k < words_; ++k) candidate[k] |= t[k] & c[k];
          if (candidate != s && is_pmc(candidate, larger)) add_pmc(next, std::move(candidate));
        }
    }
    pmcs = std::move(next);
    separators = std::move(next_separators);
    within = std::move(larger);
  }
  separator_count = separators.size();
  return {pmcs.begin(), pmcs.end()};
}

OptimalSearchResult Search::run() {
  OptimalSearchResult result;
  std::vector<Words> pmcs;
  try {
    pmcs = potential_maximal_cliques(result.separators);
  } catch (const LimitExceeded&) {
    result.limit_exceeded = true;
    return result;
  }
  result.potential_cliques = pmcs.size();
  const Words all = [&] {
    Words s = none();
    for (Index v = 0; v < n_; ++v) set(s, v);
    return s;
  }();

  // Each PMC with the components it leaves; each full block, keyed by its
  // component, with the PMCs that may be its top clique.
  std::vector<std::vector<Words>> left(pmcs.size());
  std::unordered_map<Words, std::size_t, WordsHash> block_of;
  std::vector<Words> blocks;
  std::vector<std::vector<std::size_t>> candidates;
  for (std::size_t p = 0; p < pmcs.size(); ++p) {
    const Words& omega = pmcs[p];
    left[p] = components(all, omega);
    for (const Words& d : left[p]) {
      const Words s = neighbourhood(d, all);
      Words inside = omega;
      for (std::size_t i = 0; i < words_; ++i) inside[i] &= ~s[i];
      for (Words& c : components(all, s)) {
        if (!test(c, first(inside))) continue;
        auto [it, added] = block_of.try_emplace(std::move(c), blocks.size());
        if (added) {
          blocks.push_back(it->first);
          candidates.emplace_back();
        }
        candidates[it->second].push_back(p);
        break;
      }
    }
  }

  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  std::vector<std::size_t> by_size(blocks.size());
  for (std::size_t b = 0; b < blocks.size(); ++b) by_size[b] = b;
  std::sort(by_size.begin(), by_size.end(),
            [&](std::size_t x, std::size_t y) { return count(blocks[x]) < count(blocks[y]); });
  std::vector<double> best(blocks.size(), kInfinity);
  std::vector<std::size_t> choice(blocks.size(), pmcs.size());
  // The weight of `p` plus its blocks inside `c` (all of them when `c` is
  // null).
  auto value = [&](std::size_t p, const Words* c) {
    double total = weight(pmcs[p]);
    for (const Words& e : left[p]) {
      if (c != nullptr && !subset(e, *c)) continue;
      const auto it = block_of.find(e);
      if (it == block_of.end()) return kInfinity;
      total += best[it->second];
    }
    return total;
  };
  for (std::size_t b : by_size)
    for (std::size_t p : candidates[b]) {
      const double v = value(p, &blocks[b]);
      if (v < best[b]) {
        best[b] = v;
        choice[b] = p;
      }
    }
  std::size_t top = pmcs.size();
  double top_cost = kInfinity;
  for (std::size_t p = 0; p < pmcs.size(); ++p) {
    const double v = value(p, nullptr);
    if (v < top_cost) {
      top_cost = v;
      top = p;
    }
  }
  if (top == pmcs.size()) {
    result.limit_exceeded = true;  // the size bound left no triangulation
    return result;
  }

  // Walk the choices down from the top clique.
  std::vector<std::pair<std::size_t, const Words*>> stack{{top, nullptr}};
  while (!stack.empty()) {
    auto [p, c] = stack.back();
    stack.pop_back();
    std::vector<Index> clique;
    for_each(pmcs[p], [&](Index v) { clique.push_back(v); });
    result.cliques.push_back(std::move(clique));
    for (const Words& e : left[p]) {
      if (c != nullptr && !subset(e, *c)) continue;
      const std::size_t b = block_of.at(e);
      stack.emplace_back(choice[b], &blocks[b]);
    }
  }
  result.cost = top_cost;
  return result;
}

}  // namespace

OptimalSearchResult optimal_triangulation(const std::vector<std::vector<std::uint32_t>>& adjacency,
                                          const std::vector<double>& weights,
                                          const OptimalSearchLimits& limits) {
  if (adjacency.empty()) return {};
  return Search(adjacency, weights, limits).run();
}

}  // namespace kelva
