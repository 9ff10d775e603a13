#pragma once

#include <cstdint>

namespace kelva {

class Domain;

/// Learns the tables of the domain's learned nodes (chance nodes with an
/// experience table: discrete tables and CG parameters) from the stored
/// cases by EM
/// (k_domain_learn_tables), writing the learning log when the domain has
/// one.  Throws Error: usage (no cases, a total case count of 0, no
/// experience table), not_compiled, the error of a failed propagation
/// (a case impossible under the current tables), io (a log write).
///
/// Evidence entered before the call is retracted.  On success the domain
/// is propagated without evidence; on failure every learned table is put
/// back as it was before the call.
void learn_tables(Domain& domain);

/// The sum over the stored cases of count times log P(case) under the
/// current tables (k_domain_get_log_likelihood), P(case) being a density
/// when the case has continuous values; 0 without cases.  The
/// value is cached in the domain until a table changes.  Retracts the
/// entered evidence and leaves the domain propagated without evidence.
/// Error(not_compiled), or the error of a failed propagation.
double log_likelihood(Domain& domain);

/// The number of free parameters of the domain's chance nodes: (states - 1)
/// per parent configuration of a discrete node; for a continuous node with
/// c continuous parents, k + 1 per configuration of its discrete parents,
/// k = c + 1 being its regression parameters (intercept and coefficients)
/// and the 1 its variance.
double free_parameters(const Domain& domain);

/// Log-likelihood minus the number of free parameters.
double aic(Domain& domain);
/// Log-likelihood minus half the number of free parameters times the log
/// of the total case count; Error(usage) when that count is not above 0.
double bic(Domain& domain);

}  // namespace kelva
