#pragma once

namespace kelva {

class Domain;
class Node;

/// Writes the belief report of the compiled `domain` to its log
/// (k_domain_report_beliefs); nothing without a log.  Throws Error
/// (not_compiled, no_equilibrium, io).
void report_domain_beliefs(Domain& domain);

/// Writes the report of one node (k_node_report_beliefs).
void report_node_beliefs(Node& node);

}  // namespace kelva
