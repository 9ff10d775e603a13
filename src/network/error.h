#pragma once

#include <exception>
#include <new>

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

/// A failure inside the engine.  Thrown by engine code and turned into the
/// thread's error code at the C boundary; never crosses it.
class Error : public std::exception {
 public:
  explicit Error(k_error_t code) noexcept : code_(code) {}
  k_error_t code() const noexcept { return code_; }
  const char* what() const noexcept override;

 private:
  k_error_t code_;
};

/// Runs `body` and turns whatever it throws into the thread's error code
/// (the engine's code for Error, "no_memory" for std::bad_alloc, "error"
/// otherwise) and the result `neutral`.  Nothing thrown gets past it.
template <class R, class F>
R catch_to_code(R neutral, F&& body) noexcept {
  try {
    return body();
  } catch (const Error& e) {
    k_error_set(e.code());
  } catch (const std::bad_alloc&) {
    k_error_set(K_ERROR_NO_MEMORY);
  } catch (...) {
    k_error_set(K_ERROR_ERROR);
  }
  return neutral;
}

/// Throws Error(code) unless `condition` holds.
inline void require(bool condition, k_error_t code = K_ERROR_USAGE) {
  if (!condition) throw Error(code);
}

}  // namespace kelva
