#pragma once
// The network file formats the tool reads and writes, chosen by the file's
// extension: .bif, .xmlbif (or .xml), .uai, and NET for anything else.

#include <string>

#include "kelva/kelva.h"

namespace kelva::cli {

struct NetworkFormat {
  const char* name;
  k_domain_t (*parse)(const char* file_name, k_parse_error_handler_t handler, void* data);
  /// Null for a format that is read only.
  k_status_t (*save)(k_domain_t domain, const char* file_name);
};

/// The format of `file` by its extension (case ignored).
const NetworkFormat& network_format(const std::string& file);

}  // namespace kelva::cli
