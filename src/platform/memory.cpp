#include "platform/memory.h"

#include <unistd.h>

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

}  // namespace kelva::platform
