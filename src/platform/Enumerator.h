// How the platform lists a container and learns of its changes.
#pragma once

#include "platform/Errors.h"
#include "platform/Item.h"

#include <functional>

namespace brindlemar {

/// Opaque bytes that name the place where a listing goes on; at most 500.
struct NSFileProviderPage {
    std::string rawValue;

    NSFileProviderPage() = default;
    explicit NSFileProviderPage(std::string bytes) : rawValue(std::move(bytes)) {}
    /// A page of this system: the index of its first item, as 8 little-endian bytes.
    explicit NSFileProviderPage(std::int64_t index);
    /// The index of the page's first item; 0 for the platform's initial pages. Short pages are padded with zeros,
    /// bytes beyond the eighth are ignored.
    std::int64_t toInt64() const;
    bool operator==(const NSFileProviderPage&) const = default;
};

inline constexpr std::string_view NSFileProviderInitialPageSortedByName = "NSFileProviderInitialPageSortedByName";
inline constexpr std::string_view NSFileProviderInitialPageSortedByDate = "NSFileProviderInitialPageSortedByDate";

/// Opaque bytes that name a state of a container; at most 500.
struct NSFileProviderSyncAnchor {
    std::string rawValue;
};

/// Receives one listing: any number of batches, then exactly one finish. Called from any thread, one call at a time.
class NSFileProviderEnumerationObserver {
public:
    virtual ~NSFileProviderEnumerationObserver() = default;
    /// Items that the platform would like in one page; at least 1.
    virtual std::int64_t suggestedPageSize() const = 0;
    virtual void didEnumerateItems(ItemBatch items) = 0;
    /// `page` is where the next listing starts; none when this was the last page.
    virtual void finishEnumeratingUpToPage(std::optional<NSFileProviderPage> page) = 0;
};

/// Receives one enumeration of changes: any number of updates and deletions, then exactly one finish. Called from any
/// thread, one call at a time.
class NSFileProviderChangeObserver {
public:
    virtual ~NSFileProviderChangeObserver() = default;
    /// New items, or known ones as they are now.
    virtual void didUpdateItems(ItemBatch items) = 0;
    virtual void didDeleteItems(std::vector<ItemIdentifier> withIdentifiers) = 0;
    /// `upTo` is where the next enumeration starts; with `moreComing` it is to start at once.
    virtual void finishEnumeratingChanges(NSFileProviderSyncAnchor upTo, bool moreComing) = 0;
};

/// One container under enumeration. Calls may come from any thread.
class NSFileProviderEnumerator {
public:
    virtual ~NSFileProviderEnumerator() = default;
    /// Reports the page's items through `observer`, which it keeps until the listing is finished.
    virtual void enumerateItems(std::shared_ptr<NSFileProviderEnumerationObserver> observer,
                                NSFileProviderPage startingAt) = 0;
    /// Reports what changed since the anchor through `observer`, which it keeps until the enumeration is finished.
    virtual void enumerateChanges(std::shared_ptr<NSFileProviderChangeObserver> observer,
                                  NSFileProviderSyncAnchor from) = 0;
    /// Calls the handler once, with the anchor of the container's present state.
    virtual void currentSyncAnchor(std::function<void(NSFileProviderSyncAnchor)> completionHandler) = 0;
    /// The enumerator is not used any more.
    virtual void invalidate() = 0;
};

} // namespace brindlemar
