#pragma once

#include <cstdio>

#include "kelva/kelva.h"

namespace kelva {

class Domain;

/// Reads a SAS node file from an open stream into `domain`: one line per
/// node and state (name, optional `,`, type letter, and for L, N and I a
/// state).  Nodes that were in the domain before are never changed.  Stops
/// at the first error and throws Error ("parse", or the code of a failed
/// engine operation or read); the domain is then as it was, except that a
/// compiled domain is left uncompiled once a node had been created.
void read_sas_nodes(Domain& domain, std::FILE* stream, k_parse_error_handler_t handler, void* data);

/// Reads a SAS link file from an open stream into `domain`: one line per
/// child, its name followed by the names of its parents.  Stops at the first
/// error and throws Error; the links added before it are removed again and
/// the children's tables get their old contents back (a compiled domain is
/// left uncompiled once a link had been added).
void read_sas_links(Domain& domain, std::FILE* stream, k_parse_error_handler_t handler, void* data);

/// Reads a SAS table file from an open stream into the table of the chance
/// node its header names (docs/decisions/sas_files.md): a header line of the
/// node and its discrete parents (for a continuous node then `alpha`, its
/// continuous parents and `variance`), then one line per configuration of
/// the discrete parents.  Stops at the first error and throws Error; the
/// table is changed only when the whole file was read.
void read_sas_table(Domain& domain, std::FILE* stream, k_parse_error_handler_t handler, void* data);

}  // namespace kelva
