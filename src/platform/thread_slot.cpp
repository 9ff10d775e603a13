#include "platform/thread_slot.h"

namespace kelva::platform {

constinit thread_local const void* error_slot_value = nullptr;

}  // namespace kelva::platform
