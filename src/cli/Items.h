// Items as the service's lines tell them, and finding one by its path of names.
#pragma once

#include "cli/Control.h"

#include <boost/json/object.hpp>

#include <vector>

namespace brindlemar::cli {

inline constexpr std::uint32_t kUsualPageSize = 200;

struct Item {
    std::string identifier;
    std::string filename;
    bool folder = false;
    std::uint64_t size = 0;           // bytes
    std::optional<double> modified{}; // seconds since 1970
};

/// Missing and mistyped members stay empty.
Item readItem(const boost::json::object& json);

/// One line of an answer.
struct Event {
    std::string name; // "items", "finish", "completion", "progress"; empty for a line that is none
    boost::json::object members;
};
Event readEvent(std::string_view line);
/// Throws Failure when the event is a completion with an error.
void throwReportedError(const Event& event, const std::string& subject);

using ItemHandler = std::function<void(const boost::json::object& item)>;

/// One listing, page by page.
struct Listing {
    bool finished = false;
    std::size_t pages = 0, items = 0;
    std::string nextPage{}; // BASE64; empty after the last page

    /// Hands over the items of the event, if it has any. Throws Failure for a reported error.
    void take(const Event& event, const std::string& subject, const ItemHandler& handler);
};

/// Hands over the items of a container in the service's order. Throws Failure; `subject` is what the user knows the
/// container by.
void listContainer(Control& control, const std::string& identifier, const std::string& subject,
                   const ItemHandler& handler);
std::vector<Item> listContainer(Control& control, const std::string& identifier, const std::string& subject);

/// The item at a path of names below the root, "Work/photos"; the root container itself for "" and "/". Empty names
/// are passed over. Throws Failure when there is none, or the host is not running.
struct FoundItem {
    Item item;
    boost::json::object json; // empty for the root container
};
FoundItem findPath(Control& control, std::string_view path);

/// True when the service has no host at present: it was never configured, or its domain is disconnected.
bool hostIsMissing(Control& control);

} // namespace brindlemar::cli
