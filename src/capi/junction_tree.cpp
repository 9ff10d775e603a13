// The junction tree and clique queries of the C API.
#include "capi/boundary.h"
#include "compile/junction_forest.h"
#include "table/size.h"

using kelva::capi::get;
using kelva::capi::guard;
using kelva::capi::guard_status;
using kelva::capi::handle;

extern "C" {

k_junction_tree_t k_domain_get_first_junction_tree(k_domain_t domain) {
  return guard<k_junction_tree_t>(nullptr, [&]() -> k_junction_tree_t {
    const kelva::Forest* forest = get(domain).forest();
    if (forest == nullptr || forest->trees.empty()) return nullptr;
    return handle(forest->trees.front().get());
  });
}

k_junction_tree_t k_jt_get_next(k_junction_tree_t jt) {
  return guard<k_junction_tree_t>(nullptr, [&] {
    kelva::JunctionTree& tree = get(jt);
    return handle(tree.domain->forest()->next(&tree));
  });
}

k_clique_t k_jt_get_root(k_junction_tree_t jt) {
  return guard<k_clique_t>(nullptr, [&] { return handle(get(jt).root); });
}

k_clique_t* k_jt_get_cliques(k_junction_tree_t jt) {
  return guard<k_clique_t*>(nullptr, [&] { return handle(get(jt).cliques.data()); });
}

k_size_t k_jt_get_total_size(k_junction_tree_t jt) {
  return guard<k_size_t>(K_SIZE_ERROR, [&] {
    k_size_t total = 0;
    for (const kelva::Clique* c : get(jt).cliques) total = kelva::sat_add(total, c->discrete_size);
    return total;
  });
}

k_size_t k_jt_get_total_cg_size(k_junction_tree_t jt) {
  return guard<k_size_t>(K_SIZE_ERROR, [&] {
    k_size_t total = 0;
    for (const kelva::Clique* c : get(jt).cliques) total = kelva::sat_add(total, c->cg_size());
    return total;
  });
}

k_node_t* k_clique_get_members(k_clique_t clique) {
  return guard<k_node_t*>(nullptr, [&] { return handle(get(clique).members.data()); });
}

k_clique_t* k_clique_get_neighbors(k_clique_t clique) {
  return guard<k_clique_t*>(nullptr, [&] { return handle(get(clique).neighbours.data()); });
}

k_status_t k_jt_set_backpointer(k_junction_tree_t jt, void* data) {
  return guard_status([&] { get(jt).backpointer = data; });
}

void* k_jt_get_backpointer(k_junction_tree_t jt) {
  return guard<void*>(nullptr, [&] { return get(jt).backpointer; });
}

k_status_t k_clique_set_backpointer(k_clique_t clique, void* data) {
  return guard_status([&] { get(clique).backpointer = data; });
}

void* k_clique_get_backpointer(k_clique_t clique) {
  return guard<void*>(nullptr, [&] { return get(clique).backpointer; });
}

k_junction_tree_t k_clique_get_junction_tree(k_clique_t clique) {
  return guard<k_junction_tree_t>(nullptr, [&] { return handle(get(clique).tree); });
}

k_junction_tree_t k_node_get_junction_tree(k_node_t node) {
  return guard<k_junction_tree_t>(nullptr, [&] {
    kelva::Node& n = get(node);
    kelva::Forest* forest = n.domain().forest();
    kelva::require(forest != nullptr, K_ERROR_NOT_COMPILED);
    const kelva::NodeSlot* slot = forest->slot(n);
    kelva::require(slot != nullptr && slot->tree != nullptr);
    return handle(slot->tree);
  });
}

}  // extern "C"
