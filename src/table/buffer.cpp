#include "table/buffer.h"

#include <atomic>
#include <cstring>
#include <new>

#include "network/error.h"
#include "platform/memory.h"
#include "table/size.h"

namespace kelva {

namespace {

// Buffers of at least half a huge page come straight from the system on
// 2 MiB pages, already zero: a propagation walks every entry of its
// tables, and on 4 KiB pages a virtual machine's host made some runs
// several times slower than others (munin1 on one thread: 0.28 to 2.4 s,
// against 0.27 to 0.44 s on 2 MiB pages), and the sweeps of tables of 1 to
// 2 MiB walked a page table entry every 4 KiB (munin2 and munin3 took 3 to
// 5% longer).  A buffer under 2 MiB leaves the rest of its page unused.
bool on_huge_pages(std::uint64_t bytes) noexcept { return bytes >= DoubleBuffer::kMappedBytes; }

// The bytes mapped for a buffer of `bytes` on huge pages.
std::size_t mapped_bytes(std::uint64_t bytes) noexcept {
  return platform::whole_huge_pages(static_cast<std::size_t>(bytes));
}

// Arrays made together start on cache lines, a line apart, so that one
// running past its end meets the line the address sanitizer guards.
constexpr std::size_t kSharedAlign = 64;

std::size_t shared_room(std::uint64_t bytes) noexcept {
  return (static_cast<std::size_t>(bytes) + 2 * kSharedAlign - 1) & ~(kSharedAlign - 1);
}

bool shared_size(std::uint64_t bytes) noexcept {
  return bytes >= DoubleBuffer::kSharedLeast && bytes < DoubleBuffer::kMappedBytes;
}

}  // namespace

// One mapping cut into arrays, given back when the last of them goes.
struct DoubleBuffer::Shared {
  std::atomic<std::size_t> live;
  void* base;
  std::size_t mapped;
};

DoubleBuffer DoubleBuffer::zeros(std::uint64_t count) {
  DoubleBuffer b;
  if (count == 0) return b;
  const std::uint64_t bytes = sat_mul(count, sizeof(double));
  if (!platform::allocation_possible(bytes)) throw Error(K_ERROR_NO_MEMORY);
  if (on_huge_pages(bytes)) {
    const std::size_t mapped = mapped_bytes(bytes);
    b.data_ = static_cast<double*>(platform::allocate_huge_pages(mapped));
    // The rest of the last page is outside the array: an access there is
    // reported under the address sanitizer, as past a heap block.
    if (b.data_ != nullptr) platform::forbid_access(b.data_ + count, mapped - bytes);
  } else {
    b.data_ = new (std::nothrow) double[static_cast<std::size_t>(count)]();
  }
  if (b.data_ == nullptr) throw Error(K_ERROR_NO_MEMORY);
  b.size_ = count;
  return b;
}

std::vector<DoubleBuffer> DoubleBuffer::zeros_together(std::span<const std::uint64_t> counts) {
  std::vector<DoubleBuffer> made(counts.size());
  std::size_t room = 0;
  for (const std::uint64_t count : counts) {
    const std::uint64_t bytes = sat_mul(count, sizeof(double));
    if (shared_size(bytes)) room += shared_room(bytes);
  }
  // Too few to fill the pages: each on its own, as zeros() makes it.
  Shared* shared = nullptr;
  if (room >= kMappedBytes) {
    const std::size_t mapped = mapped_bytes(room);
    if (!platform::allocation_possible(mapped)) throw Error(K_ERROR_NO_MEMORY);
    void* base = platform::allocate_huge_pages(mapped);
    if (base == nullptr) throw Error(K_ERROR_NO_MEMORY);
    shared = new (std::nothrow) Shared{{0}, base, mapped};
    if (shared == nullptr) {
      platform::free_huge_pages(base, mapped);
      throw Error(K_ERROR_NO_MEMORY);
    }
    // Only the arrays are open to the address sanitizer.
    platform::forbid_access(base, mapped);
  }
  // The shared arrays first, which cannot fail; should a later one fail,
  // `made` gives back what was made, the mapping with the last shared one.
  auto* next = shared != nullptr ? static_cast<char*>(shared->base) : nullptr;
  for (std::size_t i = 0; i < counts.size() && shared != nullptr; ++i) {
    const std::uint64_t bytes = counts[i] * sizeof(double);
    if (!shared_size(bytes)) continue;
    made[i].data_ = reinterpret_cast<double*>(next);
    made[i].size_ = counts[i];
    made[i].shared_ = shared;
    shared->live.fetch_add(1, std::memory_order_relaxed);
    platform::allow_access(next, static_cast<std::size_t>(bytes));
    next += shared_room(bytes);
  }
  for (std::size_t i = 0; i < counts.size(); ++i)
    if (made[i].empty()) made[i] = zeros(counts[i]);
  return made;
}

DoubleBuffer::~DoubleBuffer() {
  if (shared_ != nullptr) {
    platform::forbid_access(data_, size_ * sizeof(double));
    if (shared_->live.fetch_sub(1, std::memory_order_acq_rel) == 1) {
      platform::allow_access(shared_->base, shared_->mapped);
      platform::free_huge_pages(shared_->base, shared_->mapped);
      delete shared_;
    }
    return;
  }
  const std::uint64_t bytes = size_ * sizeof(double);
  if (on_huge_pages(bytes)) {
    const std::size_t mapped = mapped_bytes(bytes);
    platform::allow_access(data_ + size_, mapped - bytes);
    platform::free_huge_pages(data_, mapped);
  } else {
    delete[] data_;
  }
}

DoubleBuffer DoubleBuffer::copy() const {
  DoubleBuffer b = zeros(size_);
  if (size_ != 0) std::memcpy(b.data_, data_, static_cast<std::size_t>(size_) * sizeof(double));
  return b;
}

}  // namespace kelva
