// Until propagation lands, compilation ends once the junction forest is
// built: these do nothing.  Deleted by the code that replaces them.
#include "inference/propagate.h"

namespace kelva {

void propagate_domain(Domain&, k_equilibrium_t, k_evidence_mode_t) {}
void propagate_tree(JunctionTree&, Clique*, k_equilibrium_t, k_evidence_mode_t) {}

}  // namespace kelva
