#pragma once

#include <cstdint>
#include <string>

#include "domain_handle.h"
#include "options.h"

namespace kelva::cli {

/// Opens the network named by `source`; throws UsageError for an unknown
/// example and ApiError when the library fails.
DomainHandle open_network(const NetworkSource& source);

/// A parse error handler printing FILE:LINE: MESSAGE on standard error;
/// `data` is the file name.
void print_parse_error(uint64_t line, const char* message, void* data);

/// How reports name the network of `source`.
std::string source_name(const NetworkSource& source);

}  // namespace kelva::cli
