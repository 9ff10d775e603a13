#pragma once

namespace kelva {

/// Whether `name` is a valid name: one C identifier (letter or underscore,
/// then letters, digits, underscores under the "C" locale), or, when
/// `dotted` is true, identifiers joined by single dots (node names of
/// ordinary domains, as in unfolded instances: a.b).  Throws the "locale"
/// error when the "C" locale cannot be established.
bool is_valid_name(const char* name, bool dotted);

}  // namespace kelva
