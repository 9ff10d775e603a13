#pragma once

#include <string>
#include <string_view>

namespace kelva {

/// `text` with the escape sequences of NET strings decoded as the lexer
/// decodes them: \" \' \? \\ \a \b \f \n \r \t \v, \x with hex digits (low
/// eight bits kept), one to three octal digits; a backslash before a
/// newline joins the lines.  A backslash that starts no escape is kept.
std::string remove_escape_sequences(std::string_view text);

}  // namespace kelva
