// Graph queries and information measures through the C API.
#include "structure/graph_queries.h"

#include <algorithm>

#include "analysis/information.h"
#include "capi/boundary.h"

using kelva::Domain;
using kelva::Node;
using kelva::NodeList;
using kelva::require;
using kelva::capi::get;
using kelva::capi::guard;
using kelva::capi::handle;

namespace {

// The nodes of a C list that may be null (none), each of `domain`.
std::vector<const Node*> nodes_of(const Domain& domain, const k_node_t* list) {
  std::vector<const Node*> out;
  if (list == nullptr) return out;
  for (Node* n : kelva::capi::node_list(list)) {
    require(&n->domain() == &domain);
    out.push_back(n);
  }
  return out;
}

// Runs the d-separation query and fills both of the domain's lists.
void d_separation(Domain& d, const k_node_t* source, const k_node_t* hard, const k_node_t* soft) {
  require(source != nullptr);
  const kelva::BallMarks marks =
      kelva::bayes_ball(d, nodes_of(d, source), nodes_of(d, hard), nodes_of(d, soft));
  const std::vector<Node*> chain = kelva::chain_nodes(d);
  NodeList connected, separated;
  for (std::size_t i = 0; i < chain.size(); ++i)
    (marks.connected[i] ? connected : separated).push_back(chain[i]);
  d.d_connected = std::move(connected);
  d.d_separated = std::move(separated);
}

}  // namespace

extern "C" {

k_node_t* k_node_get_ancestors(k_node_t node) {
  return guard<k_node_t*>(nullptr, [&] {
    Node& n = get(node);
    n.scratch_list() = kelva::ancestors(n);
    return handle(n.scratch_list().data());
  });
}

k_node_t* k_node_get_descendants(k_node_t node) {
  return guard<k_node_t*>(nullptr, [&] {
    Node& n = get(node);
    n.scratch_list() = kelva::descendants(n);
    return handle(n.scratch_list().data());
  });
}

k_node_t* k_node_get_moral_neighbors(k_node_t node) {
  return guard<k_node_t*>(nullptr, [&] {
    Node& n = get(node);
    n.scratch_list() = kelva::moral_neighbours(n);
    return handle(n.scratch_list().data());
  });
}

k_node_t* k_domain_get_d_connected_nodes(k_domain_t domain, k_node_t* source, k_node_t* hard,
                                         k_node_t* soft) {
  return guard<k_node_t*>(nullptr, [&] {
    Domain& d = get(domain);
    d_separation(d, source, hard, soft);
    return handle(d.d_connected.data());
  });
}

k_node_t* k_domain_get_d_separated_nodes(k_domain_t domain, k_node_t* source, k_node_t* hard,
                                         k_node_t* soft) {
  return guard<k_node_t*>(nullptr, [&] {
    Domain& d = get(domain);
    d_separation(d, source, hard, soft);
    return handle(d.d_separated.data());
  });
}

double k_node_get_entropy(k_node_t node) {
  return guard(-1.0, [&] { return kelva::entropy(get(node)); });
}

double k_node_get_mutual_information(k_node_t node, k_node_t other) {
  return guard(-1.0, [&] { return kelva::mutual_information(get(node), get(other)); });
}

}  // extern "C"
