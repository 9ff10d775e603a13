#include "predict_output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "cli_error.h"

namespace kelva::cli {

namespace {

/// Bytes a block past the cache, and its alignment (of address, size and
/// file offset), a multiple of any device's logical block.
constexpr std::size_t kBlock = std::size_t{1} << 20;
constexpr std::size_t kAlign = 4096;

}  // namespace

void PredictOutput::Free::operator()(char* p) const noexcept { std::free(p); }

PredictOutput::PredictOutput(const std::string& path, bool direct) : path_(path) {
  fd_ = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (fd_ < 0) fail();
  struct stat st {};
  if (!direct || ::fstat(fd_, &st) != 0 || !S_ISREG(st.st_mode)) return;
  // A file system without direct writes refuses the flag here (or the first
  // block, below).
  const int flags = ::fcntl(fd_, F_GETFL);
  if (flags < 0 || ::fcntl(fd_, F_SETFL, flags | O_DIRECT) != 0) return;
  block_.reset(static_cast<char*>(std::aligned_alloc(kAlign, kBlock)));
  direct_ = block_ != nullptr;
  if (!direct_) stop_direct();
}

PredictOutput::~PredictOutput() {
  if (fd_ >= 0) ::close(fd_);
}

void PredictOutput::fail() const {
  if (!stream_) throw io_error(path_, FileUse::write);
  throw ApiError(K_ERROR_IO, "cannot write the output");
}

void PredictOutput::write(const char* data, std::size_t size) {
  if (stream_) {
    if (std::fwrite(data, 1, size, stream_) != size) fail();
    return;
  }
  if (!direct_) return write_all(data, size);
  while (size > 0) {
    const std::size_t n = std::min(size, kBlock - held_);
    std::memcpy(block_.get() + held_, data, n);
    held_ += n;
    data += n;
    size -= n;
    if (held_ == kBlock) write_block();
  }
}

void PredictOutput::write_block() {
  const ssize_t n = ::write(fd_, block_.get(), kBlock);
  if (n == static_cast<ssize_t>(kBlock)) {
    held_ = 0;
    return;
  }
  // Refused (EINVAL where the file system takes the flag but not the
  // write), or written in part: the rest goes through the cache.
  if (n < 0 && errno != EINVAL) fail();
  const std::size_t done = n < 0 ? 0 : static_cast<std::size_t>(n);
  stop_direct();
  write_all(block_.get() + done, kBlock - done);
  held_ = 0;
}

void PredictOutput::stop_direct() {
  direct_ = false;
  const int flags = ::fcntl(fd_, F_GETFL);
  if (flags < 0 || ::fcntl(fd_, F_SETFL, flags & ~O_DIRECT) != 0) fail();
}

void PredictOutput::write_all(const char* data, std::size_t size) {
  while (size > 0) {
    const ssize_t n = ::write(fd_, data, size);
    if (n < 0) {
      if (errno == EINTR) continue;
      fail();
    }
    data += n;
    size -= static_cast<std::size_t>(n);
  }
}

void PredictOutput::finish() {
  if (stream_) return;
  if (direct_) {
    // The tail is not a whole block: written through the cache.
    stop_direct();
    write_all(block_.get(), held_);
    held_ = 0;
  }
  const int fd = fd_;
  fd_ = -1;
  if (::close(fd) != 0) fail();
}

}  // namespace kelva::cli
