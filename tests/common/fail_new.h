#pragma once

namespace kelva::test {

/// Makes the calling thread's allocation after `count` more fail with
/// std::bad_alloc (0: the next one); a negative count disarms.  The hook
/// replaces the global operator new of every engine test program.
void fail_allocation_after(long count) noexcept;

/// Allocations left before the armed failure; -1 when disarmed (also right
/// after the failure happened).
long allocations_left() noexcept;

}  // namespace kelva::test
