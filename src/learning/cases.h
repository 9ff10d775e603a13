#pragma once

#include <cstddef>

namespace kelva {

class DataSet;
class Domain;

/// The name of the column that gives each case its count.
inline constexpr const char* kCountColumn = "#";

/// Appends rows first .. first+count-1 of `data` to the domain's stored
/// cases.  Columns are matched to nodes by name; a column without a node,
/// or naming a node that cannot hold case items, is ignored; the column
/// kCountColumn gives the counts.  A cell becomes an item as documented at
/// k_domain_add_cases.  Throws Error ("usage" for a cell that names no state
/// or value, "case_state_too_large") and then leaves the stored cases as
/// they were.  The caller checked the row range.
void add_cases(Domain& domain, const DataSet& data, std::size_t first, std::size_t count);

/// Whether stored case `c` can be entered as evidence: `c` names a case, the
/// domain takes evidence, and every item fits its node (a state below the
/// node's state count, a finite value).  The store keeps its items that
/// way, so this fails only for a bad index or a domain without evidence.
bool case_can_be_entered(const Domain& domain, std::size_t c) noexcept;

/// Makes stored case `c` the evidence of every node: each discrete node with
/// a state in the case gets that state selected, each continuous node with a
/// value gets the value, and every other node has its evidence retracted.
/// Never fails when case_can_be_entered(domain, c).
void enter_case_evidence(Domain& domain, std::size_t c);

}  // namespace kelva
