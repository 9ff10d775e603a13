#include "dataset/data_row.h"

#include <algorithm>
#include <cstdint>
#include <new>

#include "network/error.h"
#include "platform/memory.h"

namespace kelva {

void DataRow::erase(std::size_t i) noexcept {
  const std::size_t count = word(0);
  char* const offsets = block_ + 8;
  std::memmove(offsets + 4 * i, offsets + 4 * (i + 1), 4 * (count - 1 - i));
  // The texts move down into the freed offset.
  std::memmove(offsets + 4 * (count - 1), offsets + 4 * count, word(1) & ~kBorrowed);
  set_word(0, static_cast<std::uint32_t>(count - 1));
}

void DataRow::move(std::size_t from, std::size_t to) noexcept {
  const std::uint32_t moved = word(2 + from);
  for (std::size_t k = from; k < to; ++k) set_word(2 + k, word(3 + k));
  for (std::size_t k = from; k > to; --k) set_word(2 + k, word(1 + k));
  set_word(2 + to, moved);
}

namespace {

constexpr std::size_t kHugeChunk = platform::kHugePageBytes;
constexpr std::size_t kLargestChunk = std::size_t{1} << 23;

}  // namespace

RowArena::~RowArena() {
  for (const Chunk& c : chunks_) {
    if (c.size >= kHugeChunk) platform::free_huge_pages(c.base, c.size);
    else delete[] c.base;
  }
}

char* RowArena::add_chunk(std::size_t chunk) {
  chunks_.reserve(chunks_.size() + 1);
  char* base = nullptr;
  if (chunk >= kHugeChunk) {
    base = static_cast<char*>(platform::allocate_huge_pages(chunk));
    if (base == nullptr) throw std::bad_alloc();
  } else {
    base = new char[chunk];
  }
  chunks_.push_back(Chunk{base, chunk});
  return base;
}

void RowArena::start_chunk(std::size_t size) {
  std::size_t chunk = chunk_size_;
  while (chunk < size) chunk *= 2;
  if (chunk >= kHugeChunk) chunk = platform::whole_huge_pages(chunk);
  char* base = add_chunk(chunk);
  next_ = base;
  end_ = base + chunk;
  if (chunk_size_ < kLargestChunk) chunk_size_ *= 2;
}

char* RowArena::open(std::size_t size) {
  next_ += (4 - reinterpret_cast<std::uintptr_t>(next_) % 4) % 4;
  if (next_ > end_ || static_cast<std::size_t>(end_ - next_) < size) start_chunk(size);
  return next_;
}

char* RowArena::reopen(const char* block, std::size_t used, std::size_t size) {
  start_chunk(used + size);
  std::memcpy(next_, block, used);
  return next_;
}

char* RowArena::allocate(std::size_t size) {
  size = (size + 3) & ~std::size_t{3};
  if (static_cast<std::size_t>(end_ - next_) < size) {
    // A block larger than a quarter of a chunk gets a chunk of its own
    // (rounded to 2 MiB when that large), so little is wasted.
    std::size_t chunk = chunk_size_;
    if (size > chunk / 4)
      chunk = size < kHugeChunk ? size : (size + kHugeChunk - 1) & ~(kHugeChunk - 1);
    char* base = add_chunk(chunk);
    if (chunk == chunk_size_) {
      next_ = base;
      end_ = base + chunk;
      if (chunk_size_ < kLargestChunk) chunk_size_ *= 2;
    } else {
      return base;  // its own chunk; the current one goes on
    }
  }
  char* block = next_;
  next_ += size;
  return block;
}

void ArenaRowWriter::too_large() { throw Error(K_ERROR_NO_MEMORY); }

void ArenaRowWriter::grow(std::size_t size) {
  // The open row moves to a new chunk; the old chunk's tail stays unused.
  const auto used = static_cast<std::size_t>(cursor_ - row_);
  row_ = arena_.reopen(row_, used, std::max(size, used));
  cursor_ = row_ + used;
  limit_ = arena_.limit();
}

DataRow ArenaRowWriter::finish() noexcept {
  while (count_ < cells_) add_missing();
  DataRow row;
  row.block_ = row_;
  row.set_word(0, static_cast<std::uint32_t>(cells_));
  row.set_word(1, static_cast<std::uint32_t>(cursor_ - row_ - head_) | DataRow::kBorrowed);
  arena_.close(cursor_);
  return row;
}

void RowBuilder::too_large() { throw Error(K_ERROR_NO_MEMORY); }

DataRow RowBuilder::build(RowArena* arena) const {
  DataRow row;
  const std::size_t head = 4 * (2 + offsets_.size());
  const std::size_t size = head + texts_.size();
  row.block_ = arena != nullptr ? arena->allocate(size) : new char[size];
  row.set_word(0, static_cast<std::uint32_t>(offsets_.size()));
  row.set_word(
      1, static_cast<std::uint32_t>(texts_.size()) | (arena != nullptr ? DataRow::kBorrowed : 0));
  if (!offsets_.empty()) std::memcpy(row.block_ + 8, offsets_.data(), 4 * offsets_.size());
  if (!texts_.empty()) std::memcpy(row.block_ + head, texts_.data(), texts_.size());
  return row;
}

}  // namespace kelva
