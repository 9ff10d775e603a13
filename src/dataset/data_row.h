#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace kelva {

/// The cells of one data set row in one block of memory: the cell count and
/// the size of the texts, each cell's offset into the texts (kMissing for a
/// missing cell), then the texts, each followed by a NUL.  A row of 30 short
/// cells thus costs about 4 bytes per cell beside its text, against 40 for a
/// std::optional<std::string> per cell.  A default row is absent (no block).
/// Texts never hold a NUL: they come from C strings, and the file reader
/// drops NULs.
class DataRow {
 public:
  static constexpr std::uint32_t kMissing = UINT32_MAX;

  DataRow() noexcept = default;

  /// Whether the row is present.
  explicit operator bool() const noexcept { return block_ != nullptr; }
  /// Its number of cells (0 when absent).
  std::size_t size() const noexcept { return block_ ? word(0) : 0; }
  /// The text of cell `i` (i < size()), null when it is missing.
  const char* cell(std::size_t i) const noexcept {
    const std::uint32_t at = word(2 + i);
    return at == kMissing ? nullptr : texts() + at;
  }

  /// Removes cell `i` (i < size()) in place; its text stays unused in the block.
  void erase(std::size_t i) noexcept;
  /// Moves cell `from` to position `to` (both < size()); those between
  /// shift by one.  Only offsets move.
  void move(std::size_t from, std::size_t to) noexcept;

 private:
  friend class RowBuilder;

  // Word k of the block: 0 the count, 1 the texts' size, 2 + i cell i's offset.
  std::uint32_t word(std::size_t k) const noexcept {
    std::uint32_t w;
    std::memcpy(&w, block_.get() + 4 * k, sizeof w);
    return w;
  }
  void set_word(std::size_t k, std::uint32_t w) noexcept {
    std::memcpy(block_.get() + 4 * k, &w, sizeof w);
  }
  char* texts() const noexcept { return block_.get() + 4 * (2 + std::size_t{word(0)}); }

  std::unique_ptr<char[]> block_;
};

/// Gathers the cells of a row and makes its block; clear() keeps the
/// capacity, so one builder serves many rows.
class RowBuilder {
 public:
  void clear() noexcept {
    offsets_.clear();
    texts_.clear();
  }
  /// Number of cells added.
  std::size_t size() const noexcept { return offsets_.size(); }
  /// Adds a present cell of `length` bytes (no NUL among them).  Error
  /// (no_memory) when the row's texts would reach 4 GiB.
  void add(const char* text, std::size_t length);
  /// Adds a cell: null is missing.
  void add(const char* text) {
    if (text == nullptr) add_missing();
    else add(text, std::strlen(text));
  }
  void add_missing() { offsets_.push_back(DataRow::kMissing); }
  /// The present row of the cells added.
  DataRow build() const;

 private:
  std::vector<std::uint32_t> offsets_;
  std::string texts_;
};

}  // namespace kelva
