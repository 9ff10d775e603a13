// Distributions of sums of numeric nodes, and freeing an unfolded domain's
// source lists.
#include "analysis/convolution.h"

#include <algorithm>
#include <cstdlib>
#include <new>

#include "capi/boundary.h"
#include "network/class.h"
#include "network/domain.h"
#include "network/node.h"

using kelva::capi::get;
using kelva::capi::guard;
using kelva::capi::guard_status;

namespace {

// The sums, then their probabilities, in one array for free().
double* to_array(const kelva::SumDistribution& sums, k_size_t* count) {
  const std::size_t k = sums.values.size();
  auto* out = static_cast<double*>(std::malloc(2 * k * sizeof(double)));
  if (out == nullptr) throw std::bad_alloc();
  std::copy(sums.values.begin(), sums.values.end(), out);
  std::copy(sums.probabilities.begin(), sums.probabilities.end(), out + k);
  *count = k;
  return out;
}

}  // namespace

extern "C" {

double* k_domain_get_convolution(k_domain_t domain, k_node_t* nodes, k_size_t* count) {
  return guard<double*>(nullptr, [&] {
    kelva::Domain& d = get(domain);
    kelva::require(count != nullptr);
    return to_array(kelva::domain_convolution(d, kelva::capi::node_list(nodes)), count);
  });
}

double* k_node_get_convolution(k_node_t node, k_size_t copies, k_size_t* count) {
  return guard<double*>(nullptr, [&] {
    kelva::Node& n = get(node);
    kelva::require(count != nullptr);
    return to_array(kelva::node_convolution(n, static_cast<std::size_t>(copies)), count);
  });
}

k_status_t k_domain_delete_source_lists(k_domain_t domain) {
  return guard_status([&] {
    kelva::Domain& d = get(domain);
    if (d.unfolded_from != nullptr) d.unfolded_from->remove_unfolded(d);
    for (kelva::Node* n = d.first_node(); n != nullptr; n = n->next) n->source = kelva::NodeList();
  });
}

}  // extern "C"
