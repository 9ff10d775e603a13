#pragma once

namespace kelva::test {

/// Makes the calling thread's allocation after `count` more fail with
/// std::bad_alloc (0: the next one); a negative count disarms.  The hook
/// replaces the global operator new of the text test program.
void fail_allocation_after(long count) noexcept;

}  // namespace kelva::test
