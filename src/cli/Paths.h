// Folders, and items found by their paths of names: "Work/photos/a.jpg".
#pragma once

#include "cli/Events.h"

#include <unordered_map>
#include <vector>

namespace brindlemar::cli {

using ItemHandler = std::function<void(const boost::json::object& item)>;

/// One listing, page by page.
struct Listing {
    bool finished = false;
    std::size_t pages = 0, items = 0;
    std::string nextPage{}; // BASE64; empty after the last page

    /// Hands over the items of the event, if it has any.
    void take(const Event& event, const ItemHandler& handler);
};

/// Hands over the items of a folder in the service's order. Throws Failure; `subject` is what the user knows the
/// folder by.
void listFolder(Control& control, const std::string& identifier, const std::string& subject,
                const ItemHandler& handler);
std::vector<Item> listFolder(Control& control, const std::string& identifier, const std::string& subject);

/// An item with what the service tells of it.
struct FoundItem {
    Item item;
    boost::json::object json; // empty for the root container
};

/// The root container itself for "" and "/". Empty names are passed over. Throws Failure when there is no such item, or
/// the host is not running.
FoundItem findPath(Control& control, std::string_view path);
bool isRoot(const Item& item);

/// "a", or "a" in "Work".
std::string joined(const std::string& folder, const std::string& name);

/// Where an item is, or would be made.
struct Place {
    Item folder;
    std::string folderPath;
    std::string name;
    std::optional<Item> existing;

    std::string path() const { return joined(folderPath, name); }
    /// Throws Failure when the place is right below the root, where only host applications put things.
    void refuseTop() const;
};
/// The path's last name in the folder before it, which must exist.
Place placeAt(Control& control, std::string_view path);
/// As placeAt(); but when there is a folder at the path, the name in it.
Place placeFor(Control& control, std::string_view path, const std::string& nameInFolder);

/// Tells the paths of items that are known by identifiers, by looking up the folders above them.
class PathNames {
public:
    explicit PathNames(Control& control);
    /// The item's identifier when its path cannot be told. Remembers it.
    std::string of(const Item& item);
    /// The path that was told last; else the identifier.
    std::string remembered(const std::string& identifier) const;

private:
    std::optional<std::string> folderPath(const std::string& identifier, int depth);

    Control& control_;
    std::unordered_map<std::string, std::string> paths_; // by identifier
};

} // namespace brindlemar::cli
