// Texts of others on the user's terminal.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace brindlemar::cli {

/// The text with control characters and bytes that are no UTF-8 written as \n, \t, \x1b and so on, and "\" as "\\".
std::string escaped(std::string_view text);

/// The text with other control characters than line ends and tabs written so; everything else stays.
std::string withoutControls(std::string_view text);

/// Seconds since 1970 as local time, "2024-03-05 13:07".
std::string localTime(double seconds);

/// "1 file", "2 files".
std::string counted(std::size_t count, const char* what);

/// "512 B", "1.2 MB": powers of a thousand.
std::string byteCount(double bytes);

/// The path of a file URL as absoluteString() writes it; none when it is no such URL.
std::optional<std::string> pathOfFileURL(std::string_view url);

} // namespace brindlemar::cli
