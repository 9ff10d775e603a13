#pragma once

#include <cstdio>

#include "kelva/kelva.h"

namespace kelva {

class Domain;

/// Reads a domain from NET text in an open stream (messages carry line
/// numbers).  Returns the new domain, or throws Error (the "parse" code when
/// the text broke the grammar) with nothing left behind.  `file_name`, when
/// given, is kept with the domain.
Domain* read_net_domain(std::FILE* stream, const char* file_name,
                        k_parse_error_handler_t handler, void* data);

/// Reads a domain from NET text in memory (messages carry the count of
/// characters consumed).
Domain* read_net_domain(const char* text, k_parse_error_handler_t handler, void* data);

}  // namespace kelva
