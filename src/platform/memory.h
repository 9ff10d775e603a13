#pragma once

#include <cstddef>
#include <cstdint>

namespace kelva::platform {

/// Whether an allocation of `bytes` can be attempted: false for byte counts
/// beyond the machine's physical memory (and for the saturated all-ones
/// count), which could never be used and which some allocators treat as fatal.
bool allocation_possible(std::uint64_t bytes) noexcept;

/// The size of a huge page: 2 MiB.
inline constexpr std::size_t kHugePageBytes = std::size_t{1} << 21;

/// `bytes` rounded up to a whole number of huge pages.
inline constexpr std::size_t whole_huge_pages(std::size_t bytes) noexcept {
  return (bytes + kHugePageBytes - 1) & ~(kHugePageBytes - 1);
}

/// `bytes` (a multiple of kHugePageBytes) of zeroed memory straight from the system,
/// aligned to 2 MiB and with transparent huge pages asked for, so that
/// writing it takes a page fault per 2 MiB rather than per 4 KiB.  Null
/// when the system gives none.  Freed with free_huge_pages.
void* allocate_huge_pages(std::size_t bytes) noexcept;
void free_huge_pages(void* memory, std::size_t bytes) noexcept;

}  // namespace kelva::platform
