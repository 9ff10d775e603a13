#include "dataset/data_row.h"

#include "network/error.h"

namespace kelva {

void DataRow::erase(std::size_t i) noexcept {
  const std::size_t count = word(0);
  char* const offsets = block_.get() + 8;
  std::memmove(offsets + 4 * i, offsets + 4 * (i + 1), 4 * (count - 1 - i));
  // The texts move down into the freed offset.
  std::memmove(offsets + 4 * (count - 1), offsets + 4 * count, word(1));
  set_word(0, static_cast<std::uint32_t>(count - 1));
}

void DataRow::move(std::size_t from, std::size_t to) noexcept {
  const std::uint32_t moved = word(2 + from);
  for (std::size_t k = from; k < to; ++k) set_word(2 + k, word(3 + k));
  for (std::size_t k = from; k > to; --k) set_word(2 + k, word(1 + k));
  set_word(2 + to, moved);
}

void RowBuilder::add(const char* text, std::size_t length) {
  // The last offset must stay below kMissing.
  if (length >= DataRow::kMissing - 1 - texts_.size()) throw Error(K_ERROR_NO_MEMORY);
  offsets_.push_back(static_cast<std::uint32_t>(texts_.size()));
  texts_.append(text, length);
  texts_.push_back('\0');
}

DataRow RowBuilder::build() const {
  DataRow row;
  const std::size_t head = 4 * (2 + offsets_.size());
  row.block_.reset(new char[head + texts_.size()]);
  row.set_word(0, static_cast<std::uint32_t>(offsets_.size()));
  row.set_word(1, static_cast<std::uint32_t>(texts_.size()));
  if (!offsets_.empty()) std::memcpy(row.block_.get() + 8, offsets_.data(), 4 * offsets_.size());
  if (!texts_.empty()) std::memcpy(row.block_.get() + head, texts_.data(), texts_.size());
  return row;
}

}  // namespace kelva
