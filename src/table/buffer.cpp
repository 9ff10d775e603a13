#include "table/buffer.h"

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

}  // namespace

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

DoubleBuffer::~DoubleBuffer() {
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
