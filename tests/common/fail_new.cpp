#include "fail_new.h"

#include <cstdlib>
#include <new>

namespace {

// Allocations left before the failing one; negative when disarmed.
thread_local long g_allocations_left = -1;

// An allocation that may be made to fail: null when it fails.
void* allocate(std::size_t size) noexcept {
  if (g_allocations_left == 0) {
    g_allocations_left = -1;
    return nullptr;
  }
  if (g_allocations_left > 0) --g_allocations_left;
  return std::malloc(size == 0 ? 1 : size);
}

}  // namespace

namespace kelva::test {

void fail_allocation_after(long count) noexcept { g_allocations_left = count; }

long allocations_left() noexcept { return g_allocations_left; }

}  // namespace kelva::test

void* operator new(std::size_t size) {
  if (void* p = allocate(size)) return p;
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
// The other forms route to the two above, so every allocation is counted and
// every pair of allocation and release agrees (sanitizers check the pairs).
void* operator new[](std::size_t size) { return ::operator new(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { std::free(p); }
