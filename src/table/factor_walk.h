#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

#include "table/index_plan.h"
#include "table/sweep.h"

namespace kelva {

/// Most factors one joint walk multiplies; a sweep with more takes one pass
/// per factor.
inline constexpr std::size_t kMaxJointFactors = 8;

/// Several factors' plans over one large table, walked as one: the large
/// table's axes cut wherever any of the plans cuts them, each axis with
/// every factor's small stride, adjacent axes merged only where every plan
/// merges them.  Plain data on the stack: nothing is allocated.
struct JointPlan {
  std::size_t axis_count;
  std::size_t factor_count;
  /// Values along each axis, outermost first; the last is the inner run.
  std::array<std::uint64_t, kMaxPlanAxes> count;
  /// small_stride[axis][factor].
  std::array<std::array<std::uint64_t, kMaxJointFactors>, kMaxPlanAxes> small_stride;
};

/// Makes the joint plan of `factors` (plans over one large table, as in a
/// sweep) in `out`.  False where no joint walk
/// fits: fewer than two factors or more than kMaxJointFactors, a plan
/// walked through its index map (small tables), or a factor that is
/// neither constant nor contiguous along the joint inner run.
bool make_joint_plan(std::span<const SweepFactor> factors, JointPlan& out) noexcept;

/// Whether the joint walk takes fewer instructions than one pass per
/// factor, by an estimate: a joint walk's runs are as short as the
/// shortest of the factors' own, and each factor costs a few steps per run.
bool joint_pays(const JointPlan& plan, std::span<const SweepFactor> factors, bool rebuild) noexcept;

/// What apply_factors does to large entries [begin, end), in one walk:
/// each entry is loaded once (or, with `rebuild`, made from the first
/// factor), multiplied by every factor in the order given and stored once.
/// The products are those of one pass per factor, bit for bit.
void apply_joint(const JointPlan& plan, double* large, bool rebuild,
                 std::span<const SweepFactor> factors, std::uint64_t begin,
                 std::uint64_t end) noexcept;

/// Set once the processor is known and by set_wide_rows (table_ops.cpp).
extern std::atomic<bool> wide_rows_on;

/// Whether the row loops run on 256-bit vectors.  Read per tile walk, so a
/// load rather than a call.
inline bool wide_rows() noexcept { return wide_rows_on.load(std::memory_order_relaxed); }

}  // namespace kelva
