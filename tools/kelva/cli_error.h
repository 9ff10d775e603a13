#pragma once

#include <stdexcept>
#include <string>

#include "kelva/kelva.h"

namespace kelva::cli {

/// Exit status of a run that failed inside the library or on output.
inline constexpr int exit_failure = 1;
/// Exit status of a command line that could not be understood.
inline constexpr int exit_usage = 2;

/// A command line the tool cannot run; printed with a hint to --help.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A library call that left a non-zero error code behind.
class ApiError : public std::runtime_error {
 public:
  /// Captures `code` with its name and description.
  explicit ApiError(k_error_t code);
  /// The library's error code.
  k_error_t code() const { return code_; }

 private:
  k_error_t code_;
};

/// Returns `result` of the library call just made, or throws ApiError when
/// that call left an error code (every call sets the code on entry).
template <class T>
T checked(T result) {
  if (k_error_t code = k_error_code(); code != K_ERROR_NONE) throw ApiError(code);
  return result;
}

}  // namespace kelva::cli
