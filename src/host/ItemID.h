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
    std::string id;   // kTopID for the directory itself, however it was called
    std::string parentID;

    /// The path of the folder that the item is in.
    std::string folder() const { return path == name ? "." : path.substr(0, path.size() - name.size() - 1); }
};

/// None when the text is not exactly an ID as childID() makes them.
std::optional<ItemPath> pathOfID(std::string_view id);

/// Where an item of this name in the folder with the ID `parent` lies; none when the ID is none or no file can have
/// the name.
std::optional<ItemPath> newItem(std::string_view parent, std::string_view name);

/// The path of the file `name` in the folder with this path.
std::string childPath(const std::string& folder, std::string_view name);

} // namespace brindlemar::host
