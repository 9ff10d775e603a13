#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

namespace kelva {

/// A list of object pointers kept with a trailing null slot, so that data()
/// is the null-ended list handed out through the C API.
template <class T>
class PtrList {
 public:
  PtrList() : items_(1, nullptr) {}

  std::size_t size() const noexcept { return items_.size() - 1; }
  bool empty() const noexcept { return size() == 0; }
  T* operator[](std::size_t i) const noexcept { return items_[i]; }
  T* const* begin() const noexcept { return items_.data(); }
  T* const* end() const noexcept { return items_.data() + size(); }
  /// The null-ended array.
  T* const* data() const noexcept { return items_.data(); }
  T** data() noexcept { return items_.data(); }

  bool contains(const T* item) const noexcept { return index_of(item) != npos; }
  /// The position of `item`, or npos.
  std::size_t index_of(const T* item) const noexcept {
    auto it = std::find(begin(), end(), item);
    return it == end() ? npos : static_cast<std::size_t>(it - begin());
  }

  /// Makes room for `extra` more items so that the next inserts cannot fail
  /// (growing geometrically, so that adding items one by one stays linear).
  void reserve_more(std::size_t extra) {
    const std::size_t wanted = items_.size() + extra;
    if (wanted > items_.capacity()) items_.reserve(std::max(wanted, items_.capacity() * 2));
  }
  void push_back(T* item) { items_.insert(items_.end() - 1, item); }
  void insert(std::size_t pos, T* item) { items_.insert(items_.begin() + pos, item); }
  void erase_at(std::size_t pos) { items_.erase(items_.begin() + pos); }
  /// Removes `item` if present; true when it was.
  bool remove(const T* item) {
    std::size_t i = index_of(item);
    if (i == npos) return false;
    erase_at(i);
    return true;
  }
  void replace(std::size_t pos, T* item) noexcept { items_[pos] = item; }
  void clear() { items_.assign(1, nullptr); }

  static constexpr std::size_t npos = static_cast<std::size_t>(-1);

 private:
  std::vector<T*> items_;
};

class Node;
/// The node lists of the engine (parents, children, table nodes).
using NodeList = PtrList<Node>;

}  // namespace kelva
