#pragma once

#include <cstddef>
#include <vector>

#include "network/evidence.h"

namespace kelva {

class Domain;
class JunctionTree;
class Node;
struct NodeSlot;

// What the sensitivity, explanation and information queries share: they
// propagate the domain under evidence of their own and give it back as they
// found it.

/// Saves the entered evidence of every node and the trees' equilibrium and
/// mode; the destructor puts the evidence back and brings the trees to the
/// state they had (propagated again, or reset when they held no
/// equilibrium).  The queries run inside one.
class EvidenceScope {
 public:
  explicit EvidenceScope(Domain& domain);
  ~EvidenceScope();
  EvidenceScope(const EvidenceScope&) = delete;
  EvidenceScope& operator=(const EvidenceScope&) = delete;

 private:
  Domain& domain_;
  std::vector<Node*> nodes_;
  std::vector<Evidence> saved_;
  bool had_equilibrium_ = false;
  int equilibrium_ = 0;
  int mode_ = 0;
};

/// Checks that `domain` can be queried: compiled (not_compiled), not
/// compressed (compressed), discrete chance and utility nodes only (usage).
void require_queryable(const Domain& domain);

/// The forest record of a discrete node of a compiled domain (not_compiled
/// when it belongs to no tree).
NodeSlot& query_slot(const Node& node);

/// Propagates the domain's entered evidence (sum, normal).  Returns false,
/// leaving the trees reset, when the evidence is impossible.
bool propagate_sum(Domain& domain);

/// P(state | evidence) of a discrete node after propagate_sum.
double posterior(const Node& node, std::size_t state);

/// Gives the node the entered evidence of `saved`, keeping its tree's count
/// of evidence to propagate up to date.
void set_entered(Node& node, const Evidence& saved);

/// The discrete nodes of `domain` with a selected state (hard) and with
/// other findings (soft), in chain order.
void evidence_nodes(const Domain& domain, std::vector<const Node*>& hard,
                    std::vector<const Node*>& soft);

/// The node's evidence factor for `state` as entered: 1 without evidence,
/// the likelihood entry, 0 or 1 for a selected state.
double entered_factor(const Node& node, std::size_t state);

}  // namespace kelva
