// Structure learning through the C API: independence tests, edge
// constraints, PC and its PDAG, trees and the greedy search.
#include "learning/structure_learning.h"

#include <cmath>

#include "capi/boundary.h"
#include "learning/features.h"
#include "learning/independence.h"
#include "learning/search.h"

using kelva::Node;
using kelva::require;
using kelva::capi::get;
using kelva::capi::guard;
using kelva::capi::guard_status;
using kelva::capi::handle;

extern "C" {

k_status_t k_domain_set_significance_level(k_domain_t domain, double level) {
  return guard_status([&] {
    kelva::Domain& d = get(domain);
    require(level > 0.0 && level < 1.0);  // NaN is refused too
    d.significance_level = level;
  });
}

double k_domain_get_significance_level(k_domain_t domain) {
  return guard(-1.0, [&] { return get(domain).significance_level; });
}

double k_compute_probability_of_independence(double statistic, k_size_t degrees) {
  return guard(-1.0, [&] {
    require(std::isfinite(statistic));
    return kelva::chi_square_tail(statistic, static_cast<double>(degrees));
  });
}

k_status_t k_domain_perform_marginal_independence_tests(k_domain_t domain) {
  return guard_status([&] { kelva::perform_marginal_independence_tests(get(domain)); });
}

double k_node_get_data_independency(k_node_t a, k_node_t b) {
  return guard(-1.0, [&] { return kelva::data_independency(get(a), get(b)); });
}

double k_node_get_link_strength(k_node_t child, k_node_t parent) {
  return guard(-1.0, [&] { return kelva::link_strength(get(child), get(parent)); });
}

k_status_t k_node_set_edge_constraint(k_node_t a, k_node_t b, k_edge_constraint_t constraint) {
  return guard_status([&] { kelva::set_edge_constraint(get(a), get(b), constraint); });
}

k_edge_constraint_t k_node_get_edge_constraint(k_node_t a, k_node_t b) {
  return guard(K_EDGE_CONSTRAINT_ERROR, [&] { return kelva::edge_constraint(get(a), get(b)); });
}

k_status_t k_domain_learn_structure(k_domain_t domain) {
  return guard_status([&] { kelva::learn_structure_pc(get(domain)); });
}

k_node_t* k_node_get_pdag_parents(k_node_t node) {
  return guard<k_node_t*>(nullptr, [&] {
    Node& n = get(node);
    n.scratch_list() = kelva::pdag_parents(n);
    return handle(n.scratch_list().data());
  });
}

k_node_t* k_node_get_pdag_neighbors(k_node_t node) {
  return guard<k_node_t*>(nullptr, [&] {
    Node& n = get(node);
    n.scratch_list() = kelva::pdag_neighbours(n);
    return handle(n.scratch_list().data());
  });
}

k_status_t k_node_add_pdag_parent(k_node_t node, k_node_t parent) {
  return guard_status([&] { kelva::add_pdag_parent(get(node), get(parent)); });
}

k_status_t k_domain_learn_tree_structure(k_domain_t domain, k_node_t root, k_node_t target) {
  return guard_status([&] {
    kelva::Domain& d = get(domain);
    const Node* t = target == nullptr ? nullptr : &get(target);
    kelva::learn_tree_structure(d, get(root), t);
  });
}

k_status_t k_domain_learn_greedy_structure(k_domain_t domain, k_score_t score, k_size_t tabu_length,
                                           k_size_t restarts, int from_current) {
  return guard_status([&] {
    kelva::Domain& d = get(domain);
    require(restarts <= 1000000);
    kelva::GreedyOptions options;
    options.score = score;
    options.tabu_length = static_cast<std::size_t>(tabu_length);
    options.restarts = static_cast<std::size_t>(restarts);
    kelva::learn_greedy_structure(d, options, from_current != 0);
  });
}

double k_domain_get_structure_score(k_domain_t domain, k_score_t score) {
  return guard(1.0, [&] { return kelva::structure_score(get(domain), score); });
}

}  // extern "C"

extern "C" {

double k_node_get_jmi_score(k_node_t feature, k_node_t target, const k_node_t* selected) {
  return guard(-1.0, [&] {
    kelva::NodeList chosen;
    for (const k_node_t* s = selected; s != nullptr && *s != nullptr; ++s)
      chosen.push_back(&get(*s));
    return kelva::jmi_score(get(feature), get(target), chosen);
  });
}

k_status_t k_domain_learn_features(k_domain_t domain, k_node_t target, k_size_t count) {
  return guard_status([&] {
    kelva::Domain& d = get(domain);
    kelva::learn_features(d, get(target), static_cast<std::size_t>(count));
  });
}

}  // extern "C"
