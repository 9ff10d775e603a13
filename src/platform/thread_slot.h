#pragma once

namespace kelva::platform {

/// The calling thread's error slot: a pointer to an entry of the error table,
/// null for "none" (the value every C function starts with).  Initial-exec
/// TLS: every C function sets it, and this model reads it at a fixed offset
/// from the thread pointer instead of calling __tls_get_addr.  Its eight
/// bytes come out of the static TLS room the loader keeps for libraries
/// opened later (a JVM opens this one with dlopen).
extern constinit thread_local const void* error_slot_value
    __attribute__((tls_model("initial-exec")));

inline const void*& error_slot() noexcept { return error_slot_value; }

}  // namespace kelva::platform
