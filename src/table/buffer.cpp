#include "table/buffer.h"

#include <cstring>
#include <new>

#include "network/error.h"
#include "platform/memory.h"
#include "table/size.h"

namespace kelva {

DoubleBuffer DoubleBuffer::zeros(std::uint64_t count) {
  DoubleBuffer b;
  if (count == 0) return b;
  const std::uint64_t bytes = sat_mul(count, sizeof(double));
  if (!platform::allocation_possible(bytes)) throw Error(K_ERROR_NO_MEMORY);
  b.data_ = new (std::nothrow) double[static_cast<std::size_t>(count)]();
  if (b.data_ == nullptr) throw Error(K_ERROR_NO_MEMORY);
  b.size_ = count;
  return b;
}

DoubleBuffer::~DoubleBuffer() { delete[] data_; }

DoubleBuffer DoubleBuffer::copy() const {
  DoubleBuffer b = zeros(size_);
  if (size_ != 0) std::memcpy(b.data_, data_, static_cast<std::size_t>(size_) * sizeof(double));
  return b;
}

}  // namespace kelva
