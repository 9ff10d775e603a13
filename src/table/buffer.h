#pragma once

#include <cstdint>
#include <utility>

namespace kelva {

/// An owned array of doubles, zero-filled when made.  Empty when it holds
/// nothing.  Arrays of kMappedBytes or more are mapped on whole huge pages
/// (platform::allocate_huge_pages), smaller ones come from the heap.
class DoubleBuffer {
 public:
  /// Arrays of at least this many bytes (1 MiB) are mapped: at most half
  /// of the huge pages an array is given goes unused.
  static constexpr std::uint64_t kMappedBytes = std::uint64_t{1} << 20;

  DoubleBuffer() noexcept = default;
  /// `count` zeros (empty for 0); throws Error(no_memory) when the byte
  /// count saturates, exceeds physical memory (refused without asking the
  /// allocator, which may overcommit or, under sanitizers, abort) or the
  /// allocation fails.
  static DoubleBuffer zeros(std::uint64_t count);
  DoubleBuffer(DoubleBuffer&& other) noexcept { swap(other); }
  DoubleBuffer& operator=(DoubleBuffer&& other) noexcept {
    DoubleBuffer(std::move(other)).swap(*this);
    return *this;
  }
  ~DoubleBuffer();

  /// An independent copy; Error(no_memory) as for zeros().
  DoubleBuffer copy() const;

  /// True when nothing is allocated.
  bool empty() const noexcept { return size_ == 0; }
  /// Number of entries.
  std::uint64_t size() const noexcept { return size_; }
  /// The entries (null when empty).
  double* data() noexcept { return data_; }
  const double* data() const noexcept { return data_; }
  double& operator[](std::uint64_t i) noexcept { return data_[i]; }
  double operator[](std::uint64_t i) const noexcept { return data_[i]; }

  /// Exchanges the arrays of two buffers.
  void swap(DoubleBuffer& other) noexcept {
    std::swap(data_, other.data_);
    std::swap(size_, other.size_);
  }

 private:
  double* data_ = nullptr;
  std::uint64_t size_ = 0;
};

}  // namespace kelva
