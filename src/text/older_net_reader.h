#pragma once

#include <cstdio>

#include "kelva/kelva.h"

namespace kelva {

class Domain;
class Lexer;

/// Reads a whole file of the older network format (a header, then node
/// entries; docs/decisions/older_network_format.md) into the empty domain
/// `domain`.  Installs the word reader on `lexer`.  Errors go through the
/// lexer; a structural one stops the parse (throws Error after reporting),
/// undefined names are counted.  The caller deletes the domain on failure.
void read_older_net(Lexer& lexer, Domain& domain);

/// Reads node entries of the older network format (no header) from an open
/// stream into `domain`: names of nodes already there may be used as
/// parents, never redefined.  Throws Error ("parse", or the code of a failed
/// engine operation or read) after reporting; the nodes the file created are
/// then deleted again (a compiled domain may be left uncompiled).
void read_older_nodes(Domain& domain, std::FILE* stream, k_parse_error_handler_t handler,
                      void* data);

}  // namespace kelva
