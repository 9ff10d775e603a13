#include "inference/collect_memo.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "network/domain.h"
#include "network/node.h"

namespace kelva {

CollectMemo::CollectMemo(std::size_t budget) : budget_(budget) {
  Destroy<CollectMemo>::registered = [](CollectMemo* memo) noexcept { delete memo; };
}

void CollectMemo::start(const JunctionTree& tree) {
  const std::uint64_t changes = tree.domain->table_changes();
  if (links_.size() == tree.schedule.size() && root_ == tree.schedule_root &&
      table_changes_ == changes) {
    // The first collect after a drop keeps nothing; the second makes
    // the room of all that follow.
    if (++collects_ == 2) make_room(tree);
    return;
  }
  links_.clear();
  links_.resize(tree.schedule.size());
  plan(tree);
  keys_ = {};
  places_ = {};
  data_ = DoubleBuffer();
  root_ = tree.schedule_root;
  table_changes_ = changes;
  held_ = 0;
  collects_ = 1;
}

void CollectMemo::plan(const JunctionTree& tree) {
  // The radix of each subtree from the tree's shape alone, leaves first.
  const auto& schedule = tree.schedule;
  digits_.clear();
  // Room for the home nodes of every clique and a digit per link,
  // whichever is the root, so that a new root allocates nothing.
  std::size_t homed = tree.schedule_root != nullptr ? tree.schedule_root->homed.size() : 0;
  for (const JunctionTree::Message& message : schedule) homed += message.outer->homed.size();
  digits_.reserve(homed + schedule.size());
  for (std::size_t i = schedule.size(); i-- > 0;) {
    const JunctionTree::Message& message = schedule[i];
    Link& link = links_[i];
    link.digits = digits_.size();
    // Each digit with its base first; the bases become weights below.
    for (const NodeSlot* slot : message.outer->homed)
      digits_.push_back({&slot->node->evidence.entered_code, slot->marginal.size() + 1});
    const std::size_t homes_end = digits_.size();
    const std::size_t children_end = tree.link_children(i).second;
    for (std::size_t j = message.first_child; j < children_end; ++j)
      digits_.push_back({&links_[j].key, links_[j].shape_radix});
    link.digits_end = digits_.size();
    std::uint64_t r = 1;
    bool fits = message.outer->table->size() <= kMemoCliqueLimit;
    link.offset = 0;
    for (std::size_t d = link.digits_end; d-- > link.digits;) {
      const std::uint64_t base = digits_[d].weight;
      digits_[d].weight = r;
      if (d < homes_end) link.offset += r;
      fits = fits && base != 0 && !__builtin_mul_overflow(r, base, &r);
    }
    link.shape_radix = fits ? r : 0;
  }
}

void CollectMemo::store(const JunctionTree& tree, std::size_t i) {
  Link& link = links_[i];
  const JunctionTree::Message& message = tree.schedule[i];
  const Table& clique = *message.outer->table;
  const Table& separator = *message.separator->table;
  double* to = data_.data() + link.base + link.count * copy_size(message);
  std::memcpy(to, clique.data(), clique.size() * sizeof(double));
  std::memcpy(to + clique.size(), separator.data(), separator.size() * sizeof(double));
  // restore() found the key missing, so its probe ends on a free slot.
  std::uint64_t* keys = keys_.data() + link.slots;
  const auto key = static_cast<std::uint64_t>(link.key);
  const std::size_t at = find(keys, link.mask, key);
  keys[at] = key + 1;
  places_[link.slots + at] = static_cast<std::uint32_t>(link.count);
  ++link.count;
  held_ += copy_size(message);
}

void CollectMemo::make_room(const JunctionTree& tree) noexcept {
  // Leaves first, as the collect goes, so that the budget goes to the
  // links nearest the leaves.
  const auto& schedule = tree.schedule;
  std::size_t slots = 0;
  std::size_t doubles = 0;
  try {
    for (std::size_t i = schedule.size(); i-- > 0;) {
      Link& link = links_[i];
      if (link.shape_radix == 0) continue;
      const std::size_t copies =
          static_cast<std::size_t>(std::min<std::uint64_t>(link.shape_radix, kMemoPerLink));
      const std::size_t need = copies * copy_size(schedule[i]);
      if (doubles + need > budget_) continue;
      link.slots = slots;
      link.mask = std::bit_ceil(2 * copies) - 1;
      slots += link.mask + 1;
      link.base = doubles;
      link.room = copies;
      doubles += need;
    }
    keys_.assign(slots, 0);
    places_.assign(slots, 0);
    data_ = DoubleBuffer::zeros(doubles);
  } catch (...) {
    // Without room the memo keeps nothing until it is dropped.
    for (Link& link : links_) link.room = 0;
    keys_ = {};
    places_ = {};
    data_ = DoubleBuffer();
  }
}

}  // namespace kelva
