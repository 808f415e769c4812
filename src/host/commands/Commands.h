// The commands of the extension that this host carries out: one function each, most in a file of their own.
#pragma once

#include "host/Arguments.h"
#include "host/ItemAttributes.h"
#include "host/Tree.h"
#include "host/commands/KnownNames.h"
#include "platform/Clock.h"
#include "platform/Queue.h"
#include "support/Guarded.h"
#include "support/JSON.h"

#include <functional>
#include <map>
#include <set>

namespace brindlemar::host {

/// Gets sentences for the user, on any thread.
using Say = std::function<void(const std::string& text)>;

/// What the requests over one connection share.
struct Served {
    const Connection connection;
    const Tree tree;
    const Say warn;
    Clock& clock;
    Queue& ticks; // where progress is reported
    ItemAttributes attributes;
    Guarded<std::map<std::string, KnownNames>> known{}; // by path of the folder
    Guarded<std::set<std::string>> receivingFolders{};  // those that fetches went to
};

/// Takes one reply to the request; false when it reached nobody. Thread-safe.
using Reply = std::function<bool(std::string_view text)>;

struct CommandRow;
struct Request {
    Served& served;
    const JSON& json;
    const Reply& reply;
    const CommandRow& row;
};

/// Runs on any thread and gives its replies before it returns. May throw: the request then gets its row's failure.
using Command = void(const Request& request);

Command deleteItem;
Command enumerateDeleted;
Command enumerateItems;
Command fetchItem;
Command itemForIdentifier;
Command pathForIdentifier;
Command searchBucket;
Command updateItem;
Command uploadItem;

/// The text under a key of a request; empty when there is none.
std::string textMember(const JSON& request, std::string_view key);

} // namespace brindlemar::host
