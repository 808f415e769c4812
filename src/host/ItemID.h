// Item IDs: how files below a served directory are named to the extension.
//
// An ID is the path below the directory, "photos/a.jpg"; "0" is the directory itself. In IDs "%" is written %25 and "|"
// %7C, because the extension splits identifiers at "|". A file in the directory itself whose name would be taken for
// one of the extension's own IDs ("0", "00", "root", NSFileProvider...) has its first character written as %XX.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace brindlemar::host {

inline constexpr std::string_view kTopID = "0";

/// True for the IDs by which the extension may call the directory itself.
bool isTopID(std::string_view id);

/// The ID of the file `name` in the folder with the ID `parent`.
std::string childID(std::string_view parent, std::string_view name);

/// Where an ID leads: never "", absolute, or through "." or "..".
struct ItemPath {
    std::string path; // below the directory; "." for the directory itself
    std::string name; // last component; empty for the directory itself
    std::string parentID;
};

/// None when the text is not exactly an ID as childID() makes them.
std::optional<ItemPath> pathOfID(std::string_view id);

} // namespace brindlemar::host
