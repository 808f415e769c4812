// Values as text, in the forms that log lines and files use.
#pragma once

#include "platform/Domain.h"
#include "platform/Timestamp.h"

#include <string>
#include <string_view>
#include <vector>

namespace brindlemar {

/// The shortest decimal text that reads back as the same double, with at least one fraction digit: "1.25", "3.0";
/// below 1e-4 and above 2^53 with an exponent: "1e-05", "1e+16".
std::string shortestText(double value);

/// "2024-03-05 13:07:09 +0000": UTC, the fraction dropped.
std::string timestampText(Timestamp time);

/// `["a", "b"]`, with \\ \" \' \0 \n \r \t and other control characters as \u{7F}.
std::string printedList(const std::vector<std::string>& texts);

/// "file://" and the path, percent-encoded (RFC 3986) but for letters, digits and -._~!$&'()*+,;=:@/ .
std::string absoluteString(const FileURL& url);

/// An XML property list whose root is an array of strings.
std::string propertyList(const std::vector<std::string>& strings);

/// Pieces between the separators; empty pieces are kept.
std::vector<std::string_view> split(std::string_view text, char separator);

} // namespace brindlemar
