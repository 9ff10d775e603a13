#include "learning/case_evidence.h"

#include <cmath>

#include "inference/evidence.h"
#include "network/domain.h"
#include "network/node.h"

namespace kelva {

bool case_can_be_entered(const Domain& domain, std::size_t c) noexcept {
  if (c >= domain.cases.size() || !accepts_evidence(domain)) return false;
  for (const Node* n = domain.first_node(); n != nullptr; n = n->next) {
    if (!n->cases.is_set(c)) continue;
    if (n->is_discrete()) {
      const auto state = n->cases.state(c);
      if (state < 0 || static_cast<std::size_t>(state) >= n->state_count()) return false;
    } else if (!n->is_continuous() || !std::isfinite(n->cases.value(c))) {
      return false;
    }
  }
  return true;
}

void enter_case_evidence(Domain& domain, std::size_t c, bool continuous_items) {
  for (Node* n = domain.first_node(); n != nullptr; n = n->next) {
    if (!n->is_discrete() && !n->is_continuous()) continue;
    if (!n->cases.is_set(c) || (n->is_continuous() && !continuous_items))
      retract_findings(*n);
    else if (n->is_discrete())
      select_state(*n, static_cast<std::size_t>(n->cases.state(c)));
    else
      enter_value(*n, n->cases.value(c));
  }
}

}  // namespace kelva
