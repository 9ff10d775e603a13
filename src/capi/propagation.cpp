// Propagation and its results through the C API.
#include <algorithm>
#include <memory>
#include <vector>

#include "capi/boundary.h"
#include "compile/junction_forest.h"
#include "inference/compressed_ops.h"
#include "inference/propagate.h"
#include "table/index_plan.h"
#include "table/table_ops.h"

using kelva::Clique;
using kelva::Domain;
using kelva::Forest;
using kelva::JunctionTree;
using kelva::Node;
using kelva::NodeSlot;
using kelva::require;
using kelva::capi::get;
using kelva::capi::guard;
using kelva::capi::guard_status;
using kelva::capi::handle;

namespace {

Forest& compiled_forest(Domain& d) {
  require(d.is_compiled(), K_ERROR_NOT_COMPILED);
  return *d.forest();
}

// The forest record of a node of a compiled domain, or Error(not_compiled)
// when the node belongs to no junction tree.
NodeSlot& slot_of(Node& n) {
  Domain& d = n.domain();
  require(d.is_compiled(), K_ERROR_NOT_COMPILED);
  NodeSlot* slot = d.forest()->slot(n);
  require(slot != nullptr && slot->tree != nullptr, K_ERROR_NOT_COMPILED);
  return *slot;
}

void require_equilibrium(const JunctionTree& t) {
  require(t.equilibrium != K_EQUILIBRIUM_NONE, K_ERROR_NO_EQUILIBRIUM);
}

// The conditions under which a tree's conflict value can be read.
void require_conflict(const JunctionTree& t) {
  require_equilibrium(t);
  require(t.equilibrium == K_EQUILIBRIUM_SUM);
  require(!t.cg_evidence_propagated, K_ERROR_CG_EVIDENCE_INCORPORATED);
}

void require_no_decisions(const Domain& d) { require(d.count(K_CATEGORY_DECISION) == 0); }

}  // namespace

extern "C" {

k_status_t k_domain_propagate(k_domain_t domain, k_equilibrium_t equilibrium,
                              k_evidence_mode_t mode) {
  return guard_status([&] { kelva::propagate_domain(get(domain), equilibrium, mode); });
}

k_status_t k_jt_propagate(k_junction_tree_t jt, k_equilibrium_t equilibrium,
                          k_evidence_mode_t mode) {
  return guard_status([&] { kelva::propagate_tree(get(jt), nullptr, equilibrium, mode); });
}

k_status_t k_clique_propagate(k_clique_t clique, k_equilibrium_t equilibrium,
                              k_evidence_mode_t mode) {
  return guard_status([&] {
    Clique& c = get(clique);
    kelva::propagate_tree(*c.tree, &c, equilibrium, mode);
  });
}

k_status_t k_domain_initialize(k_domain_t domain) {
  return guard_status([&] { kelva::initialise_domain(get(domain)); });
}

k_status_t k_domain_reset_inference_engine(k_domain_t domain) {
  return guard_status([&] { kelva::reset_inference_engine(get(domain)); });
}

double k_domain_get_normalization_constant(k_domain_t domain) {
  return guard(-1.0, [&] {
    double product = 1.0;
    for (auto& t : compiled_forest(get(domain)).trees) {
      require_equilibrium(*t);
      product *= t->normalization_constant;
    }
    return product;
  });
}

double k_domain_get_log_normalization_constant(k_domain_t domain) {
  return guard(-1.0, [&] {
    double sum = 0.0;
    for (auto& t : compiled_forest(get(domain)).trees) {
      require_equilibrium(*t);
      sum += t->log_normalization_constant;
    }
    return sum;
  });
}

double k_node_get_belief(k_node_t node, k_size_t state) {
  return guard(-1.0, [&] {
    Node& n = get(node);
    require(n.is_discrete() && state < n.state_count());
    const NodeSlot& slot = slot_of(n);
    require_equilibrium(*slot.tree);
    const std::int64_t code = n.evidence.propagated_code;
    if (slot.tree->mode == K_MODE_NORMAL && code >= 0)
      return static_cast<k_size_t>(code) == state ? 1.0 : 0.0;
    require(state < slot.marginal.size(), K_ERROR_ERROR);
    return slot.marginal[state];
  });
}

k_table_t k_domain_get_marginal(k_domain_t domain, k_node_t* nodes) {
  return guard<k_table_t>(nullptr, [&] {
    Domain& d = get(domain);
    const std::vector<Node*> list = kelva::capi::node_list(nodes);
    require(!list.empty());
    compiled_forest(d);
    JunctionTree* tree = nullptr;
    for (std::size_t i = 0; i < list.size(); ++i) {
      Node& n = *list[i];
      require(&n.domain() == &d && n.is_discrete());
      require(std::find(list.begin(), list.begin() + static_cast<std::ptrdiff_t>(i), &n) ==
              list.begin() + static_cast<std::ptrdiff_t>(i));
      JunctionTree* t = slot_of(n).tree;
      require(tree == nullptr || t == tree);
      tree = t;
    }
    require_equilibrium(*tree);
    // The smallest clique of the tree that holds every node.
    Clique* best = nullptr;
    for (Clique* const* c = tree->cliques.data(); *c != nullptr; ++c) {
      const kelva::NodeList& members = (*c)->members;
      const bool holds = std::all_of(list.begin(), list.end(), [&](Node* n) {
        return std::find(members.begin(), members.end(), n) != members.end();
      });
      if (holds && (best == nullptr || (*c)->discrete_size < best->discrete_size)) best = *c;
    }
    require(best != nullptr);
    auto table = std::make_unique<kelva::Table>(d, list, kelva::TableRole::free, nullptr);
    const kelva::IndexPlan plan = kelva::IndexPlan::between(*best->table, *table);
    const kelva::Reduce how =
        tree->equilibrium == K_EQUILIBRIUM_MAX ? kelva::Reduce::max : kelva::Reduce::sum;
    if (d.is_compressed()) kelva::compressed::marginalize_clique(*best, plan, table->data(), how);
    else
      kelva::marginalize(plan, best->table->data(), table->data(), how, kelva::Parallelism::of(d));
    d.adopt_free_table(table.get());
    return handle(table.release());
  });
}

double k_domain_get_conflict(k_domain_t domain) {
  return guard(-1.0, [&] {
    Domain& d = get(domain);
    require_no_decisions(d);
    double product = 1.0;
    for (auto& t : compiled_forest(d).trees) {
      require_conflict(*t);
      product *= t->conflict;
    }
    return product;
  });
}

double k_jt_get_conflict(k_junction_tree_t jt) {
  return guard(-1.0, [&] {
    JunctionTree& t = get(jt);
    require_no_decisions(*t.domain);
    require_conflict(t);
    return t.conflict;
  });
}

double k_clique_get_conflict(k_clique_t clique) {
  return guard(-1.0, [&] {
    Clique& c = get(clique);
    require_no_decisions(*c.tree->domain);
    require_conflict(*c.tree);
    return c.conflict_factor;
  });
}

k_clique_t k_node_get_conflict_clique(k_node_t node) {
  return guard<k_clique_t>(nullptr, [&] {
    Node& n = get(node);
    require(n.kind() != K_KIND_OTHER);
    require_no_decisions(n.domain());
    const NodeSlot& slot = slot_of(n);
    require_conflict(*slot.tree);
    return handle(slot.tree->last_root);
  });
}

double k_node_get_expected_utility(k_node_t node, k_size_t state) {
  return guard(-1.0, [&] {
    Node& n = get(node);
    const bool utility = n.category() == K_CATEGORY_UTILITY;
    // A discrete node's expected utilities exist when the domain has
    // utility nodes: one per state.
    require(utility || (n.is_discrete() && state < n.state_count() &&
                        n.domain().count(K_CATEGORY_UTILITY) > 0));
    const NodeSlot& slot = slot_of(n);
    require_equilibrium(*slot.tree);
    const std::size_t i = utility ? 0 : state;
    require(i < slot.expected_utility.size(), K_ERROR_ERROR);
    return slot.expected_utility[i];
  });
}

}  // extern "C"
