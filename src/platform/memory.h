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

/// Under AddressSanitizer, makes any access to the `bytes` bytes at `p` an
/// error that it reports (the unused end of a mapping, which the heap's
/// guard zones do not cover), or, with allow_access, usable again (before
/// the memory is given back); nothing in other builds.
void forbid_access(const void* p, std::size_t bytes) noexcept;
void allow_access(const void* p, std::size_t bytes) noexcept;
/// Whether AddressSanitizer reports an access to the byte at `p` (false in
/// other builds).
bool access_forbidden(const void* p) noexcept;
/// Whether this build runs under AddressSanitizer.
bool access_checked() noexcept;

/// Starts fetching the cache lines of the `bytes` bytes at `p` into the
/// caches, to be written when `Write` (a hint: it reads and faults nothing).
template <bool Write = false>
inline void prefetch_bytes(const void* p, std::size_t bytes) noexcept {
  const char* const start = static_cast<const char*>(p);
  for (std::size_t b = 0; b < bytes; b += 64) __builtin_prefetch(start + b, Write ? 1 : 0);
}

}  // namespace kelva::platform
