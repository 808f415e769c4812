#include "host/ItemID.h"
#include "host/commands/Commands.h"
#include "host/commands/FolderWarnings.h"
#include "host/commands/ItemText.h"

namespace brindlemar::host {

namespace {
constexpr std::string_view kNothing = "[]";

std::vector<std::string> vanishedNames(Served& served, const std::string& path, const Tree::Names& folder) {
    return served.known.with([&](const auto& known) {
        const auto entry = known.find(path);
        return entry == known.end() ? std::vector<std::string>() : entry->second.missingFrom(folder.names);
    });
}

void forget(Served& served, const std::string& path, const std::vector<std::string>& names) {
    served.known.with([&](auto& known) {
        const auto entry = known.find(path);
        if (entry == known.end()) return;
        entry->second.remove(names);
        if (entry->second.empty()) known.erase(entry);
    });
}
} // namespace

void enumerateDeleted(Served& served, const JSON& request, const Reply& reply) {
    const std::string identifier = textMember(request, "identifier");
    const std::optional<ItemPath> path = pathOfID(identifier);
    const Tree::Names folder = path ? served.tree.names(path->path) : Tree::Names{};
    if (folder.outcome == Tree::Outcome::failed) { // what cannot be read is not gone
        if (path) warnOfFailure(served, path->path, folder);
        reply(kNothing);
        return;
    }
    const std::vector<std::string> vanished = vanishedNames(served, path->path, folder);
    const std::string_view parent = isTopID(identifier) ? kTopID : std::string_view(identifier);
    std::string text = "[";
    for (const std::string& name : vanished) {
        if (text.size() > 1) text.push_back(',');
        appendQuoted(text, served.connection.domain + "|" + childID(parent, name));
    }
    text.push_back(']');
    if (reply(text)) forget(served, path->path, vanished); // else the next answer tells of them
}

} // namespace brindlemar::host
