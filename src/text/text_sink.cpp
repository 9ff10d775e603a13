#include <cstring>

#include "network/error.h"
#include "text/net_writer.h"

namespace kelva {

void TextSink::write(const char* text) {
  if (file_ != nullptr) {
    if (std::fputs(text, file_) == EOF) throw Error(K_ERROR_IO);
    return;
  }
  // The buffer starts at 4000 bytes and doubles, or grows to exactly what is
  // needed when doubling is not enough.
  const std::size_t length = std::strlen(text);
  const std::size_t needed = buffer_.size() + length + 1;
  if (needed > buffer_.capacity()) {
    std::size_t grown = buffer_.capacity() < 4000 ? 4000 : 2 * buffer_.capacity();
    buffer_.reserve(grown > needed ? grown : needed);
  }
  buffer_.append(text, length);
}

}  // namespace kelva
