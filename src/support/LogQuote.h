// Values of a log line as JSON strings.
#pragma once

#include "support/LogLine.h"

namespace brindlemar {

/// Appends the value in the string form of RFC 8259: `"` and `\` behind a backslash, control characters as \b \f \n
/// \r \t or \u00xx with lowercase digits, everything else, "/" and non-ASCII characters included, as it is. A value
/// that is not UTF-8 has no such form and is appended raw, without quotes.
void appendQuoted(LogLine& line, std::string_view value);

} // namespace brindlemar
