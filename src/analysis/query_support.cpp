#include "analysis/query_support.h"

#include "compile/junction_forest.h"
#include "inference/evidence.h"
#include "inference/propagate.h"
#include "network/domain.h"
#include "network/error.h"
#include "network/node.h"

namespace kelva {

EvidenceScope::EvidenceScope(Domain& domain) : domain_(domain) {
  for (Node* n = domain.first_node(); n != nullptr; n = n->next) {
    nodes_.push_back(n);
    saved_.push_back(n->evidence);
  }
  const Forest* forest = domain.forest();
  if (forest != nullptr && !forest->trees.empty()) {
    const JunctionTree& first = *forest->trees.front();
    had_equilibrium_ = first.equilibrium != K_EQUILIBRIUM_NONE;
    equilibrium_ = first.equilibrium;
    mode_ = first.mode;
  }
}

namespace {

void copy_entered(Evidence& e, const Evidence& s) noexcept {
  e.entered_code = s.entered_code;
  // Same size: the node's states have not changed, so this cannot allocate.
  if (s.entered_code == Evidence::kVector && e.entered_vector.size() == s.entered_vector.size())
    e.entered_vector = s.entered_vector;
  e.value_entered = s.value_entered;
  e.entered_value = s.entered_value;
  e.entered = s.entered;
}

}  // namespace

void set_entered(Node& node, const Evidence& saved) {
  Domain& domain = node.domain();
  JunctionTree* tree = nullptr;
  if (domain.is_compiled()) {
    const NodeSlot* slot = domain.forest()->slot(node);
    if (slot != nullptr) tree = slot->tree;
  }
  if (tree != nullptr && evidence_to_propagate(node) && tree->evidence_to_propagate > 0)
    --tree->evidence_to_propagate;
  copy_entered(node.evidence, saved);
  if (tree != nullptr && evidence_to_propagate(node)) ++tree->evidence_to_propagate;
}

void evidence_nodes(const Domain& domain, std::vector<const Node*>& hard,
                    std::vector<const Node*>& soft) {
  for (const Node* n = domain.first_node(); n != nullptr; n = n->next) {
    if (!n->is_discrete()) continue;
    if (n->evidence.entered_code >= 0) hard.push_back(n);
    else if (n->evidence.entered_code == Evidence::kVector) soft.push_back(n);
  }
}

EvidenceScope::~EvidenceScope() {
  for (std::size_t i = 0; i < nodes_.size(); ++i) copy_entered(nodes_[i]->evidence, saved_[i]);
  Forest* forest = domain_.forest();
  if (forest == nullptr) return;
  for (auto& tree : forest->trees) tree->evidence_to_propagate = count_evidence_to_propagate(*tree);
  try {
    if (had_equilibrium_)
      propagate_domain(domain_, static_cast<k_equilibrium_t>(equilibrium_),
                       static_cast<k_evidence_mode_t>(mode_));
    else initialise_domain(domain_);
  } catch (...) {
    // A failed propagation leaves the trees reset; the evidence is back.
  }
}

void require_queryable(const Domain& domain) {
  require(domain.is_compiled(), K_ERROR_NOT_COMPILED);
  require(!domain.is_compressed(), K_ERROR_COMPRESSED);
  require(domain.continuous_count() == 0 && domain.count(K_CATEGORY_DECISION) == 0 &&
          domain.count(K_CATEGORY_FUNCTION) == 0 && domain.count(K_CATEGORY_INSTANCE) == 0);
}

NodeSlot& query_slot(const Node& node) {
  require(node.is_discrete());
  Domain& domain = node.domain();
  require(domain.is_compiled(), K_ERROR_NOT_COMPILED);
  NodeSlot* slot = domain.forest()->slot(node);
  require(slot != nullptr && slot->tree != nullptr, K_ERROR_NOT_COMPILED);
  return *slot;
}

bool propagate_sum(Domain& domain) {
  try {
    propagate_domain(domain, K_EQUILIBRIUM_SUM, K_MODE_NORMAL);
  } catch (const Error& e) {
    if (e.code() == K_ERROR_INCONSISTENCY_OR_UNDERFLOW) return false;
    throw;
  }
  return true;
}

double posterior(const Node& node, std::size_t state) {
  const std::int64_t code = node.evidence.entered_code;
  if (code >= 0) return static_cast<std::size_t>(code) == state ? 1.0 : 0.0;
  return query_slot(node).marginal[state];
}

double entered_factor(const Node& node, std::size_t state) { return entered_finding(node, state); }

}  // namespace kelva
