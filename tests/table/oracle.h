#pragma once

// The slow reference for table index arithmetic: decode a linear index into
// states, re-encode states into another table's index.  Tests only.

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kelva::test {

/// The states of `index` in a table with state counts `counts` (last fastest).
inline std::vector<std::size_t> decode(std::uint64_t index,
                                       const std::vector<std::size_t>& counts) {
  std::vector<std::size_t> states(counts.size());
  for (std::size_t k = counts.size(); k-- > 0;) {
    states[k] = index % counts[k];
    index /= counts[k];
  }
  return states;
}

/// The index in a table over large positions `axes` (with `counts` the large
/// table's counts) of the large configuration `states`.
inline std::uint64_t encode(const std::vector<std::size_t>& states,
                            const std::vector<std::size_t>& counts,
                            const std::vector<std::size_t>& axes) {
  std::uint64_t index = 0;
  for (std::size_t a : axes) index = index * counts[a] + states[a];
  return index;
}

inline std::uint64_t volume(const std::vector<std::size_t>& counts,
                            const std::vector<std::size_t>& axes) {
  std::uint64_t v = 1;
  for (std::size_t a : axes) v *= counts[a];
  return v;
}

/// For each large index, the small index it meets.
inline std::vector<std::uint64_t> small_index_map(const std::vector<std::size_t>& counts,
                                                  const std::vector<std::size_t>& axes) {
  std::vector<std::size_t> all(counts.size());
  for (std::size_t i = 0; i < all.size(); ++i) all[i] = i;
  std::vector<std::uint64_t> map(volume(counts, all));
  for (std::uint64_t l = 0; l < map.size(); ++l) map[l] = encode(decode(l, counts), counts, axes);
  return map;
}

}  // namespace kelva::test
