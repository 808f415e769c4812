// The extension's two item caches: listings by container, single items by identifier.
#pragma once

#include "items/BrindlemarFileProviderItem.h"
#include "platform/ObjectStore.h"

namespace brindlemar {

class Clock;

/// Entries live ten seconds from their writing. A cache that could not be made is skipped: reading it is a miss.
/// Thread-safe; keys are those of cacheKey().
class ItemCaches {
public:
    /// Makes and empties both stores, `storage` first; their names end in the domain's description.
    ItemCaches(ObjectStores& stores, Clock& clock, std::string_view domainDescription);

    /// The listing of a container; none on a miss.
    std::shared_ptr<const ItemList> listing(std::string_view key) const;
    void storeListing(const std::shared_ptr<const ItemList>& list, std::string_view key) const;

    std::shared_ptr<NSFileProviderItem> item(std::string_view key) const;
    /// Every item of the list, each under this domain and the host part of its identifier.
    void storeItems(std::shared_ptr<const ItemList> list, std::string_view domain) const;

    void removeExpiredListings() const;
    void removeAll() const;

private:
    Timestamp expiry() const;

    Clock& clock_;
    std::unique_ptr<ObjectStore> storage_;     // container -> list of items
    std::unique_ptr<ObjectStore> itemStorage_; // item
};

} // namespace brindlemar
