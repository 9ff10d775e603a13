#pragma once
// Class handles: a class handle is the address of the class's body.

#include "kelva/kelva.h"
#include "network/class.h"
#include "network/domain.h"
#include "network/error.h"

namespace kelva::capi {

/// The class of a handle; Error(usage) for anything else.
inline Class& get_class(k_class_t h) {
  auto* d = reinterpret_cast<Domain*>(h);
  require(d != nullptr && d->is(ObjectTag::domain) && d->owner_class != nullptr);
  return *d->owner_class;
}

/// The handle of a class, null for none.
inline k_class_t class_handle(Class* cls) noexcept {
  return cls == nullptr ? nullptr : reinterpret_cast<k_class_t>(&cls->body());
}

}  // namespace kelva::capi
