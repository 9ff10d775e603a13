#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cmath>
#include <cstdint>
#include <memory>
#include <new>

#include "platform/worker_pool.h"
#include "table/fold_walk.h"
#include "table/sweep.h"

namespace kelva {

namespace {

// Buffers a PieceBuffers may hold (set_piece_buffers).
std::atomic<unsigned> piece_buffers{4};

// Start of part j of `parts` equal parts of [0, total).
std::uint64_t part_start(std::uint64_t total, std::uint64_t parts, std::uint64_t j) noexcept {
  return total / parts * j + total % parts * j / parts;
}

// Whether large-table strides [lo, hi) (boundaries of the plan's axes or
// finer) lie on axes the small table has.
bool covers(const IndexPlan& plan, std::uint64_t lo, std::uint64_t hi) noexcept {
  for (const PlanAxis& a : plan.axes())
    if (a.large_stride < hi && a.large_stride * a.count > lo && a.small_stride == 0) return false;
  return true;
}

// The digit (i / stride) % count of large index i whose values are shared
// out: each thread takes a range of values under each of `outer` values of
// the axes outside it.
struct Cut {
  std::uint64_t stride = 1;
  std::uint64_t count = 1;
  std::uint64_t outer = 1;
  std::uint64_t pieces = 1;
  std::uint64_t cost = 0;  // of a piece, in entries (choose_cut)
};

// The cut whose slowest thread has least to do, by a cost in entries
// swept: a thread's share of the entries, a walk start per range for each
// factor and covered fold, and for each fold the cut misses a pass over
// the finished table shared by the threads.  Candidates are runs of the
// elementary digits between the strides where the folds' axes start (a
// digit lies inside one axis of every fold, so it is either present in a
// fold or absent from it): for each digit, the longest run that the folds
// covering it cover, and the whole index (contiguous shares).
Cut choose_cut(std::uint64_t size, std::span<const SweepFold> folds, std::size_t factors,
               std::uint64_t threads) {
  // Strides are suffix products of the large table's state counts: they
  // divide one another, so there are at most 64 distinct ones.
  std::array<std::uint64_t, 65> bounds{1, size};
  std::size_t count = 2;
  for (const SweepFold& f : folds) {
    if (f.plan->small_size() == 1) continue;
    for (const PlanAxis& a : f.plan->axes()) {
      auto* end = bounds.begin() + count;
      auto* at = std::lower_bound(bounds.begin(), end, a.large_stride);
      if (*at == a.large_stride) continue;
      std::copy_backward(at, end, end + 1);
      *at = a.large_stride;
      ++count;
    }
  }
  const std::size_t digits = count - 1;
  auto covered = [&](std::size_t first, std::size_t last) {
    std::uint64_t n = 0;
    for (const SweepFold& f : folds)
      if (f.plan->small_size() > 1 && covers(*f.plan, bounds[first], bounds[last + 1])) ++n;
    return n;
  };
  std::uint64_t multiple = 0;  // folds with more than one entry
  for (const SweepFold& f : folds)
    if (f.plan->small_size() > 1) ++multiple;
  constexpr std::uint64_t kWalkStart = 32;  // a walk's start, in entries
  Cut best;
  std::uint64_t best_cost = UINT64_MAX;
  for (std::size_t d = 0; d <= digits; ++d) {
    std::size_t first = d == digits ? 0 : d;
    std::size_t last = d == digits ? digits - 1 : d;
    const std::uint64_t c = covered(first, last);
    if (d < digits) {
      while (first > 0 && covered(first - 1, last) == c) --first;
      while (last + 1 < digits && covered(first, last + 1) == c) ++last;
    }
    Cut cut;
    cut.stride = bounds[first];
    cut.count = bounds[last + 1] / bounds[first];
    cut.outer = size / bounds[last + 1];
    // Four pieces per thread, taken by whichever thread is free: a worker
    // that starts late, or a share made uneven by an odd count, then costs
    // a quarter of a share instead of a whole one.
    cut.pieces = std::min<std::uint64_t>({4 * threads, cut.count, 64});
    const std::uint64_t share = (cut.count + cut.pieces - 1) / cut.pieces;
    const std::uint64_t cost = cut.outer * (share * cut.stride + kWalkStart * (factors + c)) +
                               (multiple - c) * size / (2 * cut.pieces);
    if (cost < best_cost) {
      cut.cost = cost;
      best = cut;
      best_cost = cost;
    }
  }
  return best;
}

// The pieces of a cut under one outer value (contiguous ranges of the
// index), for a sweep whose cut misses some folds: the missed folds must
// see the pieces in index order, so a piece's missed folds are made by
// whichever thread holds the turn.  A piece claimed while the turn is at it is swept
// with every fold in one pass; any other is swept with the covered folds,
// and its missed folds are made once the pieces before it have theirs,
// by its own thread if it finishes after them, else by the thread that
// makes those of the piece before (while the piece is still in a shared
// cache).  Nobody waits: the missed folds trail the sweep by about a piece
// and add no pass over the whole table after it.
class InOrder {
 public:
  // Pieces of at least this many entries, up to kMaxPieces: more of them
  // than the four per thread of other cuts, so that the missed folds of
  // the last piece, made by one thread alone, are short.
  static constexpr std::uint64_t kPieceEntries = std::uint64_t{1} << 17;
  static constexpr std::uint64_t kMaxPieces = 64;
  // Pieces made in buffers (PieceBuffers): of about this many entries, the
  // size of a core's second-level cache, and up to kMaxBufferedPieces of
  // them.  On link's 16.8 M-entry clique, 2^17 and 2^18 took 5.3 ms, 2^19
  // 6.2, and 2^16 three times as long: each piece then moves the missed
  // fold's 32,768 entries from the other core's cache.
  static constexpr std::uint64_t kBufferedPieceEntries = std::uint64_t{1} << 17;
  static constexpr std::uint64_t kMaxBufferedPieces = 1024;

  InOrder(const Cut& cut, bool buffered) noexcept
      : stride_(cut.stride),
        count_(cut.count),
        pieces_(std::clamp<std::uint64_t>(
            cut.stride * cut.count / (buffered ? kBufferedPieceEntries : kPieceEntries), cut.pieces,
            std::min(cut.count, buffered ? kMaxBufferedPieces : kMaxPieces))) {}

  std::uint64_t pieces() const noexcept { return pieces_; }
  // Entries of the largest piece.
  std::uint64_t largest() const noexcept { return (count_ + pieces_ - 1) / pieces_ * stride_; }

  // Sweeps piece j through swept(j, lo, hi, every fold or the covered
  // ones), and makes missed folds through fold(k, lo, hi) for the pieces k
  // whose turn this thread takes.
  template <class Swept, class Fold>
  void sweep(std::uint64_t j, Swept swept, Fold fold) noexcept {
    lock();
    const bool all = turn_ == j;
    unlock();
    swept(j, start(j), start(j + 1), all);
    lock();
    if (!all && turn_ != j) {
      swept_[j] = true;  // the thread that makes piece j - 1's folds makes these
      unlock();
      return;
    }
    unlock();
    for (std::uint64_t k = j;;) {
      if (k != j || !all) fold(k, start(k), start(k + 1));
      lock();
      turn_ = ++k;
      const bool next = k < pieces_ && swept_[k];
      unlock();
      if (!next) return;
    }
  }

 private:
  std::uint64_t start(std::uint64_t j) const noexcept {
    return part_start(count_, pieces_, j) * stride_;
  }
  void lock() noexcept {
    while (busy_.test_and_set(std::memory_order_acquire)) platform::relax();
  }
  void unlock() noexcept { busy_.clear(std::memory_order_release); }

  const std::uint64_t stride_;
  const std::uint64_t count_;
  const std::uint64_t pieces_;
  std::atomic_flag busy_;
  std::uint64_t turn_ = 0;  // first piece whose missed folds are not made; guarded
  std::array<bool, kMaxBufferedPieces> swept_{};  // swept, missed folds waiting; guarded
};

// Buffers for the pieces of an in-order sweep whose table need not be
// written: a piece swept off its turn is made in a free buffer, and its
// missed folds read the buffer, which is then free again.  With two
// threads about two are in use at a time (a piece being swept, one
// waiting for its turn); a piece that finds none free leaves its missed
// folds to a sweep that makes its product again.  The buffers come from
// the calling thread's pool, kept for its later sweeps: at most
// kMostEntries entries (8 MiB) a thread.
class PieceBuffers {
 public:
  static constexpr std::uint64_t kMostEntries = std::uint64_t{1} << 20;

  PieceBuffers(double* large, std::uint64_t entries) noexcept : large_(large) {
    // Room for a piece at any alignment modulo 64 bytes, in whole lines.
    room_ = (entries + 15) / 8 * 8;
    unsigned count = std::min(piece_buffers.load(std::memory_order_relaxed), kMostBuffers);
    count = static_cast<unsigned>(std::min<std::uint64_t>(count, kMostEntries / room_));
    first_ = count == 0 ? nullptr : pool(count * room_);
    if (first_ == nullptr) count = 0;
    free_.store((1u << count) - 1, std::memory_order_relaxed);
  }

  // A free buffer's number, or -1.
  int take() noexcept {
    unsigned mask = free_.load(std::memory_order_relaxed);
    while (mask != 0) {
      const unsigned b = static_cast<unsigned>(std::countr_zero(mask));
      if (free_.compare_exchange_weak(mask, mask & ~(1u << b), std::memory_order_acquire))
        return static_cast<int>(b);
    }
    return -1;
  }
  void give(int b) noexcept { free_.fetch_or(1u << b, std::memory_order_release); }

  // Buffer b moved back by large index a, at the table's alignment modulo
  // 64 bytes: the kernels index it as the table from a on.
  double* place(int b, std::uint64_t a) const noexcept {
    const auto at = reinterpret_cast<std::uintptr_t>(large_ + a);
    const auto buffer = reinterpret_cast<std::uintptr_t>(first_ + room_ * static_cast<unsigned>(b));
    return reinterpret_cast<double*>(buffer + (at & 63) - a * sizeof(double));
  }

 private:
  static constexpr unsigned kMostBuffers = 8;

  // `n` entries at 64 bytes from the calling thread's pool, or null.
  static double* pool(std::uint64_t n) noexcept {
    struct Pool {
      std::unique_ptr<double[]> data;
      std::uint64_t room = 0;
    };
    thread_local Pool kept;
    if (kept.room < n) {
      kept.data.reset(new (std::nothrow) double[n + 8]);
      kept.room = kept.data ? n : 0;
    }
    if (!kept.data) return nullptr;
    const auto at = reinterpret_cast<std::uintptr_t>(kept.data.get());
    return reinterpret_cast<double*>((at + 63) / 64 * 64);
  }

  double* const large_;
  double* first_ = nullptr;
  std::uint64_t room_ = 0;
  std::atomic<unsigned> free_{0};
};

// Most outer values whose pieces go one after the other (a wait for the
// last piece at each) so that missed folds follow them in order.
constexpr std::uint64_t kMostOuterTurns = 8;

// Most pieces of a cut dealt as (group of outer values, range of values).
constexpr std::uint64_t kMaxGroupedPieces = 64;

// How a cut's values and outer values are dealt into pieces: ranges of
// `values` parts of the cut's values, each under `groups` groups of
// consecutive outer values.
struct Deal {
  std::uint64_t values = 1;
  std::uint64_t groups = 1;
};

// Pieces of about InOrder::kPieceEntries entries, at most
// kMaxGroupedPieces and at least the cut's (and 16 where outer values are
// grouped): threads claim them from a counter, so a thread that joins late
// or runs slower than the other (the two cores of a shared machine do)
// leaves the other one small piece to wait for at the end, not an eighth
// of the sweep.  The cut's values are dealt finer only where the outer
// values are too few to group (each range of them costs a walk start under
// every outer value); groups add pieces at no extra walk start.
Deal deal(const Cut& cut, std::uint64_t size) noexcept {
  const std::uint64_t fine = std::min(size / InOrder::kPieceEntries, kMaxGroupedPieces);
  Deal d;
  d.values = std::min(cut.count, std::max(cut.pieces, (fine + cut.outer - 1) / cut.outer));
  const std::uint64_t piece = cut.stride * cut.count / d.values;  // under one outer value
  const std::uint64_t wanted = std::max<std::uint64_t>(fine, 16);
  d.groups = std::max<std::uint64_t>(
      1, std::min({cut.outer, (wanted + d.values - 1) / d.values, kMaxGroupedPieces / d.values,
                   cut.outer * piece / InOrder::kPieceEntries}));
  return d;
}

template <class Body>
void run_parts(std::uint64_t parts, std::uint64_t threads, Body& body) {
  auto task = [&body](std::size_t j) noexcept { body(j); };
  platform::WorkerPool::shared().run(parts, std::min(threads, parts), task);
}

// Sets the folds with more than one entry to the identity of the fold, in
// parts of at least this many entries taken by the threads: munin1's
// 78.4 M-entry distribute folds onto 12.4 M separator entries, which one
// thread took 8 to 15 ms to clear while the other waited.
constexpr std::uint64_t kClearedPart = std::uint64_t{1} << 17;

void clear_shared(std::span<const SweepFold> folds, Reduce how, std::uint64_t threads) {
  std::uint64_t total = 0;
  for (const SweepFold& f : folds)
    if (f.plan->small_size() > 1) total += f.plan->small_size();
  const std::uint64_t parts = std::min<std::uint64_t>(total / kClearedPart, 64);
  if (parts < 2) {
    clear_folds(folds, how);
    return;
  }
  const double identity = how == Reduce::sum ? SumFold::identity() : MaxFold::identity();
  // Part j clears entries [lo, hi) of the folds' entries laid end to end.
  auto part = [&](std::uint64_t j) {
    const std::uint64_t lo = part_start(total, parts, j), hi = part_start(total, parts, j + 1);
    std::uint64_t at = 0;
    for (const SweepFold& f : folds) {
      const std::uint64_t n = f.plan->small_size();
      if (n <= 1) continue;
      const std::uint64_t from = std::max(lo, at), to = std::min(hi, at + n);
      if (from < to) std::fill(f.data + (from - at), f.data + (to - at), identity);
      at += n;
    }
  };
  run_parts(parts, threads, part);
}

}  // namespace

void set_piece_buffers(unsigned count) noexcept {
  piece_buffers.store(count, std::memory_order_relaxed);
}

bool split_sweep(double* large, std::uint64_t size, bool rebuild,
                 std::span<const SweepFactor> factors, std::span<SweepFold> folds, Reduce how,
                 const Parallelism& parallelism, bool discard) {
  const Cut cut = choose_cut(size, folds, factors.size(), parallelism.threads);
  // Folds the cut covers first, then the other folds with more than one
  // entry, then the totals.
  SweepFold* const first = folds.data();
  SweepFold* const end = first + folds.size();
  SweepFold* const rest = std::partition(first, end, [&](const SweepFold& f) {
    return f.plan->small_size() > 1 && covers(*f.plan, cut.stride, cut.stride * cut.count);
  });
  SweepFold* const totals =
      std::partition(rest, end, [](const SweepFold& f) { return f.plan->small_size() > 1; });
  const std::span<const SweepFold> covered(first, rest);
  const std::span<const SweepFold> others(rest, totals);
  clear_shared(std::span<const SweepFold>(first, totals), how, parallelism.threads);
  // A rebuild whose folds alone are wanted does not write the table for
  // the folds the cut misses either.  Where the pieces follow one another
  // in index order (in_order below), a piece swept off its turn is made in
  // a buffer that its missed folds then read (PieceBuffers).  Otherwise the
  // missed folds get a split sweep of their own, which makes the product
  // again under its own cut.  Link's 16.8 M-entry distribute took 11.3 ms
  // with the table written, 7.1 made twice and 5.3 in buffers.  Where the
  // cut covers no fold, the table is written as for any other sweep.
  const bool unwritten = discard && !others.empty() && first != rest;
  discard = discard && (rest == end || unwritten);

  const std::uint64_t span = cut.stride * cut.count;
  const bool in_order =
      !others.empty() && cut.stride % folded_run(others) == 0 &&
      (cut.outer == 1 || (cut.outer <= kMostOuterTurns && span >= 2 * InOrder::kPieceEntries));
  const bool buffered = unwritten && in_order;
  const bool again = unwritten && !in_order;
  if (!again && !in_order && !others.empty() &&
      20 * cut.cost * cut.pieces >= 19 * parallelism.threads * size) {
    // The missed folds' passes over the finished table would take the
    // slower thread about as long as one thread's sweep: one thread sweeps
    // (barley's 1.06 M distribute took 1.9 to 2.1 ms shared, 1.8 alone).
    sweep_range(large, rebuild, factors, std::span<const SweepFold>(first, totals), 0, size, how);
  } else if (in_order) {
    // The missed folds follow contiguous pieces in index order (InOrder),
    // one outer value after the other: a covered fold's entry then gets
    // the values under one outer value before those under the next.
    const std::span<const SweepFold> all(first, totals);
    for (std::uint64_t base = 0; base < size; base += span) {
      InOrder in_order(cut, buffered);
      PieceBuffers buffers(large, buffered ? in_order.largest() : 0);
      std::array<int, InOrder::kMaxBufferedPieces> held;
      auto part = [&](std::uint64_t j) {
        auto swept = [&](std::uint64_t k, std::uint64_t lo, std::uint64_t hi, bool every) {
          if (!buffered) {
            sweep_range(large, rebuild, factors, every ? all : covered, base + lo, base + hi, how);
            return;
          }
          held[k] = every ? -1 : buffers.take();
          if (held[k] < 0) {
            sweep_range(large, rebuild, factors, every ? all : covered, base + lo, base + hi, how,
                        true);
          } else {
            sweep_range(buffers.place(held[k], base + lo), rebuild, factors, covered, base + lo,
                        base + hi, how);
          }
        };
        auto fold = [&](std::uint64_t k, std::uint64_t lo, std::uint64_t hi) {
          if (!buffered) {
            sweep_range(large, false, {}, others, base + lo, base + hi, how);
          } else if (held[k] < 0) {
            sweep_range(large, rebuild, factors, others, base + lo, base + hi, how, true);
          } else {
            sweep_range(buffers.place(held[k], base + lo), false, {}, others, base + lo, base + hi,
                        how);
            buffers.give(held[k]);
          }
        };
        in_order.sweep(j, swept, fold);
      };
      run_parts(in_order.pieces(), parallelism.threads, part);
    }
  } else {
    // A piece is a range of the cut's values under a group of consecutive
    // outer values, swept in index order: the ranges start and end on
    // whole inner runs of the covered folds, and pieces of different
    // ranges touch different small entries.  Groups make the pieces finer
    // where the cut has few values (barley's largest clique has six), so
    // that a thread that joins late leaves less to the other, at no extra
    // walk start.  A covered fold without every outer axis gets a range's
    // values under one group before those under the next: a piece starts
    // once the piece of its range in the group before is finished (claimed
    // earlier, so the wait is short and rare).
    const Deal d = deal(cut, size);
    const std::uint64_t groups = d.groups, values = d.values;
    const bool in_turn = groups > 1 && std::any_of(first, rest, [&](const SweepFold& f) {
                           return !covers(*f.plan, span, size);
                         });
    std::array<std::atomic<bool>, kMaxGroupedPieces> done{};
    auto sweep_part = [&](std::uint64_t k) {
      const std::uint64_t g = k / values, j = k % values;
      const std::uint64_t lo = part_start(cut.count, values, j) * cut.stride;
      const std::uint64_t hi = part_start(cut.count, values, j + 1) * cut.stride;
      if (in_turn && g > 0)
        while (!done[k - values].load(std::memory_order_acquire)) platform::relax();
      const std::uint64_t stop = part_start(cut.outer, groups, g + 1) * span;
      for (std::uint64_t base = part_start(cut.outer, groups, g) * span; base < stop; base += span)
        sweep_range(large, rebuild, factors, covered, base + lo, base + hi, how, discard);
      if (in_turn) done[k].store(true, std::memory_order_release);
    };
    run_parts(groups * values, parallelism.threads, sweep_part);
    if (again)
      return split_sweep(large, size, rebuild, factors, std::span<SweepFold>(rest, totals), how,
                         parallelism, true);
    // The other folds, each whole on one thread over the finished table
    // (several in one pass); a single one is split along its own axes.
    if (others.size() == 1) {
      marginalize(*others[0].plan, large, others[0].data, how, parallelism);
    } else if (others.size() > 1) {
      const std::uint64_t parts = std::min<std::uint64_t>(parallelism.threads, others.size());
      auto fold_part = [&](std::uint64_t j) {
        const std::uint64_t from = part_start(others.size(), parts, j);
        const std::uint64_t to = part_start(others.size(), parts, j + 1);
        sweep_range(large, false, {}, others.subspan(from, to - from), 0, size, how);
      };
      run_parts(parts, parallelism.threads, fold_part);
    }
  }
  for (const SweepFold* f = totals; f != end; ++f)
    marginalize(*f->plan, large, f->data, how, parallelism);
  return discard;
}

}  // namespace kelva
