// The allocation hook every test program shares: its forms must pair up, or
// the sanitizer build reports mismatches in standard algorithms that take
// temporary buffers with the nothrow form.
#include "common/fail_new.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <new>
#include <vector>

TEST(FailNew, EveryFormPairsAndCountsAllocations) {
  std::vector<int> v(1000);
  for (int i = 0; i < 1000; ++i) v[i] = (i * 7919) % 1000;
  std::stable_sort(v.begin(), v.end());
  EXPECT_TRUE(std::is_sorted(v.begin(), v.end()));

  kelva::test::fail_allocation_after(0);
  EXPECT_EQ(::operator new(16, std::nothrow), nullptr);
  kelva::test::fail_allocation_after(0);
  EXPECT_THROW(
      {
        int* volatile p = new int[4];  // volatile: the pair may not be elided
        delete[] p;
      },
      std::bad_alloc);
  EXPECT_EQ(kelva::test::allocations_left(), -1);
}
