#pragma once

#include <memory>
#include <string>
#include <type_traits>

#include "domain_handle.h"
#include "kelva/kelva.h"

namespace kelva::cli {

struct ClassCollectionDeleter {
  void operator()(k_class_collection_t cc) const noexcept { k_cc_delete(cc); }
};
using ClassCollectionHandle =
    std::unique_ptr<std::remove_pointer_t<k_class_collection_t>, ClassCollectionDeleter>;

/// True when the first word of the NET file `path` is `class`.
bool holds_classes(const std::string& path);
/// The classes of the NET file `path`; the reader's messages are printed.
ClassCollectionHandle read_classes(const std::string& path);
/// The class `name` of the collection read from `path` (its last class
/// when `name` is empty).
k_class_t choose_class(k_class_collection_t cc, const std::string& path, const std::string& name);
/// The class `name` of `path` (the file's last class when `name` is empty)
/// unfolded into a domain.
DomainHandle unfold_class(const std::string& path, const std::string& name);

}  // namespace kelva::cli
