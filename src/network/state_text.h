#pragma once

#include <cstddef>
#include <string>

namespace kelva {

class Node;

/// `text` between double quotes with the NET escapes: \t \n \r \" \\, other
/// bytes outside printable ASCII in octal (three digits when an octal digit
/// follows, so that the reader does not take it into the escape).
std::string quote_net_string(const std::string& text);

/// `value` printed with the printf format `format` (one double conversion);
/// the caller holds the "C" locale.
std::string format_number(const char* format, double value);
/// As above, but with `digits` significant digits ("%.*G") when `digits`
/// is not 0; 17 digits read back as the same double.
std::string format_number(const char* format, double value, int digits);

/// A state value as NET text: "infinity" / "-infinity" at or beyond the
/// largest finite double, "%.8G" (or `digits` significant digits, when not
/// 0) otherwise.
std::string format_state_value(double value, int digits = 0);

/// State `state` of discrete `node` as case files write a selected state:
/// the quoted label of a label node when it is non-empty and no other state
/// has it, "false"/"true" for a boolean node, the state value ("%G") of a
/// number node whose values increase, and "#" with the index otherwise.
/// The caller holds the "C" locale.
std::string case_state_text(const Node& node, std::size_t state);

}  // namespace kelva
