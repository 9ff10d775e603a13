#pragma once

#include <cstdint>

#include "table/index_plan.h"

namespace kelva {

class Domain;
class Table;

/// How a table operation may use worker threads.  Work of at least twice
/// the grain (in large-table entries) is split into pieces of at least the
/// grain over up to `threads` threads, the caller's included.  Results do
/// not depend on `threads`: they are the same, bit for bit, as with one.
struct Parallelism {
  std::uint64_t threads = 1;
  std::uint64_t grain = 10000;
  /// The domain's concurrency level and grain size.
  static Parallelism of(const Domain& domain) noexcept;
};

/// How marginalization combines the entries it folds together.
enum class Reduce { sum, max };

// Kernels over plain arrays laid out as the plan's large and small tables.

/// small := the sum (or maximum) of `large` over the axes absent from the
/// small table.  The order of the additions depends on the plan and the
/// grain only (a marginal to a single entry is summed in blocks fixed by the
/// size and the grain, then the block sums in order), never on the threads.
void marginalize(const IndexPlan& plan, const double* large, double* small, Reduce how,
                 const Parallelism& parallelism = {});
/// large := large * small, entry by entry through the plan.
void multiply(const IndexPlan& plan, double* large, const double* small,
              const Parallelism& parallelism = {});
/// large := large / small where the small entry is greater than 0; other
/// large entries are left as they are.
void divide(const IndexPlan& plan, double* large, const double* small,
            const Parallelism& parallelism = {});
/// large := large * factor through `multiply_plan`, then small := the sum
/// (or maximum) of the new large through `marginal_plan`: the results of
/// multiply() followed by marginalize(), bit for bit, but in one sweep over
/// cache-sized blocks of the large table when the work is not split over
/// threads.
void multiply_marginalize(const IndexPlan& multiply_plan, double* large, const double* factor,
                          const IndexPlan& marginal_plan, double* small, Reduce how,
                          const Parallelism& parallelism = {});
/// out := large-shaped copy of `small` read through the plan (out[l] =
/// small[s]); with a plan between two orders of the same nodes, this
/// permutes a table's data into the large order.
void gather(const IndexPlan& plan, double* out, const double* small,
            const Parallelism& parallelism = {});
/// out[i] := num[i] / den[i] where den[i] > 0, else num[i], for i < count
/// (the division of two tables of the same shape; out may be num).
void quotient(double* out, const double* num, const double* den, std::uint64_t count,
              const Parallelism& parallelism = {});

/// out[i] := num[i] / den[i] where den[i] > 0, else num[i], for i < count, on
/// one thread: quotient()'s bits, two to eight entries per vector step.
/// `out` may be `num` or `den`; otherwise the three must not overlap.
void quotient_entries(double* out, const double* num, const double* den,
                      std::uint64_t count) noexcept;
/// quotient_entries with its vector width chosen once (by wide_rows() now).
using QuotientKernel = void (*)(double* out, const double* num, const double* den,
                                std::uint64_t count) noexcept;
QuotientKernel quotient_kernel() noexcept;

/// large[i] := large[i] * per_run[i / m - begin / m] for i in [begin, end):
/// runs of m entries each multiplied by one factor, in the row loops.
void multiply_runs(double* large, const double* per_run, std::uint64_t m, std::uint64_t begin,
                   std::uint64_t end) noexcept;

/// A product, copy or fold through `plan` over large entries [begin, end)
/// (whole inner runs), its way of walking chosen once for the plan: the
/// bits of multiply(), gather() or marginalize() over those entries, where
/// a fold adds to the small entries as they are (the caller clears them).
using UpdateKernel = void (*)(const IndexPlan& plan, double* large, const double* small,
                              std::uint64_t begin, std::uint64_t end);
using FoldKernel = void (*)(const IndexPlan& plan, const double* large, double* small,
                            std::uint64_t begin, std::uint64_t end);
UpdateKernel multiply_kernel(const IndexPlan& plan) noexcept;
UpdateKernel copy_kernel(const IndexPlan& plan) noexcept;
/// large := large * q through `plan` over its n large entries, where q is
/// quotient_entries(fresh, old) over the small table: the bits of both
/// steps in one call.  Null where the plan has no such kernel (the caller
/// then takes both steps).
using QuotientProductKernel = void (*)(const IndexPlan& plan, double* large, const double* fresh,
                                       const double* old, std::uint64_t n);
QuotientProductKernel quotient_product_kernel(const IndexPlan& plan) noexcept;
/// For plans onto more than one small entry.
FoldKernel fold_kernel(const IndexPlan& plan, Reduce how) noexcept;
/// As fold_kernel, the kernel first setting the small table to the fold's
/// identity (what the caller would clear it to), for [begin, end) from the
/// first large entry on.
FoldKernel fresh_fold_kernel(const IndexPlan& plan, Reduce how) noexcept;

/// Whether the kernels may run their row loops on 256-bit vectors where the
/// processor has them (the default).  Both forms give the same bits; tests
/// switch this off to compare them.
void set_wide_rows(bool allowed) noexcept;

// The same on tables' discrete data, with the domain's parallelism.  The
// small table's discrete nodes must be among the large one's with the same
// state counts (Error(usage) otherwise); CG parts are not touched.

/// `to` := marginal of `from` onto to's discrete nodes.
void marginalize(const Table& from, Table& to, Reduce how);
/// table := table * by.
void multiply(Table& table, const Table& by);
/// table := table / by, by the division rule above.
void divide(Table& table, const Table& by);

}  // namespace kelva
