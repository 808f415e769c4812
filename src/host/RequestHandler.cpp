#include "host/RequestHandler.h"

#include "host/ItemID.h"
#include "host/commands/CommandTable.h"

#include <exception>

namespace brindlemar::host {

namespace {
constexpr std::string_view kNotUnderstood = "{}";
constexpr std::size_t kLongestRequest = std::size_t{16} << 20; // bytes; longer ones would keep the others waiting
constexpr std::string_view kPlainText = "deletedItemIDs:";     // the one request that is no JSON

JSON parse(std::string_view text) {
    if (text.size() > kLongestRequest) return {};
    if (!text.starts_with(kPlainText)) return JSON::parse(text);
    return JSON::object({{"command", kPlainText}, {"identifier", text.substr(kPlainText.size())}});
}

/// The ID of the item that a request is about, there already or to be made.
std::string subjectOf(const JSON& request) {
    std::string id = textMember(request, "identifier");
    if (request["identifier"].isNull()) {
        const std::string parent = textMember(request, "parentID");
        id =
            childID(parent.empty() || isTopID(parent) ? kTopID : std::string_view(parent), textMember(request, "name"));
    }
    return isTopID(id) ? std::string(kTopID) : id;
}
} // namespace

std::string textMember(const JSON& request, std::string_view key) {
    return std::string(request[key].string().value_or(std::string_view()));
}

void RequestHandler::carryOut(const CommandRow& row, const JSON& request, const Reply& reply) {
    try {
        row.run({*served_, request, reply, row});
    } catch (const std::exception& error) { // memory that is not to be had
        served_->warn("A request " + std::string(row.name) + " failed: " + error.what());
        reply(row.failure);
    }
}

void RequestHandler::handle(std::string_view text, Reply reply) {
    const JSON request = parse(text);
    const std::string command = textMember(request, "command");
    const CommandRow* row = findCommand(command);
    if (!row) return queues_.workers.async([reply = std::move(reply)] { reply(kNotUnderstood); });
    if (misbehaviour_.holds(command)) return;
    if (misbehaviour_.takeFailure(command))
        return queues_.workers.async([row, reply = std::move(reply)] { reply(row->failure); });
    const auto run = [this, row, request, reply = std::move(reply)] { carryOut(*row, request, reply); };
    switch (row->order) {
    case Order::any:
        return queues_.workers.async(run);
    case Order::folder: // a line of its own: no ID begins with a slash
        return turns_.take("/" + subjectOf(request), Turns::Kind::change, queues_.workers, run);
    case Order::lookup:
        return turns_.take(subjectOf(request), Turns::Kind::lookup, queues_.workers, run);
    case Order::change:
        return turns_.take(subjectOf(request), Turns::Kind::change, queues_.workers, run);
    case Order::copy:
        return turns_.take(subjectOf(request), Turns::Kind::copy, queues_.copiers, run);
    }
}

} // namespace brindlemar::host
