#pragma once

namespace kelva {

class Domain;

/// Compiles `domain` (k_domain_compile): triangulates by best greedy unless
/// triangulated, regenerates model tables, checks the probability tables
/// when a log is set, propagates once and writes the belief report.  Throws
/// Error; a failure leaves the domain as triangulated as it was.
void compile_domain(Domain& domain);

}  // namespace kelva
