#include "analysis/information.h"

#include <cmath>
#include <vector>

#include "analysis/query_support.h"
#include "compile/junction_forest.h"
#include "inference/evidence.h"
#include "network/domain.h"
#include "network/error.h"
#include "network/node.h"

namespace kelva {

namespace {

double plogp(double p) { return p > 0.0 ? p * std::log(p) : 0.0; }

}  // namespace

double entropy(const Node& node) {
  const NodeSlot& slot = query_slot(node);
  require(slot.tree->equilibrium != K_EQUILIBRIUM_NONE, K_ERROR_NO_EQUILIBRIUM);
  require(slot.tree->equilibrium == K_EQUILIBRIUM_SUM);
  if (slot.tree->mode == K_MODE_NORMAL && node.evidence.propagated_code >= 0) return 0.0;
  double h = 0.0;
  for (double p : slot.marginal) h -= plogp(p);
  return h;
}

double mutual_information(Node& node, Node& other) {
  Domain& domain = node.domain();
  require(&other.domain() == &domain);
  require_queryable(domain);
  const NodeSlot& a = query_slot(node);
  const NodeSlot& b = query_slot(other);
  if (a.tree != b.tree || node.evidence.entered_code >= 0 || other.evidence.entered_code >= 0)
    return 0.0;
  EvidenceScope scope(domain);
  if (!propagate_sum(domain)) throw Error(K_ERROR_INCONSISTENCY_OR_UNDERFLOW);
  const std::size_t nx = node.state_count(), ny = other.state_count();
  std::vector<double> px(nx), py(ny), joint(nx * ny, 0.0);
  for (std::size_t x = 0; x < nx; ++x) px[x] = posterior(node, x);
  for (std::size_t y = 0; y < ny; ++y) py[y] = posterior(other, y);
  if (&node == &other) {
    for (std::size_t x = 0; x < nx; ++x) joint[x * nx + x] = px[x];
  } else {
    const Evidence saved = other.evidence;
    for (std::size_t y = 0; y < ny; ++y) {
      if (py[y] <= 0.0) continue;
      select_state(other, y);
      const bool possible = propagate_sum(domain);
      set_entered(other, saved);
      if (!possible) continue;  // underflow of a state of tiny probability
      for (std::size_t x = 0; x < nx; ++x) joint[x * ny + y] = py[y] * posterior(node, x);
    }
  }
  double mi = 0.0;
  for (std::size_t x = 0; x < nx; ++x)
    for (std::size_t y = 0; y < ny; ++y) {
      const double p = joint[x * ny + y];
      if (p > 0.0) mi += p * std::log(p / (px[x] * py[y]));
    }
  return std::max(mi, 0.0);
}

}  // namespace kelva
