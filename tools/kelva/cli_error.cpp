#include "cli_error.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace kelva::cli {

namespace {

int reader_messages = 0;

/// Why `path` cannot be used as `use` says, as the system puts it: the
/// file is probed again, because the library keeps only its "io" code.
/// `saved` is errno as the failed call left it, for failures the probe
/// cannot see (a full disk).
std::string io_reason(const std::string& path, FileUse use, int saved) {
  struct stat st {};
  if (::stat(path.c_str(), &st) == 0) {
    if (S_ISDIR(st.st_mode)) return std::strerror(EISDIR);
    const int fd = ::open(path.c_str(), (use == FileUse::read ? O_RDONLY : O_WRONLY) | O_NONBLOCK);
    if (fd < 0) return std::strerror(errno);
    ::close(fd);
  } else if (use == FileUse::read || errno != ENOENT) {
    return std::strerror(errno);
  } else {
    // A new file: its folder must exist and be writable.
    const std::size_t slash = path.find_last_of('/');
    const std::string folder = slash == std::string::npos ? "."
                               : slash == 0               ? "/"
                                                          : path.substr(0, slash);
    if (::access(folder.c_str(), W_OK | X_OK) != 0) return std::strerror(errno);
  }
  if (saved != 0) return std::strerror(saved);
  return use == FileUse::read ? "cannot read the file" : "cannot write the file";
}

/// Length of the valid UTF-8 sequence at text[i] (non-ASCII), or 0.
std::size_t utf8_length(const std::string& text, std::size_t i) {
  const auto byte = [&](std::size_t k) { return static_cast<unsigned char>(text[k]); };
  const unsigned char lead = byte(i);
  const std::size_t n = lead >= 0xF0 && lead <= 0xF4 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC2 ? 2 : 0;
  if (n == 0 || i + n > text.size()) return 0;
  for (std::size_t k = 1; k < n; ++k)
    if ((byte(i + k) & 0xC0) != 0x80) return 0;
  // Overlong forms, surrogates and code points above U+10FFFF.
  if ((lead == 0xE0 && byte(i + 1) < 0xA0) || (lead == 0xED && byte(i + 1) >= 0xA0) ||
      (lead == 0xF0 && byte(i + 1) < 0x90) || (lead == 0xF4 && byte(i + 1) >= 0x90))
    return 0;
  return n;
}

}  // namespace

ApiError::ApiError(k_error_t code)
    : std::runtime_error(std::string(k_error_name(code)) + ": " + k_error_description(code)),
      code_(code) {}

ApiError::ApiError(k_error_t code, const std::string& message)
    : std::runtime_error(std::string(k_error_name(code)) + ": " + message), code_(code) {}

ApiError ApiError::already_reported(k_error_t code) {
  ApiError e(code);
  e.printed_ = false;
  return e;
}

ApiError io_error(const std::string& path, FileUse use) {
  return ApiError(K_ERROR_IO, path + ": " + io_reason(path, use, errno));
}

ApiError file_error(const std::string& path, FileUse use) {
  const int saved = errno;
  const k_error_t code = k_error_code();
  const int messages = take_reader_messages();
  if (code == K_ERROR_IO) return ApiError(code, path + ": " + io_reason(path, use, saved));
  if (code == K_ERROR_PARSE && messages > 0) return ApiError::already_reported(code);
  return ApiError(code);
}

int take_reader_messages() {
  const int n = reader_messages;
  reader_messages = 0;
  return n;
}

std::string printable(const std::string& text) {
  std::string out;
  for (std::size_t i = 0; i < text.size();) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c >= 0x20 && c < 0x7F) {
      out += text[i++];
    } else if (const std::size_t n = c >= 0x80 ? utf8_length(text, i) : 0; n > 0) {
      out.append(text, i, n);
      i += n;
    } else {
      char escaped[5];
      std::snprintf(escaped, sizeof escaped, "\\x%02x", c);
      out += escaped;
      ++i;
    }
  }
  return out;
}

void print_parse_error(uint64_t line, const char* message, void* data) {
  ++reader_messages;
  std::fprintf(stderr, "%s:%llu: %s\n", static_cast<const char*>(data),
               static_cast<unsigned long long>(line), printable(message).c_str());
}

}  // namespace kelva::cli
