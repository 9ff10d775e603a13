#pragma once

#include <cstdint>
#include <span>
#include <utility>
#include <vector>

namespace kelva {

/// An owned array of doubles, zero-filled when made.  Empty when it holds
/// nothing.  Arrays of kMappedBytes or more are mapped on whole huge pages
/// (platform::allocate_huge_pages), smaller ones come from the heap or,
/// made by zeros_together, share one mapping with others.
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
  /// Arrays of at least this many bytes (64 KiB) and under kMappedBytes
  /// share huge pages when made together.
  static constexpr std::uint64_t kSharedLeast = std::uint64_t{1} << 16;
  /// `counts[i]` zeros each, as zeros() makes them, except that the arrays
  /// of kSharedLeast to kMappedBytes bytes lie side by side in one mapping
  /// on huge pages when they fill at least kMappedBytes together; the
  /// mapping is given back with the last of them.  Error(no_memory) as for
  /// zeros(), with nothing made.
  static std::vector<DoubleBuffer> zeros_together(std::span<const std::uint64_t> counts);
  DoubleBuffer(DoubleBuffer&& other) noexcept { swap(other); }
  DoubleBuffer(const DoubleBuffer&) = delete;
  DoubleBuffer& operator=(const DoubleBuffer&) = delete;
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
    std::swap(shared_, other.shared_);
  }

  /// Whether the array shares its mapping with others (zeros_together).
  bool shares_pages() const noexcept { return shared_ != nullptr; }

 private:
  struct Shared;
  double* data_ = nullptr;
  std::uint64_t size_ = 0;
  Shared* shared_ = nullptr;  // the mapping, when shared
};

}  // namespace kelva
