// The commands of the extension that this host carries out: one function each, in a file of its own.
#pragma once

#include "host/Arguments.h"
#include "host/Tree.h"
#include "host/commands/KnownNames.h"
#include "support/Guarded.h"
#include "support/JSON.h"

#include <functional>
#include <map>

namespace brindlemar::host {

/// Gets sentences for the user, on any thread.
using Say = std::function<void(const std::string& text)>;

/// What the requests over one connection share.
struct Served {
    const Connection connection;
    const Tree tree;
    const Say warn;
    Guarded<std::map<std::string, KnownNames>> known{}; // by path of the folder; each changes in its folder's turn
};

/// Takes one reply to the request; false when it reached nobody. Thread-safe.
using Reply = std::function<bool(std::string_view text)>;

/// Runs on any thread and gives its replies before it returns. May throw: the request then gets an empty reply.
using Command = void(Served& served, const JSON& request, const Reply& reply);

Command enumerateDeleted;
Command enumerateItems;
Command itemForIdentifier;

/// The text under a key of a request; empty when there is none.
std::string textMember(const JSON& request, std::string_view key);

} // namespace brindlemar::host
