#include "host/RequestHandler.h"

#include "host/ItemID.h"

#include <algorithm>
#include <array>
#include <exception>

namespace brindlemar::host {

namespace {
/// What a command must not run beside.
enum class Order { any, oneAtATimeForAnItem };

struct Row {
    std::string_view command;
    Command* run;
    Order order = Order::any;
};

constexpr std::array kRows{
    Row{"enumerateDeletedJSON", enumerateDeleted, Order::oneAtATimeForAnItem},
    Row{"enumerateItemsJSON", enumerateItems, Order::oneAtATimeForAnItem},
    Row{"itemForIdentifier", itemForIdentifier},
};
} // namespace

std::string textMember(const JSON& request, std::string_view key) {
    return std::string(request[key].string().value_or(std::string_view()));
}

void RequestHandler::handle(std::string_view request, Reply reply) {
    const JSON parsed = JSON::parse(request);
    const std::string command = textMember(parsed, "command");
    if (silent_.contains(command)) return;
    const auto row = std::ranges::find(kRows, command, &Row::command);
    if (row == kRows.end()) {
        reply("{}");
        return;
    }
    const auto run = [this, row, parsed, reply = std::move(reply)] {
        try {
            row->run(served_, parsed, reply);
        } catch (const std::exception& error) { // memory that is not to be had
            served_.warn("A request " + std::string(row->command) + " failed: " + error.what());
            reply("");
        }
    };
    if (row->order == Order::any) return run();
    const std::string identifier = textMember(parsed, "identifier");
    turns_.take(isTopID(identifier) ? std::string(kTopID) : identifier, run);
}

} // namespace brindlemar::host
