#include "fail_new.h"

#include <cstdlib>
#include <new>

namespace {

// Allocations left before the failing one; negative when disarmed.
thread_local long g_allocations_left = -1;

}  // namespace

namespace kelva::test {

void fail_allocation_after(long count) noexcept { g_allocations_left = count; }

long allocations_left() noexcept { return g_allocations_left; }

}  // namespace kelva::test

void* operator new(std::size_t size) {
  if (g_allocations_left == 0) {
    g_allocations_left = -1;
    throw std::bad_alloc();
  }
  if (g_allocations_left > 0) --g_allocations_left;
  if (void* p = std::malloc(size == 0 ? 1 : size)) return p;
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
