#pragma once

namespace kelva {

class Domain;

// Learning the tables of classes from a domain made from them (by
// create_domain or create_dbn_domain): every copy of a class node in the
// domain shares the class node's table.  A copy is found through its source
// list (the class node is its last entry); the class nodes learned are the
// discrete chance nodes with an experience table, whose entries give the
// prior counts (EM), the counts (fractional updating) or the running
// statistics (online EM), a negative entry marking a row that is kept.
// New tables go to the class node, every copy in the domain and, for a
// window, the predictor and the clones' own priors.  A window's first-slice
// clones share their class clone's table only at offset 0 (later, they hold
// the filtered past).  Learning from the stored cases starts from the class
// tables (written into every copy first); adaptation takes the posterior
// under the domain's tables as they are.
//
// Every function throws Error: usage when the domain's nodes have no source
// lists (not made from classes, or a node of the classes was deleted since),
// when no class node is learned, or when a copy's table lost the shape of
// its class node's table; not_compiled.  A failure changes no table.

/// EM over the stored cases with tied tables: learn_tables's passes, log
/// and stopping rule.  The evidence is retracted, and the domain is left
/// propagated without evidence.
void learn_class_tables(Domain& domain);

/// One pass of fractional updating over the stored cases, in order: per
/// case (propagated alone) and per copy in node order, the adaptation rule
/// of adapt_domain on the class node's counts, the case's count scaling
/// what it adds.  Error(compressed) for a compressed domain.
void learn_class_tables_by_fractional_update(Domain& domain);

/// Online EM over the stored cases, in order: for the n-th case
/// (n = 1, 2, ...), the statistics s of each class node (row counts e_j
/// times table p_jk, kept in the experience and conditional tables) become
/// (1 - g) s + g S, S being the case's expected counts summed over the
/// copies and g = n^-rate; each row is then normalised.  `rate` must lie in
/// (0.5, 1].  The domain's online step count is set to the cases used.
void learn_class_tables_by_online_em(Domain& domain, double rate);

/// The fractional updating step of one case from the evidence now
/// propagated (as adapt_domain; its errors too).
void adapt_class_tables_by_fractional_update(Domain& domain);

/// One online EM step from the evidence now propagated, n being one more
/// than the domain's online step count (which it increments).
void adapt_class_tables_by_online_em(Domain& domain, double rate);

}  // namespace kelva
