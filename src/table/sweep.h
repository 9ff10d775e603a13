#pragma once

#include <algorithm>
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
/// Work large enough for the parallelism is shared between threads by
/// split_sweep(), with the same bits; the folds may then be reordered.
void sweep(double* large, std::uint64_t size, bool rebuild, std::span<const SweepFactor> factors,
           std::span<SweepFold> folds, Reduce how, const Parallelism& parallelism = {});

/// sweep() of a rebuild whose folds alone are wanted: where the folds
/// allow, each block is made in a buffer and folded there, the large table
/// is left as it was (neither read nor written), and true is returned.
/// Otherwise the table is written as by sweep() and false returned: where
/// a fold reads the finished table (a total) or a fold's inner run is
/// longer than the buffer.  The folds get sweep()'s bits either way.
bool sweep_folds_only(double* large, std::uint64_t size, std::span<const SweepFactor> factors,
                      std::span<SweepFold> folds, Reduce how, const Parallelism& parallelism = {});

/// The factors and folds of sweep() over large entries [begin, end) only,
/// in the same blocks: the folds with more than one entry (others are
/// skipped) are added to, not cleared.  `begin` and `end` must lie on whole
/// inner runs of every fold whose inner run folds into one entry.  With
/// `discard` (a rebuild whose folds' inner runs fit sweep_folds_only's
/// buffer), the blocks are made in that buffer and the table is untouched.
void sweep_range(double* large, bool rebuild, std::span<const SweepFactor> factors,
                 std::span<const SweepFold> folds, std::uint64_t begin, std::uint64_t end,
                 Reduce how, bool discard = false);

/// The least common multiple of the inner runs of the folds with more
/// than one entry whose inner run folds into one entry: blocks of a sweep
/// start and end on multiples of it, so each such run is folded whole.
std::uint64_t folded_run(std::span<const SweepFold> folds) noexcept;

/// Sets every fold with more than one entry to the identity of `how`
/// (0 or minus infinity), as a sweep does before it adds to them.
void clear_folds(std::span<const SweepFold> folds, Reduce how) noexcept;

/// Whether sweep() shares `size` entries between threads: with two
/// threads or more and at least kSplitSweepGrains grains of entries.
inline constexpr std::uint64_t kSplitSweepGrains = 1;
inline bool split_sweep_fits(std::uint64_t size, const Parallelism& parallelism) noexcept {
  return parallelism.threads >= 2 &&
         size / kSplitSweepGrains >= std::max<std::uint64_t>(parallelism.grain, 1);
}

/// sweep() on up to `parallelism.threads` threads (split_sweep.cpp): the
/// large table is cut by the values of a block of its axes present in as
/// many folds as possible, each thread taking its share of those values
/// under every value of the axes outside; the folds those axes miss are
/// made behind the pieces in index order where the pieces are contiguous
/// ranges, else afterwards over the finished table, each by one thread.  Every
/// small entry receives the same additions in the same order as in one
/// thread's sweep.  Moves the folds that the cut covers to the front.  With
/// `discard` (as sweep_folds_only gives it), where the cut covers some
/// fold, the table is left as it was: the pieces are made in buffers, and
/// the folds the cut misses read them or make the product again; returns
/// whether the table was left as it was.
bool split_sweep(double* large, std::uint64_t size, bool rebuild,
                 std::span<const SweepFactor> factors, std::span<SweepFold> folds, Reduce how,
                 const Parallelism& parallelism, bool discard = false);

/// Sets how many buffers (4 unless set) a split sweep with `discard` makes
/// its pieces in where the cut misses folds, for the missed folds to read;
/// a piece that finds none free has its product made again.  For tests of
/// that path: 0 leaves every piece without one.
void set_piece_buffers(unsigned count) noexcept;

}  // namespace kelva
