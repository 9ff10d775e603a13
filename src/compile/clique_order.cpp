#include "compile/clique_order.h"

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <set>
#include <unordered_map>

#include "network/error.h"
#include "network/node.h"
#include "table/size.h"

namespace kelva {

namespace {

constexpr std::size_t kNone = static_cast<std::size_t>(-1);

struct Vertex {
  bool discrete = true;
  bool numbered = false;
  std::size_t numbered_at = kNone;   // the pick step that numbered it
  std::size_t component = kNone;     // continuous: its connected set of continuous vertices
  std::vector<std::size_t> cliques;  // the cliques that hold it
};

struct CliqueState {
  std::vector<std::size_t> members;  // vertices
  std::size_t numbered = 0;          // numbered members: the clique's bucket
  std::size_t unnumbered_discrete = 0;
  std::uint64_t discrete_size = 1;
  bool picked = false;
};

class Search {
 public:
  explicit Search(const std::vector<std::vector<Node*>>& cliques) {
    std::unordered_map<const Node*, std::size_t> index;
    std::size_t widest = 0;
    cliques_.resize(cliques.size());
    for (std::size_t c = 0; c < cliques.size(); ++c) {
      CliqueState& s = cliques_[c];
      for (Node* node : cliques[c]) {
        auto [it, fresh] = index.try_emplace(node, vertices_.size());
        if (fresh) {
          vertices_.emplace_back();
          vertices_.back().discrete = node->is_discrete();
        }
        Vertex& v = vertices_[it->second];
        v.cliques.push_back(c);
        s.members.push_back(it->second);
        if (v.discrete) {
          ++s.unnumbered_discrete;
          s.discrete_size = sat_mul(s.discrete_size, node->state_count());
        } else {
          continuous_ = true;
        }
      }
      widest = std::max(widest, s.members.size());
    }
    if (continuous_) find_boundaries();
    mark_.assign(vertices_.size(), 0);
    buckets_.resize(widest + 1);
    for (std::size_t c = 0; c < cliques_.size(); ++c) buckets_[0].insert(c);
  }

  CliqueOrder run() {
    CliqueOrder order;
    order.picked.reserve(cliques_.size());
    order.candidate.reserve(cliques_.size());
    children_.resize(cliques_.size());
    picked_.reserve(cliques_.size());
    for (std::size_t step = 0; step < cliques_.size(); ++step) {
      while (top_ > 0 && buckets_[top_].empty()) --top_;
      const std::size_t c = choose();
      require(c != kNone, K_ERROR_ERROR);
      const std::size_t link = candidate(c);
      buckets_[cliques_[c].numbered].erase(c);
      cliques_[c].picked = true;
      picked_.push_back(c);
      order.picked.push_back(c);
      order.candidate.push_back(link == kNone ? CliqueOrder::kRoot : link);
      if (link != kNone) children_[link].push_back(step);
      number_members(c, step);
    }
    return order;
  }

 private:
  // The connected sets of continuous vertices (joined when they share a
  // clique) and the discrete vertices that border each.
  void find_boundaries() {
    std::vector<std::size_t> parent(vertices_.size());
    std::iota(parent.begin(), parent.end(), 0);
    auto root = [&parent](std::size_t v) {
      while (parent[v] != v) v = parent[v] = parent[parent[v]];
      return v;
    };
    for (const CliqueState& s : cliques_) {
      std::size_t first = kNone;
      for (std::size_t m : s.members) {
        if (vertices_[m].discrete) continue;
        if (first == kNone) first = root(m);
        else parent[root(m)] = first;
      }
    }
    std::vector<std::size_t> component(vertices_.size(), kNone);
    for (std::size_t v = 0; v < vertices_.size(); ++v) {
      if (vertices_[v].discrete) continue;
      std::size_t& k = component[root(v)];
      if (k == kNone) {
        k = boundaries_.size();
        boundaries_.emplace_back();
      }
      vertices_[v].component = k;
    }
    for (const CliqueState& s : cliques_)
      for (std::size_t m : s.members) {
        if (vertices_[m].discrete) continue;
        std::vector<std::size_t>& b = boundaries_[vertices_[m].component];
        for (std::size_t d : s.members)
          if (vertices_[d].discrete) b.push_back(d);
      }
    for (std::vector<std::size_t>& b : boundaries_) {
      std::sort(b.begin(), b.end());
      b.erase(std::unique(b.begin(), b.end()), b.end());
    }
  }

  // Whether picking `c` would number a continuous vertex while a discrete
  // vertex of its boundary stays unnumbered.
  bool may_pick(std::size_t c) {
    if (!continuous_) return true;
    const CliqueState& s = cliques_[c];
    ++stamp_;
    for (std::size_t m : s.members) mark_[m] = stamp_;
    for (std::size_t m : s.members) {
      const Vertex& v = vertices_[m];
      if (v.discrete || v.numbered) continue;
      for (std::size_t b : boundaries_[v.component])
        if (!vertices_[b].numbered && mark_[b] != stamp_) return false;
    }
    return true;
  }

  std::size_t choose() {
    std::size_t best = kNone;
    std::size_t first = kNone;
    for (std::size_t c : buckets_[top_]) {
      if (!may_pick(c)) continue;
      if (first == kNone) first = c;
      const CliqueState& s = cliques_[c];
      if (s.unnumbered_discrete > 0 &&
          (best == kNone || s.discrete_size < cliques_[best].discrete_size))
        best = c;
    }
    return best != kNone ? best : first;
  }

  // The pick step of the clique that `c` is to be linked to, or kNone.
  std::size_t candidate(std::size_t c) {
    const CliqueState& s = cliques_[c];
    if (s.numbered == 0) return kNone;
    std::size_t from = 0;
    std::size_t latest = kNone;
    ++stamp_;
    for (std::size_t m : s.members) {
      const Vertex& v = vertices_[m];
      if (!v.numbered) continue;
      mark_[m] = stamp_;
      if (latest == kNone || v.numbered_at > from) {
        from = v.numbered_at;
        latest = m;
      }
    }
    // The cliques holding `latest` form a subtree below `from`; only they
    // can hold all the numbered members.
    std::size_t best = kNone;
    std::vector<std::size_t> stack{from};
    while (!stack.empty()) {
      const std::size_t step = stack.back();
      stack.pop_back();
      const CliqueState& t = cliques_[picked_[step]];
      std::size_t held = 0;
      bool has_latest = false;
      for (std::size_t m : t.members) {
        if (mark_[m] == stamp_) ++held;
        if (m == latest) has_latest = true;
      }
      if (!has_latest) continue;
      if (held == s.numbered &&
          (best == kNone || t.discrete_size < cliques_[picked_[best]].discrete_size))
        best = step;
      const std::vector<std::size_t>& below = children_[step];
      stack.insert(stack.end(), below.rbegin(), below.rend());
    }
    require(best != kNone, K_ERROR_ERROR);
    return best;
  }

  // Numbers the unnumbered members of `c` and moves every unpicked clique
  // up one bucket per member it holds.
  void number_members(std::size_t c, std::size_t step) {
    for (std::size_t m : cliques_[c].members) {
      Vertex& v = vertices_[m];
      if (v.numbered) continue;
      v.numbered = true;
      v.numbered_at = step;
      for (std::size_t other : v.cliques) {
        CliqueState& s = cliques_[other];
        if (s.picked) continue;
        buckets_[s.numbered].erase(other);
        ++s.numbered;
        if (v.discrete) --s.unnumbered_discrete;
        buckets_[s.numbered].insert(other);
        top_ = std::max(top_, s.numbered);
      }
    }
  }

  std::vector<Vertex> vertices_;
  std::vector<CliqueState> cliques_;
  std::vector<std::vector<std::size_t>> boundaries_;  // per continuous component
  bool continuous_ = false;
  // Unpicked cliques by their number of numbered members, each bucket in
  // triangulation order.
  std::vector<std::set<std::size_t>> buckets_;
  std::size_t top_ = 0;
  std::vector<std::size_t> picked_;                 // clique of each pick step
  std::vector<std::vector<std::size_t>> children_;  // per pick step, steps linked below it
  std::vector<std::uint64_t> mark_;
  std::uint64_t stamp_ = 0;
};

}  // namespace

CliqueOrder order_cliques(const std::vector<std::vector<Node*>>& cliques) {
  return Search(cliques).run();
}

}  // namespace kelva
