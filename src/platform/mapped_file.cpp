#include "platform/mapped_file.h"

#include <sys/mman.h>
#include <sys/stat.h>

#include <cstdint>

namespace kelva::platform {

MappedFile::~MappedFile() {
  if (data_ != nullptr) munmap(data_, size_);
}

bool MappedFile::map(std::FILE* file) noexcept {
  if (data_ != nullptr || file == nullptr) return false;
  const int fd = fileno(file);
  struct stat info {};
  if (fd < 0 || fstat(fd, &info) != 0 || !S_ISREG(info.st_mode) || info.st_size <= 0 ||
      static_cast<std::uintmax_t>(info.st_size) > SIZE_MAX)
    return false;
  const auto size = static_cast<std::size_t>(info.st_size);
  // Populated at once: one pass over the page tables instead of a fault per
  // page as the reader walks the text.
  void* data = mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_POPULATE, fd, 0);
  if (data == MAP_FAILED) return false;
  data_ = data;
  size_ = size;
  return true;
}

}  // namespace kelva::platform
