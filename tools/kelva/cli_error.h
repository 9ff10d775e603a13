#pragma once

#include <stdexcept>
#include <string>

#include "kelva/kelva.h"

namespace kelva::cli {

/// Exit status of a run that failed inside the library or on output.
inline constexpr int kExitFailure = 1;
/// Exit status of a command line that could not be understood.
inline constexpr int kExitUsage = 2;

/// A command line the tool cannot run; printed with a hint to --help.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A failure with one of the library's error codes, printed as
/// "kelva: NAME: MESSAGE" (exit status 1).
class ApiError : public std::runtime_error {
 public:
  /// The library's own description of `code`.
  explicit ApiError(k_error_t code);
  /// `message` says in the user's terms what went wrong.
  ApiError(k_error_t code, const std::string& message);
  /// The library's error code.
  k_error_t code() const { return code_; }
  /// False when the reader's messages on standard error already said it all.
  bool printed() const { return printed_; }
  /// An error whose messages are already on standard error.
  static ApiError already_reported(k_error_t code);

 private:
  k_error_t code_;
  bool printed_ = true;
};

/// Returns `result` of the library call just made, or throws ApiError when
/// that call left an error code (every call sets the code on entry).
template <class T>
T checked(T result) {
  if (k_error_t code = k_error_code(); code != K_ERROR_NONE) throw ApiError(code);
  return result;
}

/// How a library call used the file it was given.
enum class FileUse { read, write };

/// The error of the library call on `path` that just failed: an "io" error
/// names the file and the system's reason, a "parse" error whose reader
/// messages were printed adds nothing, others carry the library's text.
ApiError file_error(const std::string& path, FileUse use);

/// An "io" error naming `path` and the system's reason it cannot be used
/// (errno, as the failed call left it, or what probing the file finds).
ApiError io_error(const std::string& path, FileUse use);

/// Throws file_error(path, use) when the library call just made on `path`
/// left an error code.
template <class T>
T checked_file(T result, const std::string& path, FileUse use) {
  if (k_error_code() != K_ERROR_NONE) throw file_error(path, use);
  return result;
}

/// Counts the reader messages printed since the last call, and resets the count.
int take_reader_messages();

/// A parse error handler printing FILE:LINE: MESSAGE on standard error, with
/// control bytes and invalid UTF-8 of the message written as \xHH; `data`
/// is the file name.
void print_parse_error(uint64_t line, const char* message, void* data);

/// `text` with control bytes, DEL and bytes outside valid UTF-8 as \xHH.
std::string printable(const std::string& text);

}  // namespace kelva::cli
