// All commands, by name.
#pragma once

#include "host/admin/AdminCommands.h"
#include "host/commands/Commands.h"

#include <string_view>

namespace brindlemar::host {

/// What a request must not overtake: earlier ones about its item, but that a lookup passes by copies; earlier ones
/// about its folder; nothing. Copies run on the queue of the copies.
enum class Order { any, folder, lookup, change, copy };

struct CommandRow {
    std::string_view name;
    Command* run;
    Order order = Order::any;
    std::string_view failure = "{}"; // the reply by which this command fails

    // Of administration.
    AdminCommand* administer = nullptr;
    Subject subject = Subject::none;
    std::string_view attribute{}; // that it gets or sets
};

/// None when there is no such command.
const CommandRow* findCommand(std::string_view name);

} // namespace brindlemar::host
