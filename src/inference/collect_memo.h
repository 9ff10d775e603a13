#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "compile/junction_forest.h"
#include "network/evidence.h"
#include "platform/memory.h"
#include "table/buffer.h"
#include "table/table.h"

namespace kelva {

/// Cliques of more entries are not remembered (a sweep of them costs far
/// more than its bookkeeping); a tree's memo holds at most kMemoBudget
/// doubles, and at most kMemoPerLink evidence combinations per link in a
/// table of twice as many slots or more (a power of two).  Links near the
/// root meet thousands of combinations in a batch of cases.
inline constexpr std::uint64_t kMemoCliqueLimit = std::uint64_t{1} << 14;
inline constexpr std::size_t kMemoBudget = std::size_t{1} << 20;
inline constexpr std::size_t kMemoPerLink = 2048;

/// Collected cliques remembered by the evidence that made them.  After a
/// rebuild, the table a clique holds at the end of the collect, and the
/// message it sends towards the root, depend only on the node tables and
/// on the evidence entered on the nodes at home in its subtree (the
/// cliques beyond it from the root).  A tree that propagates case after
/// case (batch prediction, EM) meets the same evidence on small subtrees
/// again and again; their clique and separator tables are then copied from
/// the first computation instead of swept again, which gives the same bits.
/// Only hard evidence is remembered; the memo is dropped when a table
/// changes or the schedule's root moves.
class CollectMemo {
 public:
  /// A memo holding at most `budget` doubles.
  explicit CollectMemo(std::size_t budget = kMemoBudget);

  /// Prepares for a collect of `tree`: drops everything when the node
  /// tables or the schedule changed since the last one.
  void start(const JunctionTree& tree);

  /// Makes the key of schedule link `i` from the evidence of its outer
  /// clique's home nodes and the keys of its child links (made before, as
  /// collect goes leaves first); on a hit, restores the outer clique's
  /// table and the separator's message and returns true.
  bool restore(JunctionTree& tree, std::size_t i);

  /// These start fetching what restore(tree, i) reads, for a collect that comes
  /// to link `i` shortly, a level at a time (hints only): the link's
  /// record; its digits, first slots and the start of its first copy; the
  /// digits' values.
  void prefetch_record(std::size_t i) const noexcept { __builtin_prefetch(&links_[i]); }
  void prefetch_copy(std::size_t i) const noexcept {
    const Link& link = links_[i];
    if (link.room == 0 || data_.empty()) return;
    __builtin_prefetch(digits_.data() + link.digits);
    __builtin_prefetch(keys_.data() + link.slots);
    platform::prefetch_bytes(data_.data() + link.base, kPrefetchedBytes);
  }
  void prefetch_digits(std::size_t i) const noexcept {
    const Link& link = links_[i];
    if (link.room == 0) return;
    const Digit* const end = digits_.data() + link.digits_end;
    for (const Digit* d = digits_.data() + link.digits; d != end; ++d) __builtin_prefetch(d->value);
  }

  /// Keeps what the collect over link `i` just made, while there is room.
  void keep(const JunctionTree& tree, std::size_t i);

  /// Doubles held in all (for the tests' bound).
  std::size_t held() const noexcept { return held_; }

 private:
  struct Link {
    /// This collect's key: a number below the radix, or kNoKey when the
    /// subtree is not remembered (its evidence combinations do not fit 64
    /// bits, or a node has soft evidence).
    std::int64_t key = kNoKey;
    /// The number of evidence combinations of the subtree's home nodes
    /// (0: never remembered), and the link's digits in digits_: its home
    /// nodes, then its child links.
    std::uint64_t shape_radix = 0;
    std::size_t digits = 0;
    std::size_t digits_end = 0;
    /// The key's part that does not depend on the digits' values (each
    /// home node's digit is its code + 1).
    std::uint64_t offset = 0;
    /// Where this link's slots and copies start in keys_/places_ and
    /// data_, the number of slots less one, and how many copies fit there
    /// (0: not remembered).
    std::size_t slots = 0;
    std::size_t mask = 0;
    std::size_t base = 0;
    std::size_t room = 0;
    std::size_t count = 0;
  };
  /// Soft evidence on a home node, or a child link not remembered: the
  /// value that keeps a key from being made (Evidence::kVector, so that a
  /// node's code is a digit as it is).
  static constexpr std::int64_t kNoKey = Evidence::kVector;
  /// One digit of a key: a home node's entered code (the digit is the code
  /// + 1) or a child link's key, and its weight in the key, the product of
  /// the bases of the digits after it (states + 1 for a home node, the
  /// shape radix for a child link).
  struct Digit {
    const std::int64_t* value;
    std::uint64_t weight;
  };
  /// Bytes of a copy that prefetch_copy fetches.
  static constexpr std::size_t kPrefetchedBytes = 2048;
  /// keep() where the link is remembered and has room.
  void store(const JunctionTree& tree, std::size_t i);

  /// Finds each link's digits, children and shape radix.
  void plan(const JunctionTree& tree);

  /// The slot of `key` in the mask + 1 slots at `keys`, or the free slot
  /// where its probe ends.  The table is never more than half full, so a
  /// probe always ends.
  static std::size_t find(const std::uint64_t* keys, std::size_t mask, std::uint64_t key) noexcept {
    std::size_t at = static_cast<std::size_t>((key * 0x9e3779b97f4a7c15ULL) >> 40) & mask;
    while (keys[at] != 0 && keys[at] != key + 1) at = (at + 1) & mask;
    return at;
  }

  /// Entries of one copy of link `message`: its outer clique, then its
  /// separator.
  static std::size_t copy_size(const JunctionTree::Message& message) noexcept {
    return message.outer->table->size() + message.separator->table->size();
  }

  /// Gives every link that can be remembered its room, all at once, so
  /// that later collects allocate nothing; on failure nothing is kept.
  void make_room(const JunctionTree& tree) noexcept;

  /// Per remembered link, an open-addressed table of slots:
  /// key + 1 (0 when free) and the number of the copy, which lies at
  /// base + number * (clique + separator entries) in data_.
  std::vector<std::uint64_t> keys_;
  std::vector<std::uint32_t> places_;
  /// The copies; a memo of 1 MiB or more lies on huge pages, so that
  /// filling it over the first cases faults once per 2 MiB, not per 4 KiB.
  DoubleBuffer data_;
  std::vector<Link> links_;
  std::vector<Digit> digits_;
  std::uint64_t table_changes_ = 0;
  const Clique* root_ = nullptr;
  std::size_t held_ = 0;
  std::size_t budget_;
  /// Collects since the memo was last dropped: the first keeps nothing,
  /// so that a tree propagated once (as after compiling) holds no copies.
  std::uint64_t collects_ = 0;
};

// Inline: the collect calls it for every link of every case.
inline bool CollectMemo::restore(JunctionTree& tree, std::size_t i) {
  Link& link = links_[i];
  link.key = kNoKey;
  if (link.shape_radix == 0) return false;
  // Each home node is one digit: 0 without evidence, state + 1 selected;
  // each child link one more, its key.  The shape's radix bounds the key,
  // so that no product or sum overflows.
  std::uint64_t key = link.offset;
  bool unkeyed = false;
  const Digit* const end = digits_.data() + link.digits_end;
  for (const Digit* d = digits_.data() + link.digits; d != end; ++d) {
    const std::int64_t value = *d->value;
    unkeyed |= value == kNoKey;
    key += static_cast<std::uint64_t>(value) * d->weight;
  }
  if (unkeyed || static_cast<std::int64_t>(key) == kNoKey) return false;
  link.key = static_cast<std::int64_t>(key);
  if (link.room == 0) return false;
  const JunctionTree::Message& message = tree.schedule[i];
  const std::uint64_t* keys = keys_.data() + link.slots;
  const std::size_t at = find(keys, link.mask, key);
  if (keys[at] == 0) return false;
  // Hit: the clique and its message are those of the first computation.
  Table& clique = *message.outer->table;
  Table& separator = *message.separator->table;
  const double* from = data_.data() + link.base + places_[link.slots + at] * copy_size(message);
  std::memcpy(clique.data(), from, clique.size() * sizeof(double));
  std::memcpy(separator.data(), from + clique.size(), separator.size() * sizeof(double));
  // The memo serves collects after a rebuild with the entered evidence,
  // whose factors are made as each clique is swept: none waits here.
  return true;
}

inline void CollectMemo::keep(const JunctionTree& tree, std::size_t i) {
  const Link& link = links_[i];
  if (link.key != kNoKey && link.count < link.room) store(tree, i);
}

}  // namespace kelva
