#include "host/admin/AdminCommands.h"
#include "host/commands/CommandTable.h"

namespace brindlemar::host {

namespace {
constexpr std::string_view kDone = R"({"status":"ok"})";

/// Fills in what the identifier names.
void findSubject(AdminRequest& request, Subject subject) {
    const std::optional<ItemPath> path = pathOfID(textMember(request.json, "identifier"));
    if (path && isTopID(path->id))
        throw Refusal("The connection itself is meant. Name one of its top folders, or a file.");
    const Tree::Status status = path ? request.served.tree.status(path->path) : Tree::Status{Tree::Outcome::missing};
    if (status.outcome == Tree::Outcome::missing) throw Refusal("There is no such item.");
    if (status.outcome == Tree::Outcome::failed) throw Refusal("The item cannot be looked at now.");
    const bool folder = S_ISDIR(status.info.st_mode);
    if (subject == Subject::bucket && !(folder && path->parentID == kTopID))
        throw Refusal("The item is no bucket. Name one of the top folders.");
    if (subject == Subject::object && folder) throw Refusal("The item is a folder. Name a file.");
    request.item = *path;
    request.status = status.info;
}
} // namespace

void runAdmin(const Request& request) {
    std::string text;
    try {
        AdminRequest admin{request.served, request.json, request.row.attribute};
        if (request.row.subject != Subject::none) findSubject(admin, request.row.subject);
        text = request.row.administer(admin);
    } catch (const Refusal& refusal) {
        text = *JSON::object({{"error", refusal.what()}}).serialized();
    }
    request.reply(text);
}

std::string setAttributes(const AdminRequest& request, const Attributes& values) {
    const bool kept = request.served.attributes.change([&](AttributesByPath& all) {
        for (const auto& [name, value] : values) setAttribute(all, request.item.path, name, value);
    });
    if (!kept) throw Refusal("The setting cannot be stored: the host cannot write its state.");
    return std::string(kDone);
}

std::string attributeOf(const AdminRequest& request, std::string_view name) {
    return findAttribute(*request.served.attributes.all(), request.item.path, name);
}

} // namespace brindlemar::host
