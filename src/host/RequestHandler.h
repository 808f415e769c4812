// Requests of the extension over one served directory: text in, texts out.
#pragma once

#include "host/Turns.h"
#include "host/commands/Commands.h"

#include <set>

namespace brindlemar::host {

/// Thread-safe.
class RequestHandler {
public:
    /// `silent` names the commands that are never answered, for tests of what happens then.
    RequestHandler(Connection connection, Tree tree, std::set<std::string> silent, Say warn)
        : served_{std::move(connection), std::move(tree), std::move(warn)}, silent_(std::move(silent)) {}

    /// Carries the request out: "{}" is the reply to one that is not understood. On this thread, or on the one that is
    /// at an earlier request for the same folder.
    void handle(std::string_view request, Reply reply);

private:
    Served served_;
    Turns turns_; // by item ID
    const std::set<std::string> silent_;
};

} // namespace brindlemar::host
