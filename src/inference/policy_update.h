#pragma once

#include <cstdint>

namespace kelva {

class Domain;
class Node;

/// Finds the policies of the compiled domain's decisions by single policy
/// updating given the entered evidence (k_domain_update_policies), then
/// propagates (sum, normal).  Every policy starts uniform; sweeps over each
/// junction tree's decisions, latest first, replace one policy at a time by
/// the best deterministic answer to the others, until a sweep changes
/// nothing.  A decision chosen by hand gets the policy "always that
/// option".  Ties keep the current option when it is among the best, else
/// take the lowest index.  Returns the number of sweeps of the slowest tree.
/// Throws Error (not_compiled, compressed, functional_dependency,
/// invalid_evidence, inconsistency_or_underflow, overflow, no_memory); on
/// failure every policy is as it was and the trees are reset.
std::uint64_t update_policies(Domain& domain);

/// Computes, after a propagation of the domain, the expected utility of
/// every option of every decision under the other decisions' policies (the
/// decision's own policy and manual choice set aside), the variance of the
/// total utility of every option, and the decision utilities per
/// configuration of its parents, into the decisions' forest records; the
/// trees are left propagated as before.  Does nothing without decision or
/// utility nodes.  Throws as propagation does; the policies and evidence
/// are restored whatever happens.
void set_decision_results(Domain& domain);

/// The variance of a utility node's utility given the evidence, under the
/// policies, from the clique its table is assigned to.  Throws
/// not_compiled when it is in no tree, no_equilibrium before a
/// propagation.
double utility_variance(Node& utility);

}  // namespace kelva
