#pragma once

// Junction forests built from triangulations made here, independently of
// the engine's triangulation: a domain's moral graph, its necessary
// fill-ins and an elimination in a given or greedy order.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "capi/boundary.h"
#include "compile/compile_log.h"
#include "compile/junction_forest.h"
#include "kelva/kelva.h"
#include "model/domain.h"
#include "model/node.h"

namespace kelva::test {

/// The undirected graph of a domain's participating nodes.
class TestGraph {
 public:
  explicit TestGraph(Domain& domain) {
    for (Node* n = domain.first_node(); n != nullptr; n = n->next)
      if (n->kind() != K_KIND_OTHER) {
        index_[n] = nodes_.size();
        nodes_.push_back(n);
      }
    adjacent_.resize(nodes_.size());
    for (Node* n = domain.first_node(); n != nullptr; n = n->next) {
      const std::vector<Node*> parents(n->parents().begin(), n->parents().end());
      if (n->kind() != K_KIND_OTHER && n->category() != K_CATEGORY_FUNCTION)
        for (Node* p : parents) join(n, p);
      if (n->category() != K_CATEGORY_FUNCTION)
        for (Node* p : parents)
          for (Node* q : parents) join(p, q);
    }
    for (const auto& c : domain.chain_components)
      for (Node* a : c->members)
        for (Node* b : c->members) join(a, b);
    add_necessary_fill_ins();
  }

  /// Eliminates every vertex in `order` (continuous ones first).
  Triangulation eliminate(const std::vector<Node*>& order) {
    Triangulation t;
    std::vector<bool> gone(nodes_.size(), false);
    std::vector<std::set<std::size_t>> recorded;
    for (Node* v : order) {
      const std::size_t i = index_.at(v);
      std::set<std::size_t> clique{i};
      for (std::size_t j : adjacent_[i])
        if (!gone[j]) clique.insert(j);
      for (std::size_t a : clique)
        for (std::size_t b : clique) join(nodes_[a], nodes_[b]);
      gone[i] = true;
      t.elimination_order.push_back(v);
      const bool covered = std::any_of(recorded.begin(), recorded.end(), [&](const auto& r) {
        return std::includes(r.begin(), r.end(), clique.begin(), clique.end());
      });
      if (covered) continue;
      recorded.push_back(clique);
      // Members in elimination order of the set (as a triangulation lists them).
      std::vector<Node*> members{v};
      for (std::size_t j : clique)
        if (j != i) members.push_back(nodes_[j]);
      t.cliques.push_back(members);
    }
    for (std::size_t a = 0; a < nodes_.size(); ++a)
      for (std::size_t b : adjacent_[a])
        if (a < b) t.links.emplace_back(nodes_[a], nodes_[b]);
    return t;
  }

  /// Eliminates greedily: continuous vertices first, each time the one that
  /// needs the fewest fill-ins (the first in node-list order on ties).
  Triangulation eliminate_greedily() {
    std::vector<Node*> order;
    std::vector<bool> gone(nodes_.size(), false);
    std::vector<std::set<std::size_t>> graph = adjacent_;
    for (std::size_t step = 0; step < nodes_.size(); ++step) {
      bool continuous_left = false;
      for (std::size_t i = 0; i < nodes_.size(); ++i)
        continuous_left |= !gone[i] && nodes_[i]->is_continuous();
      std::size_t best = nodes_.size();
      std::size_t best_fill = 0;
      for (std::size_t i = 0; i < nodes_.size(); ++i) {
        if (gone[i] || (continuous_left && !nodes_[i]->is_continuous())) continue;
        std::size_t fill = 0;
        for (std::size_t a : graph[i])
          for (std::size_t b : graph[i])
            if (a < b && graph[a].count(b) == 0) ++fill;
        if (best == nodes_.size() || fill < best_fill) {
          best = i;
          best_fill = fill;
        }
      }
      for (std::size_t a : graph[best])
        for (std::size_t b : graph[best])
          if (a != b) graph[a].insert(b);
      for (std::size_t a : graph[best]) graph[a].erase(best);
      graph[best].clear();
      gone[best] = true;
      order.push_back(nodes_[best]);
    }
    return eliminate(order);
  }

 private:
  void join(Node* a, Node* b) {
    auto ia = index_.find(a);
    auto ib = index_.find(b);
    if (ia == index_.end() || ib == index_.end() || a == b) return;
    adjacent_[ia->second].insert(ib->second);
    adjacent_[ib->second].insert(ia->second);
  }

  // Makes the discrete boundary of every connected set of continuous
  // vertices complete.
  void add_necessary_fill_ins() {
    std::vector<bool> seen(nodes_.size(), false);
    for (std::size_t s = 0; s < nodes_.size(); ++s) {
      if (seen[s] || !nodes_[s]->is_continuous()) continue;
      std::set<std::size_t> boundary;
      std::vector<std::size_t> stack{s};
      seen[s] = true;
      while (!stack.empty()) {
        const std::size_t v = stack.back();
        stack.pop_back();
        for (std::size_t w : adjacent_[v]) {
          if (nodes_[w]->is_discrete()) {
            boundary.insert(w);
          } else if (!seen[w]) {
            seen[w] = true;
            stack.push_back(w);
          }
        }
      }
      for (std::size_t a : boundary)
        for (std::size_t b : boundary) join(nodes_[a], nodes_[b]);
    }
  }

  std::vector<Node*> nodes_;
  std::unordered_map<const Node*, std::size_t> index_;
  std::vector<std::set<std::size_t>> adjacent_;
};

/// Text written to a stream, read back when the stream is closed.
class LogCapture {
 public:
  LogCapture() : file_(open_memstream(&buffer_, &size_)) {}
  ~LogCapture() {
    if (file_ != nullptr) std::fclose(file_);
    std::free(buffer_);
  }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::FILE* file() const noexcept { return file_; }
  /// Everything written so far.
  std::string text() {
    std::fflush(file_);
    return std::string(buffer_, size_);
  }

 private:
  char* buffer_ = nullptr;
  std::size_t size_ = 0;
  std::FILE* file_;
};

/// Builds the junction forest of `domain` from `triangulation` and installs
/// it, as triangulation does; the C API's status and error discipline.
inline k_status_t build_forest(Domain& domain, const Triangulation& triangulation,
                               std::FILE* log = nullptr) {
  return capi::guard_status([&] {
    CompileLog compile_log(log);
    domain.install_forest(build_junction_forest(domain, triangulation, compile_log));
  });
}

/// The node named `name` of `domain`.
inline Node* named(const Domain& domain, const char* name) {
  Node* n = domain.find(name);
  EXPECT_NE(n, nullptr) << name;
  return n;
}

/// The nodes named in `names`, in that order.
inline std::vector<Node*> named(const Domain& domain, std::initializer_list<const char*> names) {
  std::vector<Node*> result;
  for (const char* name : names) result.push_back(named(domain, name));
  return result;
}

}  // namespace kelva::test
