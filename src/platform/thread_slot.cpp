#include "platform/thread_slot.h"

namespace kelva::platform {

const void*& error_slot() noexcept {
  thread_local const void* slot = nullptr;
  return slot;
}

}  // namespace kelva::platform
