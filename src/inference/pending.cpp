// Until propagation and the belief report land, compilation ends once the
// junction forest is built: these do nothing.  Deleted by the code that
// replaces them.
#include "inference/belief_report.h"
#include "inference/propagate.h"

namespace kelva {

void propagate_domain(Domain&, k_equilibrium_t, k_evidence_mode_t) {}
void propagate_tree(JunctionTree&, Clique*, k_equilibrium_t, k_evidence_mode_t) {}
void report_domain_beliefs(Domain&) {}
void report_node_beliefs(Node&) {}

}  // namespace kelva
