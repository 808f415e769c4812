// Requests of the extension over one served directory: text in, text out.
#pragma once

#include "host/Arguments.h"
#include "host/KnownNames.h"
#include "host/Tree.h"
#include "support/Guarded.h"

#include <functional>
#include <map>
#include <optional>
#include <set>

namespace brindlemar::host {

/// Thread-safe.
class RequestHandler {
public:
    /// `silent` names the commands that are never answered, for tests of what happens then. `warn` gets sentences for
    /// the user, on any thread.
    RequestHandler(Connection connection, std::set<std::string> silent, std::function<void(const std::string&)> warn);

    /// The reply to a request; "{}" for one that is not understood, none for one that is not to be answered.
    std::optional<std::string> answer(std::string_view request);

private:
    using Method = std::string (RequestHandler::*)(const std::string& identifier);
    struct Row;
    std::string itemForIdentifier(const std::string& identifier);
    std::string enumerateItems(const std::string& identifier);
    std::string enumerateDeleted(const std::string& identifier);

    const Connection connection_;
    const std::set<std::string> silent_;
    const std::function<void(const std::string&)> warn_;
    const Tree tree_;
    Guarded<std::map<std::string, KnownNames>> known_; // by path of the folder
};

} // namespace brindlemar::host
