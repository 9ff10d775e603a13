#pragma once

#include <string>

#include "kelva/kelva.h"
#include "options.h"

namespace kelva::cli {

/// The discrete node called `name`; throws UsageError naming `option` when
/// there is none or it is not discrete.
k_node_t discrete_node(k_domain_t domain, const std::string& name, const char* option);

/// The state of `node` (called `name`) named by `text`: "#INDEX" or a label.
/// Throws UsageError naming `option` and listing the states when there is no
/// such state or more than one state has that label.
k_size_t find_state(k_node_t node, const std::string& name, const std::string& text,
                    const char* option);

/// Enters the evidence of the command line on the compiled `domain`: the
/// findings of the --case file, then each --set NODE=STATE (the state a
/// label or #INDEX).  Throws UsageError for an unknown node or state, and
/// the reader's errors for the case file.
void enter_evidence(k_domain_t domain, const Options& options);

}  // namespace kelva::cli
