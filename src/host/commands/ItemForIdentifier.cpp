#include "host/ItemID.h"
#include "host/commands/Commands.h"
#include "host/commands/ItemText.h"

namespace brindlemar::host {

namespace {
std::string replyAbout(const Served& served, const std::string& identifier) {
    constexpr std::string_view noSuchItem = "{}", cannotTell;
    const std::optional<ItemPath> item = pathOfID(identifier);
    if (!item) return std::string(noSuchItem);
    const Tree::Status status = served.tree.status(item->path);
    if (status.outcome == Tree::Outcome::missing) return std::string(noSuchItem);
    if (status.outcome == Tree::Outcome::failed) return std::string(cannotTell);
    return itemText(served, *item, status.info);
}
} // namespace

void itemForIdentifier(const Request& request) {
    request.reply(replyAbout(request.served, textMember(request.json, "identifier")));
}

} // namespace brindlemar::host
