#include "predict_output.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "cli_error.h"

namespace kelva::cli {

PredictOutput::PredictOutput(const std::string& path) : path_(path) {
  fd_ = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (fd_ < 0) fail();
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
  const int fd = fd_;
  fd_ = -1;
  if (::close(fd) != 0) fail();
}

}  // namespace kelva::cli
