#include "host/ItemID.h"
#include "host/commands/Commands.h"
#include "host/commands/ItemText.h"

namespace brindlemar::host {

namespace {
std::string itemText(const Served& served, const std::string& identifier) {
    constexpr std::string_view noSuchItem = "{}", cannotTell;
    const std::optional<ItemPath> path = pathOfID(identifier);
    if (!path) return std::string(noSuchItem);
    const Tree::Status status = served.tree.status(path->path);
    if (status.outcome == Tree::Outcome::missing) return std::string(noSuchItem);
    if (status.outcome == Tree::Outcome::failed) return std::string(cannotTell);
    const Connection& connection = served.connection;
    std::string text;
    if (isTopID(identifier)) // a connection root: the extension makes "DOMAIN|0" of it, below its own root
        appendItem(text, {connection.name, connection.domain, "00"}, status.info);
    else
        appendItem(text, {path->name, identifier, path->parentID}, status.info);
    return text;
}
} // namespace

void itemForIdentifier(Served& served, const JSON& request, const Reply& reply) {
    reply(itemText(served, textMember(request, "identifier")));
}

} // namespace brindlemar::host
