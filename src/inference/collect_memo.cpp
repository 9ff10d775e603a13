#include "inference/collect_memo.h"

#include <algorithm>
#include <cstring>

#include "network/domain.h"
#include "network/node.h"

namespace kelva {

namespace {

// The slot of `key` in `keys`, or the free slot where its probe ends;
// kMemoSlots for a table not made yet.  The table is never more than half
// full, so a probe always ends.
std::size_t find(const std::vector<std::uint64_t>& keys, std::uint64_t key) noexcept {
  if (keys.empty()) return kMemoSlots;
  static_assert((kMemoSlots & (kMemoSlots - 1)) == 0);
  std::size_t at = static_cast<std::size_t>((key * 0x9e3779b97f4a7c15ULL) >> 40) & (kMemoSlots - 1);
  while (keys[at] != 0 && keys[at] != key + 1) at = (at + 1) & (kMemoSlots - 1);
  return at;
}

}  // namespace

CollectMemo::CollectMemo(std::size_t budget) : budget_(budget) {
  Destroy<CollectMemo>::registered = [](CollectMemo* memo) noexcept { delete memo; };
}

void CollectMemo::start(const JunctionTree& tree) {
  const std::uint64_t changes = tree.domain->table_changes();
  if (links_.size() == tree.schedule.size() && root_ == tree.schedule_root &&
      table_changes_ == changes) {
    ++collects_;
    return;
  }
  links_.clear();
  links_.resize(tree.schedule.size());
  root_ = tree.schedule_root;
  table_changes_ = changes;
  held_ = 0;
  collects_ = 1;
}

bool CollectMemo::restore(JunctionTree& tree, std::size_t i) {
  const JunctionTree::Message& message = tree.schedule[i];
  Link& link = links_[i];
  link.radix = 0;
  if (message.outer->table->size() > kMemoCliqueLimit) return false;
  std::uint64_t key = 0;
  std::uint64_t radix = 1;
  // Each home node is one digit: 0 without evidence, state + 1 selected.
  for (const NodeSlot* slot : message.outer->homed) {
    const std::int64_t code = slot->node->evidence.entered_code;
    if (code == Evidence::kVector) return false;
    const std::uint64_t base = slot->marginal.size() + 1;
    if (__builtin_mul_overflow(radix, base, &radix)) return false;
    key = key * base + static_cast<std::uint64_t>(code + 1);
  }
  for (std::size_t j = message.first_child;
       j < tree.schedule.size() && tree.schedule[j].parent == i; ++j) {
    const Link& child = links_[j];
    if (child.radix == 0 || __builtin_mul_overflow(radix, child.radix, &radix)) return false;
    key = key * child.radix + child.key;
  }
  link.key = key;
  link.radix = radix;
  const std::size_t at = find(link.keys, key);
  if (at == kMemoSlots || link.keys[at] == 0) return false;
  // Hit: the clique and its message are those of the first computation.
  Table& clique = *message.outer->table;
  Table& separator = *message.separator->table;
  const double* from = link.data.data() + link.offsets[at];
  std::memcpy(clique.data(), from, clique.size() * sizeof(double));
  std::memcpy(separator.data(), from + clique.size(), separator.size() * sizeof(double));
  for (NodeSlot* slot : message.outer->homed) slot->factor_waiting = false;
  return true;
}

void CollectMemo::keep(const JunctionTree& tree, std::size_t i) {
  Link& link = links_[i];
  if (collects_ < 2 || link.radix == 0 || link.count >= kMemoPerLink) return;
  const JunctionTree::Message& message = tree.schedule[i];
  const Table& clique = *message.outer->table;
  const Table& separator = *message.separator->table;
  const std::size_t need = clique.size() + separator.size();
  if (held_ + need > budget_) return;
  if (link.keys.empty()) {
    link.offsets.assign(kMemoSlots, 0);  // before the keys, which find() looks at
    link.keys.assign(kMemoSlots, 0);
  }
  // The copies first: a failed allocation leaves no key without its data.
  const std::size_t offset = link.data.size();
  link.data.insert(link.data.end(), clique.data(), clique.data() + clique.size());
  link.data.insert(link.data.end(), separator.data(), separator.data() + separator.size());
  // restore() found the key missing, so its probe ends on a free slot.
  const std::size_t at = find(link.keys, link.key);
  link.keys[at] = link.key + 1;
  link.offsets[at] = offset;
  ++link.count;
  held_ += need;
}

}  // namespace kelva
