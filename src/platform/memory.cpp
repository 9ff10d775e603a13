#include "platform/memory.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KELVA_ADDRESS_SANITIZER 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define KELVA_ADDRESS_SANITIZER 1
#endif
#if KELVA_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#endif

namespace kelva::platform {

namespace {

std::uint64_t physical_memory() noexcept {
  static const std::uint64_t bytes = [] {
    const long pages = sysconf(_SC_PHYS_PAGES);
    const long page_size = sysconf(_SC_PAGESIZE);
    if (pages <= 0 || page_size <= 0) return ~std::uint64_t{0};
    return static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(page_size);
  }();
  return bytes;
}

}  // namespace

bool allocation_possible(std::uint64_t bytes) noexcept {
  return bytes != ~std::uint64_t{0} && bytes <= physical_memory();
}

void* allocate_huge_pages(std::size_t bytes) noexcept {
  // Map 2 MiB more and cut the ends so that the rest starts on 2 MiB.
  void* mapped = mmap(nullptr, bytes + kHugePageBytes, PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapped == MAP_FAILED) return nullptr;
  const auto start = reinterpret_cast<std::uintptr_t>(mapped);
  const std::uintptr_t aligned = whole_huge_pages(start);
  if (aligned > start) munmap(mapped, aligned - start);
  if (aligned - start < kHugePageBytes)
    munmap(reinterpret_cast<void*>(aligned + bytes), kHugePageBytes - (aligned - start));
  // Only advice: without huge pages the memory works as well, only slower.
  madvise(reinterpret_cast<void*>(aligned), bytes, MADV_HUGEPAGE);
  return reinterpret_cast<void*>(aligned);
}

void free_huge_pages(void* memory, std::size_t bytes) noexcept { munmap(memory, bytes); }

#if KELVA_ADDRESS_SANITIZER
void forbid_access(const void* p, std::size_t bytes) noexcept {
  __asan_poison_memory_region(p, bytes);
}
void allow_access(const void* p, std::size_t bytes) noexcept {
  __asan_unpoison_memory_region(p, bytes);
}
bool access_forbidden(const void* p) noexcept { return __asan_address_is_poisoned(p) != 0; }
bool access_checked() noexcept { return true; }
#else
void forbid_access(const void*, std::size_t) noexcept {}
void allow_access(const void*, std::size_t) noexcept {}
bool access_forbidden(const void*) noexcept { return false; }
bool access_checked() noexcept { return false; }
#endif

}  // namespace kelva::platform
