// The JSON objects by which items are told to the extension.
#pragma once

#include <sys/stat.h>

#include <string>
#include <string_view>

namespace brindlemar::host {

/// Appends the text as a JSON string (RFC 8259); it must be UTF-8.
void appendQuoted(std::string& json, std::string_view text);

struct ItemText {
    std::string_view name;
    std::string_view itemID;
    std::string_view parentID;
};
/// Appends {"name":...,"size":...,"folder":...,"parentID":...,"itemID":...,"mtime":...,"atime":...,"permissions":...}:
/// bytes, seconds since 1970 between 0 and 4294967295, and the nine mode bits as a decimal number.
void appendItem(std::string& json, const ItemText& item, const struct stat& status);

} // namespace brindlemar::host
