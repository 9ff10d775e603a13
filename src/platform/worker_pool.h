#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

namespace kelva::platform {

/// A pause for a thread that spins on a value another thread will change.
void relax() noexcept;

/// A small pool of worker threads for large table operations.  A caller
/// hands over a batch of numbered pieces and works on it too; idle workers
/// join in.  Several callers (domains used by different threads) may run
/// batches at once.  Running a batch allocates nothing; threads are started
/// on demand and kept until the pool is destroyed.  A worker that finds no
/// work, and a caller whose pieces are still running elsewhere, spin for a
/// few tens of microseconds before they sleep: a propagation hands over a
/// batch per large clique, and waking a sleeping thread costs more than a
/// clique of ten thousand entries.
class WorkerPool {
 public:
  /// Most worker threads a pool starts.
  static constexpr std::size_t kMaxWorkers = 63;

  /// A pool without threads yet.
  WorkerPool() = default;
  /// Stops and joins the workers (no batch may be running).
  ~WorkerPool();
  WorkerPool(const WorkerPool&) = delete;
  WorkerPool& operator=(const WorkerPool&) = delete;

  /// The process-wide pool.
  static WorkerPool& shared();

  /// Calls task(i) once for each i in [0, pieces), on the calling thread and
  /// on up to threads - 1 workers, and returns when every call has returned.
  /// `task` must not throw.  When no worker can be started, the calling
  /// thread does all the pieces.
  template <class Task>
  void run(std::size_t pieces, std::size_t threads, Task& task) noexcept {
    Batch batch;
    batch.call = [](void* context, std::size_t piece) { (*static_cast<Task*>(context))(piece); };
    batch.context = &task;
    batch.pieces = pieces;
    run_batch(batch, threads);
  }

  /// Joins a batch that another thread has queued and that still has
  /// pieces to claim, and works on it until none is left; false when there
  /// is none.  `seen` holds the count of batches posted when this thread
  /// last found none (start it at 0): until another is posted, the call
  /// returns at once without taking the lock.  Lets a thread that waits
  /// for other work take part in a batch of a thread that does not.
  bool help(std::uint64_t& seen) noexcept;

  /// Number of worker threads started so far.
  std::size_t worker_count() const;

 private:
  // A caller's batch; lives on the caller's stack until every worker that
  // joined it has left.
  struct Batch {
    void (*call)(void*, std::size_t) = nullptr;
    void* context = nullptr;
    std::size_t pieces = 0;
    std::atomic<std::size_t> next{0};
    std::size_t helpers_wanted = 0;      // guarded by mutex_
    std::size_t helpers = 0;             // workers that joined; guarded by mutex_
    std::atomic<std::size_t> active{0};  // workers still inside; changed under mutex_
    Batch* next_batch = nullptr;         // queue link; guarded by mutex_
  };

  void run_batch(Batch& batch, std::size_t threads) noexcept;
  // Claims and runs pieces until none is left.
  static void drain(Batch& batch) noexcept;
  // A queued batch a worker may join, or null; mutex_ held.
  Batch* joinable() const noexcept;
  // Joins `batch` (found by joinable() under `lock`), runs its pieces
  // outside the lock and leaves it; returns with `lock` held.
  void join(Batch& batch, std::unique_lock<std::mutex>& lock) noexcept;
  // Starts workers until there are `count` (or as many as can be started).
  void ensure_workers(std::size_t count) noexcept;
  void work() noexcept;

  // Batches queued so far: a spinning worker watches it for new work.
  std::atomic<std::uint64_t> posted_{0};
  mutable std::mutex mutex_;
  std::condition_variable work_ready_;
  std::condition_variable batch_left_;
  Batch* queue_ = nullptr;
  bool stopping_ = false;
  // Last member: the threads are joined before the rest is destroyed.
  std::vector<std::jthread> workers_;
};

}  // namespace kelva::platform
