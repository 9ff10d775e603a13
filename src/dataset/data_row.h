#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace kelva {

/// The cells of one data set row in one block of memory: the cell count and
/// the size of the texts, each cell's offset into the texts (kMissing for a
/// missing cell), then the texts, each followed by a NUL.  A row of 30 short
/// cells thus costs about 4 bytes per cell beside its text, against 40 for a
/// std::optional<std::string> per cell.  A default row is absent (no block).
/// Texts never hold a NUL: they come from C strings, and the file reader
/// drops NULs.  A block is the row's own, or borrowed from the data set's
/// RowArena (the reader's rows), which frees it.
class DataRow {
 public:
  static constexpr std::uint32_t kMissing = UINT32_MAX;

  DataRow() noexcept = default;
  DataRow(DataRow&& other) noexcept : block_(other.block_) { other.block_ = nullptr; }
  DataRow& operator=(DataRow&& other) noexcept {
    if (this != &other) {
      release();
      block_ = other.block_;
      other.block_ = nullptr;
    }
    return *this;
  }
  DataRow(const DataRow&) = delete;
  DataRow& operator=(const DataRow&) = delete;
  ~DataRow() { release(); }

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
  friend class ArenaRowWriter;

  // Word 1's high bit: the block belongs to an arena.
  static constexpr std::uint32_t kBorrowed = 0x80000000u;

  void release() noexcept {
    if (block_ != nullptr && (word(1) & kBorrowed) == 0) delete[] block_;
  }
  // Word k of the block: 0 the count, 1 the texts' size (and kBorrowed), 2 + i
  // cell i's offset.
  std::uint32_t word(std::size_t k) const noexcept {
    std::uint32_t w;
    std::memcpy(&w, block_ + 4 * k, sizeof w);
    return w;
  }
  void set_word(std::size_t k, std::uint32_t w) noexcept {
    std::memcpy(block_ + 4 * k, &w, sizeof w);
  }
  char* texts() const noexcept { return block_ + 4 * (2 + std::size_t{word(0)}); }

  char* block_ = nullptr;
};

/// Memory for the blocks of many rows, carved from chunks that grow from
/// 64 KiB to 8 MiB and are freed together with the arena.  Chunks of 2 MiB
/// and more ask the system for huge pages: a data set of 100 MB then takes
/// a page fault per 2 MiB instead of per 4 KiB, and the faults were half of
/// its reading time.
class RowArena {
 public:
  RowArena() = default;
  RowArena(const RowArena&) = delete;
  RowArena& operator=(const RowArena&) = delete;
  ~RowArena();

  /// `size` bytes, aligned for 4-byte words.  Throws std::bad_alloc.
  char* allocate(std::size_t size);

  /// Room for a block whose size is not known yet: at least `size` bytes
  /// from the returned start (aligned) up to limit(), which stay free until
  /// close().  Throws std::bad_alloc.
  char* open(std::size_t size);
  /// Room for at least `size` bytes in a new chunk, holding a copy of the
  /// `used` bytes of the open block at `block`; returns the block's new start.
  char* reopen(const char* block, std::size_t used, std::size_t size);
  /// The end of the room of the open block.
  char* limit() const noexcept { return end_; }
  /// Ends the open block at `end` (not beyond limit()).
  void close(char* end) noexcept { next_ = end; }

 private:
  // Makes a chunk of at least `size` bytes the current one.
  // Allocates a chunk of `chunk` bytes (huge pages from 2 MiB) that the
  // arena keeps and frees.
  char* add_chunk(std::size_t chunk);
  void start_chunk(std::size_t size);

  struct Chunk {
    char* base;
    std::size_t size;
  };
  std::vector<Chunk> chunks_;
  char* next_ = nullptr;
  char* end_ = nullptr;
  std::size_t chunk_size_ = std::size_t{1} << 16;
};

/// Copies a cell's `length` bytes from `text` to `to` with its closing NUL
/// and returns the end.  With `two_words` (16 bytes readable at `text`,
/// writable at `to`) a short text is copied as two words rather than by a
/// call.
inline char* put_cell_text(char* to, const char* text, std::size_t length,
                           bool two_words) noexcept {
  if (length < 16 && two_words) {
    std::uint64_t words[2];
    std::memcpy(words, text, 16);
    std::memcpy(to, words, 16);
  } else {
    std::memcpy(to, text, length);
  }
  to[length] = '\0';
  return to + length + 1;
}

/// Writes rows of a fixed number of cells straight into an arena: each
/// text goes to its place in the row's block as it is added, so a reader
/// copies each byte once and keeps no row of its own.
class ArenaRowWriter {
 public:
  ArenaRowWriter(RowArena& arena, std::size_t cells) noexcept
      : arena_(arena), cells_(cells), head_(4 * (2 + cells)) {}

  /// Starts a row.
  void begin() {
    row_ = arena_.open(head_ + 64);
    cursor_ = row_ + head_;
    limit_ = arena_.limit();
    count_ = 0;
  }
  /// Number of cells added to the row.
  std::size_t size() const noexcept { return count_; }
  /// Adds a present cell of `length` bytes (no NUL among them); at most the
  /// writer's number of cells.  Error (no_memory) when the row's texts
  /// would reach 2 GiB.
  /// `readable` is how many bytes from `text` on may be read: with 16 of
  /// them, a short text is copied as two words rather than by a call.
  void add(const char* text, std::size_t length, std::size_t readable = 0) {
    const auto used = static_cast<std::size_t>(cursor_ - row_ - head_);
    if (length >= 0x7FFFFFFFu - used) too_large();
    if (static_cast<std::size_t>(limit_ - cursor_) <= length + 16) grow(length + 17);
    set(2 + count_++, static_cast<std::uint32_t>(used));
    cursor_ = put_cell_text(cursor_, text, length, readable >= 16);
  }
  void add_missing() noexcept { set(2 + count_++, DataRow::kMissing); }

  /// For a reader that writes offsets and texts itself in its inner loop,
  /// keeping them in locals (a store of a text byte may alias any member,
  /// which would force their reload at every cell): where cell offsets and
  /// texts start, the next text's place and the end of the room.  They stay
  /// valid until add() or begin(); resume() takes back the next text's place
  /// and the number of cells written.
  char* offsets() const noexcept { return row_ + 8; }
  char* texts() const noexcept { return row_ + head_; }
  char* cursor() const noexcept { return cursor_; }
  char* limit() const noexcept { return limit_; }
  void resume(char* cursor, std::size_t count) noexcept {
    cursor_ = cursor;
    count_ = count;
  }
  /// The row, its cells not added missing; its block is the arena's.
  DataRow finish() noexcept;

 private:
  [[noreturn]] static void too_large();
  void grow(std::size_t size);
  void set(std::size_t k, std::uint32_t w) noexcept { std::memcpy(row_ + 4 * k, &w, sizeof w); }

  RowArena& arena_;
  std::size_t cells_;
  std::size_t head_;
  char* row_ = nullptr;
  char* cursor_ = nullptr;
  char* limit_ = nullptr;  // the end of the open row's room
  std::size_t count_ = 0;
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
  /// (no_memory) when the row's texts would reach 2 GiB.
  void add(const char* text, std::size_t length) {
    // The texts' size must leave DataRow's borrowed bit free.
    if (length >= 0x7FFFFFFFu - texts_.size()) too_large();
    offsets_.push_back(static_cast<std::uint32_t>(texts_.size()));
    texts_.append(text, length);
    texts_.push_back('\0');
  }
  /// Adds a cell: null is missing.
  void add(const char* text) {
    if (text == nullptr) add_missing();
    else add(text, std::strlen(text));
  }
  void add_missing() { offsets_.push_back(DataRow::kMissing); }
  /// The present row of the cells added, in a block of its own or (given an
  /// arena) in the arena's memory.
  DataRow build(RowArena* arena = nullptr) const;

 private:
  [[noreturn]] static void too_large();

  std::vector<std::uint32_t> offsets_;
  std::string texts_;
};

}  // namespace kelva
