#pragma once

#include <string>

#include "domain_handle.h"
#include "options.h"
#include "progress.h"

namespace kelva::cli {

/// Opens the network named by `source`; throws UsageError for an unknown
/// example and ApiError when the library fails.
DomainHandle open_network(const NetworkSource& source, const Progress& progress);

/// Whether `file` names a KB file (it ends in ".kb").
bool is_kb_file(const std::string& file);

/// Refuses, with the code compiling would give, a network `name` without
/// nodes or with a discrete chance node whose table is all zeros (nothing
/// is possible), before a compilation spends time and memory on it.
void check_compilable(k_domain_t domain, const std::string& name);

/// Compiles `domain`, called `name`, after check_compilable, triangulating
/// it with `method` first unless that is best-greedy.  A total-weight search
/// bounded by `max_separators` (> 0) starts from the best greedy
/// triangulation.
void compile_network(k_domain_t domain, const std::string& name, const Progress& progress,
                     k_triangulation_method_t method = K_TM_BEST_GREEDY, long max_separators = 0);

/// The states of `node` as "a, b, c" (#INDEX for an unlabelled state).
std::string state_list(k_node_t node);

/// How reports name the network of `source`.
std::string source_name(const NetworkSource& source);

}  // namespace kelva::cli
