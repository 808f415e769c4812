#include "host/ItemID.h"
#include "host/commands/Commands.h"
#include "host/commands/ItemText.h"
#include "host/commands/Warnings.h"

namespace brindlemar::host {

namespace {
constexpr std::string_view kNothing = "[]";

KnownNames knownNames(const Served& served, const std::string& path) {
    return served.known.with([&](const auto& known) {
        const auto entry = known.find(path);
        return entry == known.end() ? KnownNames() : entry->second;
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

void enumerateDeleted(const Request& request) {
    Served& served = request.served;
    const std::optional<ItemPath> path = pathOfID(textMember(request.json, "identifier"));
    // Taken before the look into the folder: of what comes to be there in between, nothing must be told.
    const KnownNames known = path ? knownNames(served, path->path) : KnownNames();
    const Tree::Names folder = path ? served.tree.names(path->path) : Tree::Names{};
    if (folder.outcome == Tree::Outcome::failed) { // what cannot be read is not gone
        if (path) warnOfFailure(served, path->path, folder);
        request.reply(kNothing);
        return;
    }
    const std::vector<std::string> vanished = known.missingFrom(folder.names);
    std::string text = "[";
    for (const std::string& name : vanished) {
        if (text.size() > 1) text.push_back(',');
        appendQuoted(text, served.connection.domain + "|" + childID(path->id, name));
    }
    text.push_back(']');
    if (request.reply(text)) forget(served, path->path, vanished); // else the next answer tells of them
}

} // namespace brindlemar::host
