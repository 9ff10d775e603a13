#pragma once
// A whole file in memory, read-only and without a copy: its pages are mapped
// straight from the system's file cache, which for files of tens of
// megabytes is several times faster than reading them into a buffer.

#include <cstddef>
#include <cstdio>
#include <string_view>

namespace kelva::platform {

class MappedFile {
 public:
  MappedFile() = default;
  MappedFile(const MappedFile&) = delete;
  MappedFile& operator=(const MappedFile&) = delete;
  ~MappedFile();

  /// Maps all of the open `file`. False when it cannot be mapped (a pipe, an
  /// empty file, a system without maps): the caller reads it instead.
  bool map(std::FILE* file) noexcept;

  /// The mapped bytes; empty before a successful map().
  std::string_view text() const noexcept { return {static_cast<const char*>(data_), size_}; }

 private:
  void* data_ = nullptr;
  std::size_t size_ = 0;
};

}  // namespace kelva::platform
