#pragma once

#include <exception>
#include <string>
#include <utility>

#include "kelva/kelva.h"

namespace kelva {

/// One row of the error table.
struct ErrorEntry {
  int code;
  const char* name;
  const char* description;
};

/// The entry of `code`, or null for a code outside the table (negative,
/// above 48, or one of the reserved 44..46).
const ErrorEntry* find_error(int code) noexcept;

/// The name and description of `code`, or "no_such_error" and "No such
/// error." for a code outside the table.
const char* error_name(int code) noexcept;
const char* error_description(int code) noexcept;

/// A failure inside the engine: a code and, optionally, a message that says
/// more.  Thrown by engine code and turned into the thread's error code at
/// the C boundary (capi/boundary.h); never crosses it.
class Error : public std::exception {
 public:
  explicit Error(k_error_t code) noexcept : code_(code) {}
  Error(k_error_t code, std::string message) noexcept : code_(code), message_(std::move(message)) {}
  k_error_t code() const noexcept { return code_; }
  /// The message, or the empty text when there is none.
  const std::string& message() const noexcept { return message_; }
  /// The message when there is one, else the code's name.
  const char* what() const noexcept override;

 private:
  k_error_t code_;
  std::string message_;
};

/// Throws Error(code) unless `condition` holds.
inline void require(bool condition, k_error_t code = K_ERROR_USAGE) {
  if (!condition) throw Error(code);
}

}  // namespace kelva
