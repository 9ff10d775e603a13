// The error functions of the C API: the per-thread code and the table lookups.
#include "network/error.h"

#include "platform/thread_slot.h"

extern "C" {

k_error_t k_error_set(k_error_t code) {
  kelva::platform::error_slot() = kelva::find_error(code);
  return code;
}

k_error_t k_error_code(void) {
  // Null is "none" (every function starts with it), read without the table.
  const void* slot = kelva::platform::error_slot();
  if (slot == nullptr) return K_ERROR_NONE;
  return static_cast<k_error_t>(static_cast<const kelva::ErrorEntry*>(slot)->code);
}

const char* k_error_name(k_error_t code) { return kelva::error_name(code); }

const char* k_error_description(k_error_t code) { return kelva::error_description(code); }

}  // extern "C"
