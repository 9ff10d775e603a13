#pragma once

#include "kelva/kelva.h"
#include "options.h"

namespace kelva::cli {

/// Enters the evidence of the command line on the compiled `domain`: the
/// findings of the --case file, then each --set NODE=STATE (the state a
/// label or #INDEX).  Throws UsageError for an unknown node or state, and
/// the reader's errors for the case file.
void enter_evidence(k_domain_t domain, const Options& options);

}  // namespace kelva::cli
