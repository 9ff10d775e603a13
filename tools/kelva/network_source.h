#pragma once

#include <string>

#include "domain_handle.h"
#include "options.h"

namespace kelva::cli {

/// Opens the network named by `source`; throws UsageError for an unknown
/// example and ApiError when the library fails.
DomainHandle open_network(const NetworkSource& source);

/// How reports name the network of `source`.
std::string source_name(const NetworkSource& source);

}  // namespace kelva::cli
