// What the extension keeps for its domain and shares with its enumerators and its service source.
#pragma once

#include "items/ItemCaches.h"
#include "items/ItemIdentifiers.h"
#include "platform/Domain.h"
#include "support/Guarded.h"

#include <atomic>

namespace brindlemar {

/// Containers that have, or had, an enumerator; the oldest first, each at most once.
struct EnumeratorLists {
    std::vector<ItemIdentifier> recentEnumerators; // not yet listed again by a working-set pass
    std::vector<ItemIdentifier> liveEnumerators;   // open
};

/// Thread-safe: each field has its own guard.
class ProviderState {
public:
    /// True once a host has handed over its connections.
    std::atomic<bool> configured{false};
    /// Connection records, "display name|domain".
    Guarded<std::vector<std::string>> connections;
    Guarded<EnumeratorLists> enumerators;
    /// The user-visible location of the root container; absent until the platform has said it.
    Guarded<std::optional<FileURL>> rootURL;

    std::vector<std::string> connectedDomains() const {
        return connections.with([](const auto& records) { return brindlemar::connectedDomains(records); });
    }
    /// True when the domain is among connectedDomains().
    bool isConnected(std::string_view domain) const;

    // Constant after construction.
    std::unique_ptr<const ItemCaches> caches; // never absent in a constructed extension
    std::optional<FileURL> tempURL;           // where contents are handed over; absent when there is none
    bool writableRoot = false;
};

} // namespace brindlemar
