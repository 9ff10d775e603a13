// Small domains and captured logs for the moral-graph and triangulation
// tests.
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
#include "compile/moral_graph.h"
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

  Domain& domain() const { return capi::get(handle_); }
  Node* node(const std::string& name) const { return domain().find(name); }

 private:
  k_domain_t handle_;
};

/// Runs `body` with a CompileLog on a memory stream and returns the text.
inline std::string capture(const std::function<void(CompileLog&)>& body) {
  char* buffer = nullptr;
  std::size_t size = 0;
  std::FILE* stream = open_memstream(&buffer, &size);
  try {
    CompileLog log(stream);
    body(log);
  } catch (...) {
    std::fclose(stream);
    std::free(buffer);
    throw;
  }
  std::fclose(stream);
  std::string text(buffer, size);
  std::free(buffer);
  return text;
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

}  // namespace kelva::test
