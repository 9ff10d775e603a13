#pragma once

namespace kelva {

class CompileLog;
class Domain;
class Forest;

/// Gives every chance, utility and discrete function node that has no table
/// yet its default table (the one it would get on first request), writing
/// the "Checking tables for all nodes" section with one warning per such
/// node.  Members of chain-graph components have no table of their own and
/// decision nodes none at all; they are left alone.  Throws Error (io,
/// no_memory); tables given before a failure stay.
void give_default_tables(Domain& domain, const CompileLog& log);

/// Assigns every node table and chain-graph potential to a clique of
/// `forest` (whose clique tables exist), fills in the node records (tree,
/// assigned clique and plan, home clique and plan, marginal), the trees'
/// node lists and the component records, and writes the "Assignment of
/// potentials to cliques" section.
///
/// A discrete node's table goes to the clique of smallest discrete size,
/// then of fewest CG entries, that holds it (the earlier clique on a tie);
/// a continuous node's to the clique nearest the root that holds it; a
/// utility node's and a component's by the same preference as a discrete
/// node's among all cliques that hold the table.  Throws Error(error) when
/// no clique holds a table, Error(io), Error(no_memory).
void assign_potentials(Forest& forest, const CompileLog& log);

}  // namespace kelva
