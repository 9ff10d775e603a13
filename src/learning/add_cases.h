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

}  // namespace kelva
