#pragma once

#include <cstdint>
#include <vector>

namespace kelva {

class Domain;
class Node;

/// The tables a run of EM learns when they are tied (learning/class_tables.h):
/// the run gathers the expected family counts of `nodes()` and hands them to
/// `maximize` instead of normalising each node's own counts.
class TiedTables {
 public:
  virtual ~TiedTables() = default;
  /// The discrete chance nodes of the domain whose counts are gathered.
  virtual const std::vector<Node*>& nodes() const noexcept = 0;
  /// The M-step: `counts[i]` holds the expected counts of the family of
  /// `nodes()[i]` over every case, in its table's order (null when the node
  /// has no place in the forest).
  virtual void maximize(const std::vector<const std::vector<double>*>& counts) = 0;
  /// Puts back every table changed since the run began.
  virtual void restore() noexcept = 0;
};

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

/// learn_tables with the tables tied by `tied`: the same passes, log lines
/// and stopping rule, with `tied.maximize` as the M-step.  The nodes'
/// experience tables take no part (`tied` owns prior counts).  Throws as
/// learn_tables; Error(usage) when `tied` names no node.
void learn_tied_tables(Domain& domain, TiedTables& tied);

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
