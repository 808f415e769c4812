#include "host/ItemID.h"
#include "host/commands/Commands.h"

namespace brindlemar::host {

void pathForIdentifier(const Request& request) {
    const Tree& tree = request.served.tree;
    const std::optional<ItemPath> item = pathOfID(textMember(request.json, "identifier"));
    std::optional<std::string> reply;
    if (item && tree.status(item->path).outcome == Tree::Outcome::found)
        if (const auto path = tree.location(item->path)) reply = JSON::object({{"path", *path}}).serialized();
    request.reply(reply.value_or("{}"));
}

} // namespace brindlemar::host
