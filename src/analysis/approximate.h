#pragma once

namespace kelva {

class Domain;

/// Approximates the compiled, propagated `domain` without evidence
/// (k_domain_approximate): in each clique table (normalized, so that its
/// entries are the probabilities of the clique's configurations) the
/// smallest entries are set to zero for as long as their total stays at
/// most `epsilon` (0 <= epsilon < 1; equal entries in index order), the
/// forest is compressed so that those entries stay zero, and the domain is
/// propagated again.  Returns the approximation constant: the probability
/// mass the approximated forest keeps (the new normalization constant over
/// the old), at most 1.
///
/// Error(usage) for epsilon out of range, evidence entered or propagated,
/// max equilibrium, or a domain that cannot be compressed (chain-graph
/// components, utility nodes, continuous members); Error(not_compiled);
/// Error(no_equilibrium); Error(compressed) on a compressed domain; the
/// errors of compression and propagation.  On failure the clique tables
/// get their values back.
double approximate_domain(Domain& domain, double epsilon);

/// The constant of the last approximation on this compilation; 1 when the
/// domain was not approximated.  Error(not_compiled).
double approximation_constant(const Domain& domain);

}  // namespace kelva
