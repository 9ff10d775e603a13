#pragma once

#include <memory>
#include <type_traits>

#include "kelva/kelva.h"

namespace kelva::cli {

/// Deletes a domain when its owner goes away.
struct DomainDeleter {
  /// Frees the domain and everything it owns.
  void operator()(k_domain_t domain) const { k_domain_delete(domain); }
};

/// An owned domain.
using DomainHandle = std::unique_ptr<std::remove_pointer_t<k_domain_t>, DomainDeleter>;

}  // namespace kelva::cli
