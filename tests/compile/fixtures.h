// Small domains, captured logs and junction forests for the compile tests.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "capi/boundary.h"
#include "compile/compile_log.h"
#include "compile/junction_forest.h"
#include "compile/moral_graph.h"
#include "compile/triangulate.h"
#include "kelva/kelva.h"
#include "network/domain.h"
#include "network/node.h"

namespace kelva::test {

/// A domain read from NET text, deleted with the fixture.
class NetDomain {
 public:
  explicit NetDomain(const std::string& text)
      : handle_(k_net_parse_domain_string(text.c_str(), nullptr, nullptr)) {
    if (handle_ == nullptr) ADD_FAILURE() << "NET text not read: " << text;
  }
  ~NetDomain() { k_domain_delete(handle_); }
  NetDomain(const NetDomain&) = delete;
  NetDomain& operator=(const NetDomain&) = delete;

  k_domain_t handle() const { return handle_; }
  Domain& domain() const { return capi::get(handle_); }
  Node* node(const std::string& name) const { return domain().find(name); }

 private:
  k_domain_t handle_;
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

/// Runs `body` with a CompileLog on a memory stream and returns the text.
inline std::string capture(const std::function<void(CompileLog&)>& body) {
  LogCapture out;
  {
    CompileLog log(out.file());
    body(log);
  }
  return out.text();
}

/// A moral graph over the domain's discrete and continuous nodes with the
/// given links (by name) instead of the links of the network, so that any
/// undirected graph can be triangulated.
inline MoralGraph graph_with_links(const Domain& domain,
                                   const std::vector<std::pair<std::string, std::string>>& links) {
  MoralGraph graph;
  for (Node* n = domain.first_node(); n != nullptr; n = n->next)
    if (n->is_discrete() || n->is_continuous()) {
      graph.position.emplace(n, static_cast<std::uint32_t>(graph.vertices.size()));
      graph.vertices.push_back(n);
    }
  graph.neighbours.resize(graph.size());
  for (const auto& [a, b] : links) {
    const std::uint32_t i = graph.position.at(domain.find(a));
    const std::uint32_t j = graph.position.at(domain.find(b));
    graph.neighbours[i].push_back(j);
    graph.neighbours[j].push_back(i);
  }
  return graph;
}

/// NET declarations of discrete chance nodes, each with `states` states.
inline std::string discrete_nodes(const std::vector<std::string>& names, int states = 2) {
  std::string text;
  for (const std::string& name : names) {
    text += "node " + name + " { states = (";
    for (int s = 0; s < states; ++s) text += " \"s" + std::to_string(s) + "\"";
    text += " ); }\n";
  }
  return text;
}

/// The triangulation of `domain` by eliminating its participating nodes in
/// `order` (continuous ones first), without a log.
inline Triangulation eliminate(Domain& domain, const std::vector<Node*>& order) {
  CompileLog silent(nullptr);
  return triangulate_by_order(build_moral_graph(domain, silent), order, silent);
}

/// The best-greedy triangulation of `domain`, without a log.
inline Triangulation eliminate_greedily(Domain& domain) {
  CompileLog silent(nullptr);
  return triangulate(build_moral_graph(domain, silent), K_TM_BEST_GREEDY, silent);
}

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

/// Checks the engine's records of the domain's junction forest: running
/// intersection, separators, strong roots, member order and the assignment
/// of every table.
void check_forest_records(const Domain& domain);

}  // namespace kelva::test
