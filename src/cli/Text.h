// Texts of others on the user's terminal.
#pragma once

#include <string>
#include <string_view>

namespace brindlemar::cli {

/// The text with control characters and bytes that are no UTF-8 written as \n, \t, \x1b and so on, and "\" as "\\".
std::string escaped(std::string_view text);

/// Seconds since 1970 as local time, "2024-03-05 13:07".
std::string localTime(double seconds);

/// "1 file", "2 files".
std::string counted(std::size_t count, const char* what);

} // namespace brindlemar::cli
