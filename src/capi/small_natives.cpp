// Discrete nodes made with their states in one call, and quantiles of
// continuous nodes.
#include <cstdint>

#include "analysis/quantile.h"
#include "capi/boundary.h"
#include "network/domain.h"
#include "network/node.h"
#include "structure/structure.h"

using kelva::capi::get;
using kelva::capi::guard;
using kelva::capi::handle;

extern "C" {

k_node_t k_domain_create_discrete_node(k_domain_t domain, k_category_t category,
                                       k_subtype_t subtype, size_t states) {
  return guard<k_node_t>(nullptr, [&] {
    kelva::Domain& d = get(domain);
    kelva::require(category == K_CATEGORY_CHANCE || category == K_CATEGORY_DECISION ||
                   category == K_CATEGORY_FUNCTION);
    kelva::require(subtype >= K_SUBTYPE_LABEL && subtype <= K_SUBTYPE_INTERVAL);
    kelva::require(states >= 1 && (subtype != K_SUBTYPE_BOOLEAN || states == 2));
    const std::uint64_t counter = d.counter();
    kelva::Node* node = d.new_node(category, K_KIND_DISCRETE, subtype);
    try {
      if (states != node->state_count()) kelva::set_number_of_states(*node, states);
    } catch (...) {
      kelva::delete_node(*node);
      d.rewind_counter(counter);
      throw;
    }
    return handle(node);
  });
}

double k_node_get_quantile(k_node_t node, double probability) {
  return guard(-1.0, [&] { return kelva::node_quantile(get(node), probability); });
}

}  // extern "C"
