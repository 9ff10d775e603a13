#pragma once

#include <memory>

namespace kelva {

/// How objects of type T are destroyed.  The network owns objects that
/// higher layers define (a node's table and model, a domain's junction
/// forest); the defining layer registers the function from the object's
/// constructor, so it is set before any such object exists and the owner
/// needs neither the type's definition nor a link to the layer above.
template <class T>
struct Destroy {
  static inline void (*registered)(T*) noexcept = nullptr;

  void operator()(T* object) const noexcept { registered(object); }
};

/// An owning pointer to an object that a higher layer defines.
template <class T>
using Owned = std::unique_ptr<T, Destroy<T>>;

}  // namespace kelva
