#pragma once

#include <cstddef>
#include <memory>

#include "network/class.h"

namespace kelva {

// Temporal clones and the domains of dynamic networks: a class is a time
// slice, and a temporal clone in it stands for its master in the previous
// slice.

/// A new temporal clone of `master`: a discrete chance node of the same
/// class with the master's subtype, states and state values, which takes
/// no parents.  Error(usage) unless `master` is a discrete chance node of a
/// class that is not an output clone, not itself a temporal clone and has
/// no temporal clone yet.
Node& create_temporal_clone(Node& master);

/// A domain holding `slices` copies of `cls` unfolded (nodes of slice t
/// named `Tt.name`, instance nodes below as `Tt.instance.name`), linked in
/// time: in every slice but the first, a temporal clone is its master's
/// copy in the previous slice.  The first slice keeps its temporal clones,
/// each made a child of the clones before it, so their tables together
/// hold one joint prior of the interface.  The domain's `dbn` layout is set
/// (its predictor is a one-slice domain of the same class).
/// Error(usage) for no slices; the errors of unfolding.
std::unique_ptr<Domain> create_dbn_domain(Class& cls, std::size_t slices);

}  // namespace kelva
