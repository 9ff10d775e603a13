#pragma once

#include <vector>

#include "network/node_list.h"

namespace kelva {

class Domain;
class Node;

// What a decision really needs to know.  A parent X of decision D is
// requisite unless X is d-separated from the utility nodes below D given
// D's other parents and D itself.  Dropping the links of parents that are
// not requisite can make other parents of other decisions unrequisite; the
// queries work on the graph where this was done until nothing more goes
// (the minimal reduction, which does not depend on the order of removal).

/// The requisite parents of decision `decision`, in parent order.
/// Error(usage) for a node that is not a decision.
NodeList requisite_parents(const Node& decision);

/// The decision and chance nodes from which `decision` is reached in the
/// reduced graph (through requisite parents of decisions and every parent
/// of a chance node), in domain node order.  Error(usage) for a node that is
/// not a decision.
NodeList requisite_ancestors(const Node& decision);

/// The decisions in an order where each is an ancestor of the next, or
/// Error(usage) when they are not totally ordered that way.  Empty for a
/// domain without decisions.
NodeList decision_order(const Domain& domain);

}  // namespace kelva
