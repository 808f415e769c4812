// Lists one container, page by page.
#pragma once

#include "items/ProviderState.h"
#include "platform/Enumerator.h"

namespace brindlemar {

/// Made by the extension for each container that the platform asks for. Calls may come from any thread; observers are
/// called on the calling thread when the answer is known, else on the background queue. Failures are never reported:
/// a host that cannot be reached lists nothing.
class BrindlemarFileProviderItemEnumerator final
    : public NSFileProviderEnumerator,
      public std::enable_shared_from_this<BrindlemarFileProviderItemEnumerator> {
public:
    struct Container {
        std::string domain;    // the domain name; the default one for unqualified containers
        ItemIdentifier itemID; // the host's own identifier; the container itself when unqualified
        bool writableRoot = false;
        std::shared_ptr<ProviderState> provider; // may be absent
        std::optional<ItemIdentifier> rawContainer;
    };
    explicit BrindlemarFileProviderItemEnumerator(Container container);

    void enumerateItems(std::shared_ptr<NSFileProviderEnumerationObserver> observer,
                        NSFileProviderPage startingAt) override;
    void enumerateChanges(std::shared_ptr<NSFileProviderChangeObserver> observer,
                          NSFileProviderSyncAnchor from) override;
    void currentSyncAnchor(std::function<void(NSFileProviderSyncAnchor)> completionHandler) override;
    void invalidate() override;

    const Container& container() const { return container_; }

private:
    using Observer = std::shared_ptr<NSFileProviderEnumerationObserver>;
    void listWorkingSet(const Observer& observer) const;
    void listRoot(const Observer& observer) const;
    void askHost(Observer observer, NSFileProviderPage page);
    void replyArrived(std::string_view reply, const Observer& observer, const NSFileProviderPage& page) const;
    void report(const std::shared_ptr<const ItemList>& list, const Observer& observer,
                const NSFileProviderPage& page) const;
    void cacheListing(std::shared_ptr<const ItemList> list, const std::string& domain,
                      std::string_view containerID) const;
    // Changes. Each ends with one finish.
    using ChangeObserver = std::shared_ptr<NSFileProviderChangeObserver>;
    void askHostForDeletions(const ChangeObserver& observer);
    void deletionsArrived(std::string_view reply, NSFileProviderChangeObserver& observer) const;
    void workingSetPass(const ChangeObserver& observer);
    void listAgain(const ItemIdentifier& container, const ChangeObserver& observer);
    std::optional<std::vector<ItemIdentifier>> strangersAtTop() const;
    void reconcileTop(NSFileProviderChangeObserver& observer) const;
    void reportDeleted(NSFileProviderChangeObserver& observer, std::vector<ItemIdentifier> identifiers) const;
    std::string listingKey() const { return cacheKey(container_.domain, container_.itemID); }

    const Container container_;
    const Timestamp start_;
};

/// Which items of a list make the page that starts at `start`.
struct PageCut {
    std::size_t first = 0, count = 0;
    std::optional<std::int64_t> next; // where the page after it starts
    bool operator==(const PageCut&) const = default;
};
/// `pageSize` below 1 counts as 1.
PageCut cutPage(std::size_t itemCount, std::int64_t start, std::int64_t pageSize);

} // namespace brindlemar
