#pragma once

#include "kelva/kelva.h"
#include "options.h"

namespace kelva::cli {

/// Appends the cases of `options.data` to the domain's stored cases: a data
/// set file (.csv: comma-separated, a header of node names, "*", "?" or an
/// empty field for a missing item, an optional "#" column of counts) row by
/// row, anything else as a multi-case data file.  With --discretize, the
/// numeric column of each interval chance node gets new interval bounds
/// from its values first (see discretize_columns).
void read_cases(k_domain_t domain, const Options& options);

}  // namespace kelva::cli
