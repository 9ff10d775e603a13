// The Table class: shape changes with their data and CG part, copies, and
// failure without change when arrays are too large.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <vector>

#include "fixture.h"
#include "network/error.h"
#include "platform/memory.h"
#include "table/buffer.h"
#include "table/index_plan.h"
#include "table/size.h"
#include "table/sweep.h"

namespace kelva {
namespace {

using test::Net;
using test::node;
using test::values;

// The nodes of a table as handles.
std::vector<k_node_t> members(k_table_t t) {
  std::vector<k_node_t> r;
  for (k_node_t* p = k_table_get_nodes(t); *p != nullptr; ++p) r.push_back(*p);
  return r;
}

TEST(Table, ShapeChangesMoveEntriesWithTheirStates) {
  Net net;
  k_node_t a = net.discrete(2), b = net.discrete(3), c = net.discrete(2);
  k_table_t h = net.table({a, b}, {0, 1, 2, 3, 4, 5});
  Table& t = test::table(h);

  t.insert_discrete_front(node(c));  // repeated once per state of c
  EXPECT_EQ(members(h), (std::vector<k_node_t>{c, a, b}));
  EXPECT_EQ(values(h), (std::vector<double>{0, 1, 2, 3, 4, 5, 0, 1, 2, 3, 4, 5}));
  t.insert_discrete_front(node(a));  // already held
  EXPECT_EQ(t.size(), 12u);

  k_table_set_data(h, std::vector<double>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}.data(), 12, 0, 12);
  t.change_state_count(node(b), 3, 4);  // a kept state keeps its entries, a new one is 0
  EXPECT_EQ(values(h), (std::vector<double>{0, 1, 2, 0, 3, 4, 5, 0, 6, 7, 8, 0, 9, 10, 11, 0}));
  t.change_state_count(node(b), 4, 2);
  EXPECT_EQ(values(h), (std::vector<double>{0, 1, 3, 4, 6, 7, 9, 10}));
  EXPECT_EQ(t.state_counts(), (std::vector<std::size_t>{2, 2, 2}));

  t.permute_states(node(a), {1, 0});
  EXPECT_EQ(values(h), (std::vector<double>{3, 4, 0, 1, 9, 10, 6, 7}));
  t.remove_node(node(a));  // averaged over a's states
  EXPECT_EQ(values(h), (std::vector<double>{1.5, 2.5, 7.5, 8.5}));
  t.remove_node(node(c));
  EXPECT_EQ(values(h), (std::vector<double>{4.5, 5.5}));
  t.remove_node(node(c));  // not held: nothing
  EXPECT_EQ(members(h), (std::vector<k_node_t>{b}));

  // Shape changes of a table never touched keep it unallocated.
  Table fresh(net.domain(), {node(a), node(b)}, TableRole::free, nullptr);
  fresh.insert_discrete_front(node(c));
  fresh.remove_node(node(a));
  EXPECT_FALSE(fresh.has_data());
  EXPECT_EQ(fresh.size(), 6u);

  // Reordering transposes; clones and contents are independent copies.
  k_table_t ab = net.table({a, b}, {0, 1, 2, 3, 4, 5});
  test::table(ab).reorder({node(b), node(a)});
  EXPECT_EQ(values(ab), (std::vector<double>{0, 3, 1, 4, 2, 5}));
  std::unique_ptr<Table> copy = test::table(ab).clone();
  copy->data()[0] = 42;
  EXPECT_EQ(test::table(ab).data()[0], 0);
  test::table(ab).swap_contents(*copy);
  EXPECT_EQ(test::table(ab).data()[0], 42);
  EXPECT_EQ(copy->nodes()[0], node(b));
}

TEST(Table, ConditionalGaussianPartFollowsItsNodes) {
  Net net;
  k_node_t a = net.discrete(2), x = net.continuous(), y = net.continuous(), z = net.continuous();
  k_table_t h = net.table({a, x, y});
  Table& t = test::table(h);
  EXPECT_EQ(t.cg_dimension(), 2u);
  EXPECT_EQ(k_table_get_cg_size(h), 4u);
  EXPECT_EQ(t.mean(1, 0), 0.0);  // nothing written yet
  for (std::uint64_t c = 0; c < 2; ++c) {
    t.set_mean(c, 0, 10.0 + c);
    t.set_mean(c, 1, 20.0 + c);
    t.set_covariance(c, 0, 0, 1.0 + c);
    t.set_covariance(c, 0, 1, 0.5);
    t.set_covariance(c, 1, 1, 3.0 + c);
    t.set_coefficient(c, 1, 7.0);
  }
  EXPECT_EQ(k_table_get_mean(h, 1, y), 21.0);
  EXPECT_EQ(k_table_get_variance(h, 1, x), 2.0);
  EXPECT_EQ(k_table_get_covariance(h, 0, y, x), 0.5);
  for (k_node_t bad : {a, z, static_cast<k_node_t>(nullptr)}) {
    EXPECT_EQ(k_table_get_mean(h, 0, bad), -1.0);
    EXPECT_EQ(k_error_code(), K_ERROR_USAGE);
  }
  EXPECT_EQ(k_table_get_variance(h, 2, x), -1.0);  // configuration out of range
  EXPECT_EQ(k_error_code(), K_ERROR_USAGE);

  t.append_continuous(node(z));
  EXPECT_EQ(t.mean(1, 1), 21.0);
  EXPECT_EQ(t.covariance(1, 1, 0), 0.5);
  EXPECT_EQ(t.covariance(1, 2, 2), 0.0);
  t.reorder({node(a), node(y), node(z), node(x)});
  EXPECT_EQ(k_table_get_mean(h, 0, x), 10.0);
  EXPECT_EQ(t.mean(0, 0), 20.0);
  EXPECT_EQ(t.covariance(1, 0, 0), 4.0);
  EXPECT_EQ(t.covariance(1, 2, 0), 0.5);
  EXPECT_EQ(t.coefficient(0, 0), 7.0);
  t.remove_node(node(z));
  t.remove_node(node(a));  // parameters averaged over a's states
  EXPECT_EQ(t.cg_dimension(), 2u);
  EXPECT_EQ(k_table_get_mean(h, 0, x), 10.5);
  EXPECT_EQ(k_table_get_variance(h, 0, y), 3.5);
  EXPECT_EQ(k_table_get_covariance(h, 0, x, y), 0.5);
}

// Everything readable of a table: nodes, counts, size, data and CG part.
std::vector<double> snapshot(const Table& t) {
  std::vector<double> v;
  for (Node* n : t.nodes()) v.push_back(static_cast<double>(reinterpret_cast<std::uintptr_t>(n)));
  for (std::size_t c : t.state_counts()) v.push_back(static_cast<double>(c));
  v.push_back(static_cast<double>(t.size()));
  if (t.has_data())
    for (std::uint64_t i = 0; i < t.size(); ++i) v.push_back(t.data()[i]);
  for (std::uint64_t c = 0; c < t.size(); ++c)
    for (std::size_t i = 0; i < t.cg_dimension(); ++i) {
      v.push_back(t.mean(c, i));
      v.push_back(t.coefficient(c, i));
      for (std::size_t j = 0; j < t.cg_dimension(); ++j) v.push_back(t.covariance(c, i, j));
    }
  return v;
}

// The code of the Error thrown by `change`, or none.
template <class F>
k_error_t code_of(F change) {
  try {
    change();
  } catch (const Error& e) {
    return e.code();
  }
  return K_ERROR_NONE;
}

TEST(Table, ArraysTooLargeToAllocateFailWithoutChange) {
  Net net;
  k_node_t a = net.discrete(2), b = net.discrete(3), x = net.continuous();
  k_table_t h = net.table({a, b, x}, {1, 2, 3, 4, 5, 6});
  Table& t = test::table(h);
  t.set_mean(1, 0, 3.0);
  t.set_covariance(2, 0, 0, 9.0);
  const std::vector<double> before = snapshot(t);
  // Arrays over 1 TiB are never asked of the allocator.
  EXPECT_EQ(code_of([&] { t.change_state_count(test::node(b), 3, std::size_t{1} << 44); }),
            K_ERROR_NO_MEMORY);
  EXPECT_EQ(snapshot(t), before);
  // Nor when only the CG part is allocated.
  Table cg(net.domain(), {test::node(a), test::node(x)}, TableRole::free, nullptr);
  cg.set_mean(1, 0, 5.0);
  EXPECT_EQ(code_of([&] { cg.change_state_count(test::node(a), 2, std::size_t{1} << 45); }),
            K_ERROR_NO_MEMORY);
  EXPECT_EQ(cg.mean(1, 0), 5.0);
  EXPECT_FALSE(cg.has_data());

  // A table whose size does not fit in memory can be made and reshaped, but
  // its data cannot be allocated.
  k_node_t big[8];
  for (k_node_t& n : big) n = net.discrete(256);
  std::vector<Node*> seven;
  for (int i = 0; i < 7; ++i) seven.push_back(test::node(big[i]));
  Table huge(net.domain(), seven, TableRole::free, nullptr);
  EXPECT_EQ(huge.size(), std::uint64_t{1} << 56);
  EXPECT_EQ(code_of([&] { huge.data(); }), K_ERROR_NO_MEMORY);
  huge.insert_discrete_front(test::node(big[7]));
  EXPECT_EQ(huge.size(), kSizeTooLarge);
  const Table scalar(net.domain(), {}, TableRole::free, nullptr);
  EXPECT_EQ(code_of([&] { IndexPlan::between(huge, scalar); }), K_ERROR_NO_MEMORY);
}

// A deferred product is made on the first read, from copies of its
// factors taken when it was deferred; dropping it leaves the data as they
// were, and copies, shape changes and swaps take the product along.
TEST(Table, DeferredProductIsMadeWhenFirstRead) {
  Net net;
  k_node_t a = net.discrete(2), b = net.discrete(3), c = net.discrete(2);
  k_table_t h = net.table({a, b, c}, std::vector<double>(12, 7.0));
  Table& t = test::table(h);
  const std::vector<std::size_t> counts{2, 3, 2};
  const IndexPlan over_a(counts, std::vector<std::size_t>{0});
  const IndexPlan over_cb(counts, std::vector<std::size_t>{2, 1});  // entry c * 3 + b
  std::vector<double> fa{0.5, 3.0}, fcb{1, 2, 3, 4, 5, 6};
  const SweepFactor factors[2] = {{&over_a, fa.data()}, {&over_cb, fcb.data()}};
  std::vector<double> product;
  for (std::size_t ia = 0; ia < 2; ++ia)
    for (std::size_t ib = 0; ib < 3; ++ib)
      for (std::size_t ic = 0; ic < 2; ++ic) product.push_back(fa[ia] * fcb[ic * 3 + ib]);

  t.defer_product(factors, 2);
  fa[0] = 99.0;  // the factors were copied
  fcb[5] = 99.0;
  EXPECT_TRUE(t.deferred());
  EXPECT_EQ(values(h), product);
  EXPECT_FALSE(t.deferred());

  t.defer_product(factors, 2);  // now with the changed factors
  t.drop_deferred();
  EXPECT_EQ(values(h), product);

  t.defer_product(factors, 2);
  const std::unique_ptr<Table> copy = t.clone();
  std::vector<double> changed;
  for (std::size_t ia = 0; ia < 2; ++ia)
    for (std::size_t ib = 0; ib < 3; ++ib)
      for (std::size_t ic = 0; ic < 2; ++ic) changed.push_back(fa[ia] * fcb[ic * 3 + ib]);
  EXPECT_EQ(std::vector<double>(copy->data(), copy->data() + 12), changed);
  EXPECT_FALSE(t.deferred());

  // A reorder reorders the product; a swap takes it to the other table.
  fa[0] = 0.5;
  fcb[5] = 6.0;
  t.defer_product(factors, 2);
  t.reorder({test::node(c), test::node(a), test::node(b)});
  const std::vector<double> reordered = values(h);
  for (std::size_t ic = 0; ic < 2; ++ic)
    for (std::size_t ia = 0; ia < 2; ++ia)
      for (std::size_t ib = 0; ib < 3; ++ib)
        EXPECT_EQ(reordered[ic * 6 + ia * 3 + ib], product[ia * 6 + ib * 2 + ic]);
  t.reorder({test::node(a), test::node(b), test::node(c)});
  Table other(net.domain(), {test::node(a), test::node(b), test::node(c)}, TableRole::free,
              nullptr);
  t.defer_product(factors, 2);
  fa[1] = 0.0;
  t.swap_contents(other);
  EXPECT_FALSE(t.deferred());
  EXPECT_TRUE(other.deferred());
  EXPECT_EQ(std::vector<double>(other.data(), other.data() + 12), product);

  // A last factor handed over is taken, not copied: its buffer gets
  // another array of its size, and the next deferral hands that back.
  fa[1] = 3.0;
  DoubleBuffer last = DoubleBuffer::zeros(6);
  std::iota(last.data(), last.data() + 6, 1.0);
  const double* given = last.data();
  const SweepFactor handed[2] = {{&over_a, fa.data()}, {&over_cb, last.data()}};
  EXPECT_THROW(t.defer_product(factors, 2, &last), Error);  // not last's array
  EXPECT_FALSE(t.deferred());
  t.defer_product(handed, 2, &last);
  EXPECT_EQ(last.size(), 6u);
  EXPECT_NE(last.data(), given);
  std::fill(last.data(), last.data() + 6, 99.0);
  EXPECT_EQ(values(h), product);
  std::iota(last.data(), last.data() + 6, 1.0);
  const SweepFactor again[2] = {{&over_a, fa.data()}, {&over_cb, last.data()}};
  t.defer_product(again, 2, &last);
  EXPECT_EQ(last.data(), given);
  EXPECT_EQ(values(h), product);

  // Factors kept ahead are what a deferral of the same arrays takes; a
  // deferral of other arrays copies them then, and nothing is kept while
  // a product is deferred.
  auto with = [&](double* a) {
    std::iota(last.data(), last.data() + 6, 1.0);
    return std::vector<SweepFactor>{{&over_a, a}, {&over_cb, last.data()}};
  };
  auto f = with(fa.data());
  t.defer_product(f.data(), 2, &last);
  t.keep_factors(f.data(), 1);  // deferred: ignored
  fa[0] = 2.0;
  EXPECT_EQ(values(h), product);
  f = with(fa.data());
  t.keep_factors(f.data(), 1);
  fa[0] = 0.5;  // after the copy: not seen
  t.defer_product(f.data(), 2, &last);
  std::vector<double> kept = product;
  for (std::size_t k = 0; k < 6; ++k) kept[k] *= 4.0;  // fa[0] was 2 when kept
  EXPECT_EQ(values(h), kept);
  std::vector<double> other_a{2.0, 3.0};
  f = with(fa.data());
  t.keep_factors(f.data(), 1);
  f[0].data = other_a.data();
  t.defer_product(f.data(), 2, &last);
  EXPECT_EQ(values(h), kept);
}

// Buffers of kMappedBytes or more come from the system rather than the
// heap, on whole huge pages; each kind must start at zero, copy, and be
// freed by its own path after swaps and moves between the kinds (the
// sanitizer build reports a wrong one).
TEST(DoubleBuffer, HeapAndHugePageBuffersZeroCopyAndSwap) {
  const std::uint64_t page = platform::kHugePageBytes / sizeof(double);
  const std::uint64_t least = DoubleBuffer::kMappedBytes / sizeof(double);
  std::vector<DoubleBuffer> buffers;
  for (std::uint64_t count : {std::uint64_t{1}, least - 1, least, least + 1, 2 * page + 3}) {
    DoubleBuffer b = DoubleBuffer::zeros(count);
    ASSERT_EQ(b.size(), count);
    for (std::uint64_t i = 0; i < count; i += 4096) ASSERT_EQ(b[i], 0.0) << count;
    EXPECT_EQ(b[count - 1], 0.0);
    b[0] = 1.5;
    b[count - 1] = static_cast<double>(count);
    // Past a mapped array's end (in the rest of its last page), the
    // sanitizer build reports any access.
    EXPECT_FALSE(platform::access_forbidden(&b[count - 1]));
    if (count * sizeof(double) >= DoubleBuffer::kMappedBytes) {
      EXPECT_EQ(platform::access_forbidden(b.data() + count), platform::access_checked()) << count;
    }
    buffers.push_back(std::move(b));
  }
  for (const DoubleBuffer& b : buffers) {
    const DoubleBuffer c = b.copy();
    ASSERT_EQ(c.size(), b.size());
    EXPECT_EQ(c[0], b[0]);
    EXPECT_EQ(c[c.size() - 1], static_cast<double>(b.size()));
  }
  buffers[0].swap(buffers[3]);  // a heap buffer and a mapped one trade places
  EXPECT_EQ(buffers[0].size(), least + 1);
  EXPECT_EQ(buffers[3].size(), 1u);
  EXPECT_EQ(buffers[0][0], 1.5);
  buffers[1] = std::move(buffers[4]);  // frees a heap buffer, takes a mapped one
  EXPECT_EQ(buffers[1].size(), 2 * page + 3);
  EXPECT_TRUE(buffers[4].empty());
  buffers[2] = DoubleBuffer::zeros(3);  // frees a mapped buffer
  EXPECT_EQ(buffers[2][2], 0.0);
}

// Arrays made together: those of 64 KiB to 1 MiB share one mapping when
// they fill 1 MiB, each on its own cache lines with a guarded line after
// it, and the mapping outlives every array but the last, whichever order
// they go in.  Others are made as zeros() makes them.
TEST(DoubleBuffer, ArraysMadeTogetherSharePagesUntilTheLastGoes) {
  const std::uint64_t least = DoubleBuffer::kSharedLeast / sizeof(double);
  const std::uint64_t most = DoubleBuffer::kMappedBytes / sizeof(double) - 1;
  const std::vector<std::uint64_t> counts = {least, 3, most, 0, least + 1, most + 1, most - 7};
  std::vector<DoubleBuffer> made = DoubleBuffer::zeros_together(counts);
  ASSERT_EQ(made.size(), counts.size());
  const std::vector<bool> shared = {true, false, true, false, true, false, true};
  for (std::size_t i = 0; i < made.size(); ++i) {
    ASSERT_EQ(made[i].size(), counts[i]) << i;
    EXPECT_EQ(made[i].shares_pages(), shared[i]) << i;
    if (counts[i] == 0) continue;
    for (std::uint64_t k = 0; k < counts[i]; k += 512) ASSERT_EQ(made[i][k], 0.0);
    EXPECT_EQ(made[i][counts[i] - 1], 0.0);
    made[i][counts[i] - 1] = static_cast<double>(i);
    if (shared[i]) {
      EXPECT_EQ(reinterpret_cast<std::uintptr_t>(made[i].data()) % 64, 0u) << i;
      EXPECT_EQ(platform::access_forbidden(made[i].data() + counts[i]), platform::access_checked())
          << i;
    }
  }
  for (std::size_t i = 0; i < made.size(); ++i) {
    if (counts[i] == 0) continue;
    EXPECT_EQ(made[i][counts[i] - 1], static_cast<double>(i)) << i;
  }
  // The arrays go one by one, a moved one last; the others stay whole.
  DoubleBuffer last = std::move(made[4]);
  made[0] = DoubleBuffer();
  made[6].swap(made[1]);
  made.clear();
  EXPECT_TRUE(last.shares_pages());
  EXPECT_EQ(last[least], 4.0);
  // Shared arrays that fill less than 1 MiB are made on their own.
  const std::vector<std::uint64_t> few = {least, least};
  for (const DoubleBuffer& b : DoubleBuffer::zeros_together(few)) {
    EXPECT_FALSE(b.shares_pages());
  }
  // A size whose bytes overflow is refused, and what was made goes back.
  const std::vector<std::uint64_t> huge = {most, most, ~std::uint64_t{0}};
  EXPECT_THROW(DoubleBuffer::zeros_together(huge), Error);
}

}  // namespace
}  // namespace kelva
