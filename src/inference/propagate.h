#pragma once

#include "kelva/kelva.h"

namespace kelva {

class Clique;
class Domain;
class JunctionTree;

/// Propagates every junction tree of the compiled `domain` (k_domain_propagate).
/// Throws Error (usage, not_compiled, compressed, invalid_evidence,
/// cg_evidence_incorporated, inconsistency_or_underflow, overflow,
/// no_memory); after a failure every tree is reset (equilibrium none) and
/// the next propagation starts from the node tables.
///
/// Decision nodes take part as chance nodes whose tables are their policies.
/// Continuous nodes contribute nothing to the discrete part of their cliques
/// (their densities integrate to one), so discrete beliefs are exact as long
/// as no continuous evidence is entered; entered continuous evidence is
/// refused with cg_evidence_incorporated.
void propagate_domain(Domain& domain, k_equilibrium_t equilibrium, k_evidence_mode_t mode);

/// Propagates one tree, with `root` as root clique (null: the tree's root).
/// The checks and the failure rule are those of propagate_domain, for this
/// tree alone.
void propagate_tree(JunctionTree& tree, Clique* root, k_equilibrium_t equilibrium,
                    k_evidence_mode_t mode);

/// Brings every tree of the compiled `domain` back to its node tables: the
/// equilibrium becomes none, the propagated evidence is forgotten (so that
/// all entered evidence is to be propagated) and the clique tables are
/// initialised again by the next propagation (k_domain_initialize).
/// Error(not_compiled).
void initialise_domain(Domain& domain);

/// As initialise_domain, but the clique tables are rebuilt from the node
/// tables at once (k_domain_reset_inference_engine); Error(no_memory) leaves
/// the trees reset all the same.
void reset_inference_engine(Domain& domain);

/// Whether discrete trees propagate with one sweep per clique and pass (the
/// default) or with one kernel per table operation; both give the same
/// bits.  For tests and measurements.
void set_fused_sweeps(bool on) noexcept;

/// Whether one-thread sweeps go through the tree's SweepPlan (the default)
/// or choose their kernels sweep by sweep; both give the same bits.  For
/// tests and measurements.
void set_sweep_plans(bool on) noexcept;

}  // namespace kelva
