#include "host/RequestHandler.h"

#include "host/ItemID.h"
#include "host/ItemText.h"

#include <boost/json/parse.hpp>

namespace brindlemar::host {

namespace {
constexpr std::string_view kNoSuchItem = "{}", kNothing = "[]";
constexpr std::size_t kUsualItemText = 160; // bytes

std::string textMember(const boost::json::object& object, std::string_view key) {
    const boost::json::value* value = object.if_contains(key);
    const boost::json::string* text = value ? value->if_string() : nullptr;
    return text ? std::string(*text) : std::string();
}
} // namespace

struct RequestHandler::Row {
    std::string_view command;
    Method method;
};

RequestHandler::RequestHandler(Connection connection, std::set<std::string> silent,
                               std::function<void(const std::string&)> warn)
    : connection_(std::move(connection)), silent_(std::move(silent)), warn_(std::move(warn)),
      tree_(connection_.directory) {}

std::optional<std::string> RequestHandler::answer(std::string_view request) {
    static constexpr Row rows[] = {
        {"itemForIdentifier", &RequestHandler::itemForIdentifier},
        {"enumerateItemsJSON", &RequestHandler::enumerateItems},
        {"enumerateDeletedJSON", &RequestHandler::enumerateDeleted},
    };
    boost::json::error_code error;
    const boost::json::value parsed = boost::json::parse(request, error);
    const boost::json::object* object = error ? nullptr : parsed.if_object();
    if (!object) return std::string(kNoSuchItem);
    const std::string command = textMember(*object, "command");
    if (silent_.contains(command)) return std::nullopt;
    for (const Row& row : rows)
        if (row.command == command) return (this->*row.method)(textMember(*object, "identifier"));
    return std::string(kNoSuchItem);
}

std::string RequestHandler::itemForIdentifier(const std::string& identifier) {
    const std::optional<ItemPath> path = pathOfID(identifier);
    if (!path) return std::string(kNoSuchItem);
    const Tree::Status status = tree_.status(path->path);
    if (status.outcome == Tree::Outcome::failed) return ""; // it may be there: a disk may just be absent
    if (status.outcome == Tree::Outcome::missing) return std::string(kNoSuchItem);
    std::string reply;
    if (isTopID(identifier)) // a connection root: the extension makes "DOMAIN|0" of it, below its own root
        appendItem(reply, {connection_.name, connection_.domain, "00"}, status.info);
    else
        appendItem(reply, {path->name, identifier, path->parentID}, status.info);
    return reply;
}

std::string RequestHandler::enumerateItems(const std::string& identifier) {
    const std::optional<ItemPath> path = pathOfID(identifier);
    if (!path) return std::string(kNothing);
    const Tree::Names folder = tree_.names(path->path);
    if (folder.unreadable > 0)
        warn_(std::to_string(folder.unreadable) + " names in " + connection_.directory + "/" + path->path +
              " are not UTF-8 and are left out. Rename these files to have them served.");
    if (folder.outcome != Tree::Outcome::found) return std::string(kNothing);

    const std::string parent(isTopID(identifier) ? kTopID : std::string_view(identifier));
    KnownNames::Names listed;
    std::string reply = "[";
    reply.reserve(folder.names.size() * kUsualItemText + 2);
    for (const std::string_view name : folder.names) {
        const std::optional<struct stat> status = Tree::statusIn(folder.folder, name);
        if (!status) continue;
        if (!listed.empty()) reply.push_back(',');
        appendItem(reply, {name, childID(parent, name), parent}, *status);
        listed.push_back(name);
    }
    reply.push_back(']');
    known_.with([&](auto& known) { known[path->path].listed(listed); });
    return reply;
}

std::string RequestHandler::enumerateDeleted(const std::string& identifier) {
    const std::optional<ItemPath> path = pathOfID(identifier);
    if (!path) return std::string(kNothing);
    const Tree::Names folder = tree_.names(path->path);
    // What cannot be read is not gone: a disk may just be absent.
    if (folder.outcome == Tree::Outcome::failed) return std::string(kNothing);
    const std::vector<std::string> vanished = known_.with([&](auto& known) {
        const auto entry = known.find(path->path);
        if (entry == known.end()) return std::vector<std::string>();
        std::vector<std::string> result = entry->second.takeVanished(folder.names);
        if (folder.outcome == Tree::Outcome::missing) known.erase(entry);
        return result;
    });
    const std::string_view parent = isTopID(identifier) ? kTopID : std::string_view(identifier);
    std::string reply = "[";
    for (const std::string& name : vanished) {
        if (reply.size() > 1) reply.push_back(',');
        appendQuoted(reply, connection_.domain + "|" + childID(parent, name));
    }
    reply.push_back(']');
    return reply;
}

} // namespace brindlemar::host
