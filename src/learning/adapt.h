#pragma once

#include <cstdint>
#include <vector>

namespace kelva {

class Domain;
class Forest;
class Node;
class Table;

/// For each entry of `table`, the index of the entry of `small` (a table
/// over some of its discrete nodes) that shares its configuration.
std::vector<std::uint64_t> entry_map(const Table& table, const Table& small);

/// Error(not_compiled), Error(compressed) or Error(usage) unless every tree
/// of the domain is at sum equilibrium with all entered evidence
/// propagated under the current tables.
void require_adaptable(const Domain& domain);

/// P(family of `node` | evidence) in the node table's configuration order,
/// from the node's assigned clique at equilibrium; empty when the node has
/// no table in the forest.
std::vector<double> family_posterior(const Node& node, Forest& forest);

/// Sequential updating of the conditional tables from the evidence now
/// propagated (k_domain_adapt).  For every discrete chance node with an
/// experience table, and every parent configuration j whose experience
/// count n_j is not negative: with w_jk the posterior probability of the
/// family configuration (state k, parents j) and w_j their sum over k, and
/// f_j = 1 - w_j (1 - lambda_j) (lambda_j from the fading table, 1 without
/// one), the counts n_j p_jk become f_j n_j p_jk + w_jk and n_j becomes
/// f_j n_j + w_j; the row of the table becomes the new counts over the new
/// n_j (unchanged while that is 0).  Nodes without an experience table are
/// left alone.
///
/// The evidence stays entered and the trees keep the equilibrium of the
/// old tables; the next propagation starts from the new ones.  Throws
/// Error: not_compiled; compressed; usage when a tree is not at sum
/// equilibrium with all entered evidence propagated under the current
/// tables.  A failure changes nothing.
void adapt_domain(Domain& domain);

}  // namespace kelva
