#include "platform/worker_pool.h"

#include <algorithm>
#include <chrono>

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#endif

namespace kelva::platform {

void relax() noexcept {
#if defined(__x86_64__) || defined(__i386__)
  _mm_pause();
#endif
}

namespace {

// How long a thread spins for work or for a batch's last pieces before it
// sleeps: longer than the gap between two large cliques of a propagation,
// short enough that an idle pool costs nothing noticeable.
constexpr std::chrono::microseconds kSpin{50};

// Spins until done() or until kSpin has passed; true when done().
template <class Done>
bool spin_until(Done done) noexcept {
  const auto until = std::chrono::steady_clock::now() + kSpin;
  for (;;) {
    for (int i = 0; i < 64; ++i) {
      if (done()) return true;
      relax();
    }
    if (std::chrono::steady_clock::now() >= until) return done();
  }
}

// The batches this thread is working on, innermost first: a thread that
// helps while inside a batch must not join that batch again.
struct Inside {
  const void* batch;
  const Inside* outer;
};
thread_local const Inside* inside = nullptr;

}  // namespace

WorkerPool::~WorkerPool() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  work_ready_.notify_all();
  workers_.clear();  // joins
}

WorkerPool& WorkerPool::shared() {
  static WorkerPool pool;
  return pool;
}

std::size_t WorkerPool::worker_count() const {
  std::lock_guard lock(mutex_);
  return workers_.size();
}

void WorkerPool::ensure_workers(std::size_t count) noexcept {
  count = std::min(count, kMaxWorkers);
  try {
    workers_.reserve(count);
    while (workers_.size() < count) workers_.emplace_back([this] { work(); });
  } catch (...) {
    // Out of threads or memory: the workers already running will do.
  }
}

void WorkerPool::drain(Batch& batch) noexcept {
  const Inside here{&batch, inside};
  inside = &here;
  for (;;) {
    const std::size_t piece = batch.next.fetch_add(1, std::memory_order_relaxed);
    if (piece >= batch.pieces) break;
    batch.call(batch.context, piece);
  }
  inside = here.outer;
}

WorkerPool::Batch* WorkerPool::joinable() const noexcept {
  for (Batch* b = queue_; b != nullptr; b = b->next_batch) {
    if (b->helpers >= b->helpers_wanted || b->next.load(std::memory_order_relaxed) >= b->pieces)
      continue;
    const Inside* in = inside;
    while (in != nullptr && in->batch != b) in = in->outer;
    if (in == nullptr) return b;
  }
  return nullptr;
}

void WorkerPool::run_batch(Batch& batch, std::size_t threads) noexcept {
  if (batch.pieces <= 1 || threads <= 1) {
    drain(batch);
    return;
  }
  {
    std::lock_guard lock(mutex_);
    ensure_workers(threads - 1);
    batch.helpers_wanted = std::min(threads - 1, batch.pieces - 1);
    batch.next_batch = queue_;
    queue_ = &batch;
    posted_.fetch_add(1, std::memory_order_release);
  }
  work_ready_.notify_all();
  drain(batch);
  // Every piece has been claimed; wait for the workers still running some.
  spin_until([&] { return batch.active.load(std::memory_order_acquire) == 0; });
  std::unique_lock lock(mutex_);
  for (Batch** link = &queue_; *link != nullptr; link = &(*link)->next_batch) {
    if (*link == &batch) {
      *link = batch.next_batch;
      break;
    }
  }
  batch_left_.wait(lock, [&] { return batch.active.load(std::memory_order_relaxed) == 0; });
}

bool WorkerPool::help(std::uint64_t& seen) noexcept {
  const std::uint64_t posted = posted_.load(std::memory_order_acquire);
  if (posted == seen) return false;
  std::unique_lock lock(mutex_);
  Batch* batch = joinable();
  if (batch == nullptr) {
    // Batches posted after the load change the count again.
    seen = posted;
    return false;
  }
  join(*batch, lock);
  return true;
}

void WorkerPool::join(Batch& batch, std::unique_lock<std::mutex>& lock) noexcept {
  ++batch.helpers;
  ++batch.active;
  lock.unlock();
  drain(batch);
  lock.lock();
  if (--batch.active == 0) batch_left_.notify_all();
}

void WorkerPool::work() noexcept {
  std::unique_lock lock(mutex_);
  for (;;) {
    // Keep the batch the wait found: its pieces are claimed outside the
    // lock, so asking again could find none left.
    Batch* batch = joinable();
    if (batch == nullptr && !stopping_) {
      // Spin a little before sleeping: the next batch usually comes soon.
      const std::uint64_t seen = posted_.load(std::memory_order_acquire);
      lock.unlock();
      spin_until([&] { return posted_.load(std::memory_order_acquire) != seen; });
      lock.lock();
      work_ready_.wait(lock, [&] { return stopping_ || (batch = joinable()) != nullptr; });
    }
    if (stopping_) return;
    join(*batch, lock);
  }
}

}  // namespace kelva::platform
