// NPC through the C API: learning, the ambiguous regions, their solutions
// and the manual decisions on uncertain edges.
#include "learning/npc.h"

#include "capi/boundary.h"

using kelva::AmbiguousRegion;
using kelva::ObjectTag;
using kelva::require;
using kelva::Solution;
using kelva::UncertainEdge;
using kelva::capi::get;
using kelva::capi::guard;
using kelva::capi::guard_status;
using kelva::capi::handle;

namespace {

template <class T, class H>
T& live(H h, ObjectTag tag) {
  auto* p = reinterpret_cast<T*>(h);
  require(p != nullptr && p->is(tag));
  return *p;
}

AmbiguousRegion& get_region(k_ambiguous_region_t h) {
  AmbiguousRegion& r = live<AmbiguousRegion>(h, ObjectTag::ambiguous_region);
  kelva::check_current(*r.state);
  return r;
}

UncertainEdge& get_edge(k_uncertain_edge_t h) {
  return live<UncertainEdge>(h, ObjectTag::uncertain_edge);
}

k_uncertain_edge_t* edge_list(const kelva::PtrList<UncertainEdge>& list) {
  return reinterpret_cast<k_uncertain_edge_t*>(const_cast<UncertainEdge**>(list.data()));
}

}  // namespace

extern "C" {

k_status_t k_domain_learn_structure_npc(k_domain_t domain) {
  return guard_status([&] { kelva::learn_structure_npc(get(domain)); });
}

k_ambiguous_region_t k_domain_get_first_ambiguous_region(k_domain_t domain) {
  return guard<k_ambiguous_region_t>(nullptr, [&] {
    return reinterpret_cast<k_ambiguous_region_t>(kelva::first_ambiguous_region(get(domain)));
  });
}

k_ambiguous_region_t k_ambiguous_region_get_next(k_ambiguous_region_t region) {
  return guard<k_ambiguous_region_t>(
      nullptr, [&] { return reinterpret_cast<k_ambiguous_region_t>(get_region(region).next); });
}

k_uncertain_edge_t* k_ambiguous_region_get_edges(k_ambiguous_region_t region) {
  return guard<k_uncertain_edge_t*>(nullptr, [&] { return edge_list(get_region(region).edges); });
}

k_solution_t k_ambiguous_region_get_first_solution(k_ambiguous_region_t region) {
  return guard<k_solution_t>(nullptr, [&] {
    return reinterpret_cast<k_solution_t>(get_region(region).solutions.front().get());
  });
}

k_status_t k_ambiguous_region_find_minimal_solutions(k_ambiguous_region_t region) {
  return guard_status([&] {
    kelva::find_minimal_solutions(live<AmbiguousRegion>(region, ObjectTag::ambiguous_region));
  });
}

k_solution_t k_solution_get_next(k_solution_t solution) {
  return guard<k_solution_t>(nullptr, [&] {
    return reinterpret_cast<k_solution_t>(live<Solution>(solution, ObjectTag::solution).next);
  });
}

k_uncertain_edge_t* k_solution_get_edges(k_solution_t solution) {
  return guard<k_uncertain_edge_t*>(
      nullptr, [&] { return edge_list(live<Solution>(solution, ObjectTag::solution).edges); });
}

k_node_t k_uncertain_edge_get_first_node(k_uncertain_edge_t edge) {
  return guard<k_node_t>(nullptr,
                         [&] { return handle(&kelva::uncertain_edge_node(get_edge(edge), true)); });
}

k_node_t k_uncertain_edge_get_second_node(k_uncertain_edge_t edge) {
  return guard<k_node_t>(
      nullptr, [&] { return handle(&kelva::uncertain_edge_node(get_edge(edge), false)); });
}

k_status_t k_uncertain_edge_manual_decision(k_uncertain_edge_t edge, int present) {
  return guard_status([&] { kelva::decide_uncertain_edge(get_edge(edge), present != 0); });
}

}  // extern "C"
