#include "host/ItemID.h"
#include "host/PartialFile.h"
#include "host/commands/Commands.h"
#include "host/commands/ItemText.h"
#include "host/commands/Warnings.h"

namespace brindlemar::host {

namespace {
constexpr std::string_view kNothing = "[]", kCannotTell;
constexpr std::size_t kUsualItemText = 160; // bytes

struct Listing {
    std::string text = "[";
    KnownNames::Names names{};
    std::size_t failed = 0; // names whose status is not to be had
};

Listing describe(const Tree::Names& folder, const ItemPath& parent, const AttributesByPath& attributes) {
    Listing listing;
    listing.text.reserve(folder.names.size() * kUsualItemText + 2);
    for (const std::string_view name : folder.names) {
        const Tree::Status status = Tree::statusIn(folder.folder, name);
        if (status.outcome == Tree::Outcome::failed) ++listing.failed;
        if (status.outcome != Tree::Outcome::found) continue;
        if (!listing.names.empty()) listing.text.push_back(',');
        const int mark = attributes.empty() ? 0 : archiveMarkOf(attributes, childPath(parent.path, name));
        appendItem(listing.text, {name, childID(parent.id, name), parent.id, mark}, status.info);
        listing.names.push_back(name);
    }
    listing.text.push_back(']');
    return listing;
}
} // namespace

void enumerateItems(const Request& request) {
    Served& served = request.served;
    const std::optional<ItemPath> path = pathOfID(textMember(request.json, "identifier"));
    if (!path) {
        request.reply(kNothing);
        return;
    }
    const Tree::Names folder = served.tree.names(path->path);
    if (folder.outcome != Tree::Outcome::found) {
        warnOfFailure(served, path->path, folder);
        request.reply(folder.outcome == Tree::Outcome::missing ? kNothing : kCannotTell);
        return;
    }
    if (folder.hasPartial) removeLeftovers(folder.folder);
    const Listing listing = describe(folder, *path, *served.attributes.all());
    warnOfNamesLeftOut(served, path->path, folder.unreadable, listing.failed);
    // Known before the reply is sent: to be told later of the end of something unheard of does no harm.
    served.known.with([&](auto& known) { known[path->path].add(listing.names); });
    request.reply(listing.text);
}

} // namespace brindlemar::host
