#include "cli/Paths.h"

#include "cli/Failure.h"
#include "cli/Text.h"
#include "platform/Item.h"
#include "support/TextForms.h"

#include <boost/json/array.hpp>

#include <algorithm>

namespace brindlemar::cli {

namespace json = boost::json;

namespace {
std::vector<std::string_view> namesOf(std::string_view path) {
    auto names = split(path, '/');
    std::erase(names, "");
    return names;
}

FoundItem rootContainer() {
    FoundItem root;
    root.item.identifier = NSFileProviderRootContainerItemIdentifier;
    root.item.folder = true;
    return root;
}

/// `path` is the folder's.
std::optional<FoundItem> findChild(Control& control, const Item& folder, const std::string& path,
                                   std::string_view name) {
    if (!folder.folder)
        throw Failure(Exit::notFound, "\"" + escaped(path) + "\" is no folder, so there is nothing in it.");
    std::optional<FoundItem> found;
    listFolder(control, folder.identifier, path.empty() ? "/" : path, [&](const json::object& each) {
        Item item = readItem(each);
        if (!found && item.filename == name) found = FoundItem{std::move(item), each};
    });
    if (!found && hostIsMissing(control)) throw hostNotRunning();
    return found;
}

struct Walked {
    FoundItem found;
    std::string path;
};
Walked walk(Control& control, std::span<const std::string_view> names) {
    Walked walked{rootContainer(), ""};
    for (const std::string_view name : names) {
        auto next = findChild(control, walked.found.item, walked.path, name);
        walked.path = joined(walked.path, std::string(name));
        if (!next) throw reportedError(NSFileProviderErrorDomain, FileProviderErrorCode::noSuchItem, "", walked.path);
        walked.found = std::move(*next);
    }
    return walked;
}

Place placeIn(Control& control, const Item& folder, std::string path, std::string name) {
    Place place{folder, std::move(path), std::move(name), std::nullopt};
    if (place.name.empty() || place.name == "." || place.name == "..")
        throw Failure(Exit::usage, "\"" + place.name + "\" is no name for an item. Name one at the end of PATH.");
    if (auto existing = findChild(control, folder, place.folderPath, place.name))
        place.existing = std::move(existing->item);
    return place;
}
} // namespace

void Listing::take(const Event& event, const ItemHandler& handler) {
    if (event.name == "finish") {
        ++pages;
        nextPage = event.text("page");
        finished = nextPage.empty();
    }
    const json::array* list = event.name == "items" ? event.array("items") : nullptr;
    if (!list) return;
    for (const json::value& item : *list) {
        if (!item.is_object()) continue;
        ++items;
        handler(item.get_object());
    }
}

void listFolder(Control& control, const std::string& identifier, const std::string& subject,
                const ItemHandler& handler) {
    Listing listing;
    const bool taken = control.call("browse", {{"id", identifier}}, [&](std::string_view line) {
        const Event event = readEvent(line);
        throwReportedError(control, event, subject);
        listing.take(event, handler);
        return true;
    });
    if (!taken) throwBrokenCall(control, control.error());
    if (!listing.finished) throwBrokenCall(control, "the listing of \"" + subject + "\" has no end");
}

std::vector<Item> listFolder(Control& control, const std::string& identifier, const std::string& subject) {
    std::vector<Item> items;
    listFolder(control, identifier, subject, [&](const json::object& item) { items.push_back(readItem(item)); });
    return items;
}

FoundItem findPath(Control& control, std::string_view path) { return walk(control, namesOf(path)).found; }

bool isRoot(const Item& item) { return item.identifier == NSFileProviderRootContainerItemIdentifier; }

std::string joined(const std::string& folder, const std::string& name) {
    return folder.empty() ? name : folder + "/" + name;
}

void Place::refuseTop() const {
    if (isRoot(folder))
        throw Failure(Exit::failure, "\"" + escaped(path()) +
                                         "\": Only a host application can put something right below the top. Name a "
                                         "place inside a connection; \"brindlemar ls\" shows them.");
}

Place placeAt(Control& control, std::string_view path) {
    const auto names = namesOf(path);
    const std::size_t above = names.empty() ? 0 : names.size() - 1;
    Walked parent = walk(control, std::span(names).first(above));
    return placeIn(control, parent.found.item, std::move(parent.path), std::string(names.empty() ? "" : names.back()));
}

Place placeFor(Control& control, std::string_view path, const std::string& nameInFolder) {
    if (namesOf(path).empty()) return placeIn(control, rootContainer().item, "", nameInFolder);
    Place place = placeAt(control, path);
    if (!place.existing || !place.existing->folder) return place;
    return placeIn(control, *place.existing, place.path(), nameInFolder);
}

PathNames::PathNames(Control& control) : control_(control) {
    paths_[std::string(NSFileProviderRootContainerItemIdentifier)] = "";
    for (const Item& connection : listFolder(control, rootContainer().item.identifier, "/"))
        paths_[connection.identifier] = connection.filename;
}

std::string PathNames::of(const Item& item) {
    const auto folder = folderPath(item.parent, 0);
    if (!folder) return item.identifier;
    return paths_[item.identifier] = joined(*folder, item.filename);
}

std::string PathNames::remembered(const std::string& identifier) const {
    const auto found = paths_.find(identifier);
    return found == paths_.end() ? identifier : found->second;
}

std::optional<std::string> PathNames::folderPath(const std::string& identifier, int depth) {
    constexpr int deepest = 1000; // parents that a host reports may run in a circle
    if (const auto found = paths_.find(identifier); found != paths_.end()) return found->second;
    if (identifier.empty() || depth == deepest) return std::nullopt;
    try {
        const Event event = complete(control_, "item", {{"id", identifier}}, identifier);
        const json::object* object = event.object("item");
        const Item item = object ? readItem(*object) : Item();
        const auto above = folderPath(item.parent, depth + 1);
        if (above) return paths_[identifier] = joined(*above, item.filename);
    } catch (const Failure&) { // the identifier tells enough
    }
    return std::nullopt;
}

} // namespace brindlemar::cli
