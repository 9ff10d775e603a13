#pragma once

#include <cstdint>
#include <span>

#include "table/index_plan.h"
#include "table/table_ops.h"

namespace kelva {

/// A small table multiplied into a large one through `plan`.
struct SweepFactor {
  const IndexPlan* plan;
  const double* data;
};

/// A small table that receives the marginal of a large one through `plan`.
struct SweepFold {
  const IndexPlan* plan;
  double* data;
};

/// One pass over the `size` entries of `large`: each entry becomes itself
/// (with `rebuild`, 1) times the factors' matching entries, in the order
/// given, and every fold's small table then becomes the sum (or maximum) of
/// the new large table through its plan.  The bits are those of gather()
/// or multiply() per factor followed by marginalize() per fold; the work is
/// done block by block, each block while it is in the first-level cache, so
/// the large table is read and written once (written only, with `rebuild`).
/// Work with factors that the parallelism splits over threads takes the
/// kernels one after the other instead.
void sweep(double* large, std::uint64_t size, bool rebuild, std::span<const SweepFactor> factors,
           std::span<const SweepFold> folds, Reduce how, const Parallelism& parallelism = {});

}  // namespace kelva
