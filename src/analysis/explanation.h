#pragma once

#include <cstddef>

#include "network/node_list.h"

namespace kelva {

class Domain;
class Node;

/// Scores every subset of at most `max_size` items of the evidence (the
/// selected states of nodes other than `node`) as an explanation of the
/// hypothesis node = state, by its Bayes factor P(s | h) / P(s | not h):
/// the posterior odds of h given the subset over its odds without it.  A
/// factor above 1 speaks for h, below 1 against.  Other evidence
/// (likelihoods) stays entered as background; the hypothesis node's own
/// evidence is left out.  The explanations are kept in the domain, best
/// first (then smaller subsets, then earlier ones); subsets that are
/// impossible together are left out.  Throws Error(usage) when the
/// hypothesis is certain or impossible without the items, or there are more
/// than 2^20 subsets; not_compiled, compressed.  The domain's evidence and
/// propagation state are as before.
void compute_explanations(Node& node, std::size_t state, std::size_t max_size);

/// The number of explanations of the last computation; Error(usage) when
/// none was made on the current junction forest.
std::size_t explanation_count(const Domain& domain);
/// Explanation `index` of the last computation (its nodes in the domain's
/// node order; their states are those entered) and its Bayes factor.
const NodeList& explanation(const Domain& domain, std::size_t index);
double explanation_score(const Domain& domain, std::size_t index);

/// The Bayes factor of all the items of the evidence at once for the
/// hypothesis node = state (the same conventions).
double total_impact(Node& node, std::size_t state);

}  // namespace kelva
