#pragma once

namespace kelva {

class Beliefs;
class Domain;
class Node;

/// Whether `node` gets its table from its model: it has a model and a table
/// (not a real-valued function, decision or instance node).
bool generates_table(const Node& node) noexcept;

/// Generates the table of `node` from its model when the node is marked for
/// generation, writing the steps and every problem to the domain's log.
/// `beliefs` supplies what the configurations do not fix (the parents of a
/// function node).  Error(usage) for a node without a model or a table; any
/// other failure leaves the previous table in place and the mark set.
void generate_table(Node& node, const Beliefs& beliefs);

/// Generates the tables of every node of `domain` that generates_table(),
/// in the domain's node order, stopping at the first failure.
void generate_tables(Domain& domain, const Beliefs& beliefs);

}  // namespace kelva
