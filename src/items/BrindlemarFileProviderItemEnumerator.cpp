#include "items/BrindlemarFileProviderItemEnumerator.h"

#include "items/ConnectionRoots.h"
#include "items/ItemListing.h"
#include "messaging/BxMessages.h"
#include "platform/Platform.h"
#include "support/Logger.h"

#include <algorithm>
#include <span>

namespace brindlemar {

namespace {
constexpr std::string_view kEnumerateItems = "enumerateItems(for:startingAt:)";

/// The first thousand: a line of the log has to end somewhere.
std::string listDescription(const ItemList& list) {
    std::string text = "[";
    for (const auto& item : std::span(list).first(std::min<std::size_t>(list.size(), 1000))) {
        if (text.size() > 1) text += ", ";
        text += static_cast<const BrindlemarFileProviderItem&>(*item).description();
    }
    return text + "]";
}
} // namespace

PageCut cutPage(std::size_t itemCount, std::int64_t start, std::int64_t pageSize) {
    const std::size_t size = static_cast<std::size_t>(std::max<std::int64_t>(pageSize, 1));
    const std::size_t first = std::min(static_cast<std::size_t>(std::max<std::int64_t>(start, 0)), itemCount);
    if (itemCount - first <= size) return {first, itemCount - first, std::nullopt};
    return {first, size, static_cast<std::int64_t>(first + size)};
}

BrindlemarFileProviderItemEnumerator::BrindlemarFileProviderItemEnumerator(Container container)
    : container_(std::move(container)), start_(Platform::now()) {}

void BrindlemarFileProviderItemEnumerator::enumerateItems(Observer observer, NSFileProviderPage startingAt) {
    const LogScope log{Logger::shared(), kEnumerateItems};
    log.info("enumerateItems(for: ", container_.itemID, ")");
    if (container_.itemID == NSFileProviderTrashContainerItemIdentifier)
        return observer->finishEnumeratingUpToPage(std::nullopt);
    if (container_.itemID == NSFileProviderWorkingSetContainerItemIdentifier) return listWorkingSet(observer);
    if (container_.itemID == NSFileProviderRootContainerItemIdentifier) return listRoot(observer);

    if (container_.provider) {
        container_.provider->caches->removeExpiredListings();
        if (const auto list = container_.provider->caches->listing(listingKey()))
            return report(list, observer, startingAt);
    }
    log.debug("call out to enumerateion: ", container_.itemID);
    askHost(std::move(observer), std::move(startingAt));
}

void BrindlemarFileProviderItemEnumerator::listWorkingSet(const Observer& observer) const {
    const LogScope log{Logger::shared(), kEnumerateItems};
    log.debug("enumerateItems working set");
    if (container_.provider) {
        const auto recent = container_.provider->enumerators.with(
            [](EnumeratorLists& lists) { return std::exchange(lists.recentEnumerators, {}); });
        for (const ItemIdentifier& identifier : recent) log.info("recentEnumerators includes ", identifier);
    }
    observer->finishEnumeratingUpToPage(std::nullopt);
}

void BrindlemarFileProviderItemEnumerator::listRoot(const Observer& observer) const {
    const LogScope log{Logger::shared(), kEnumerateItems};
    std::vector<std::string> connections;
    if (container_.provider) connections = container_.provider->connections.copy();
    for (const std::string& record : connections) log.debug(record);
    observer->didEnumerateItems(ItemBatch(
        connectionRoots(connections, {.withDomain = container_.domain, .writableRoot = container_.writableRoot})));
    observer->finishEnumeratingUpToPage(std::nullopt);
}

void BrindlemarFileProviderItemEnumerator::askHost(Observer observer, NSFileProviderPage page) {
    // The request cannot be sent when an identifier is not valid UTF-8; its handler is then dropped unused, and the
    // listing must end all the same.
    struct Listing {
        std::shared_ptr<const BrindlemarFileProviderItemEnumerator> enumerator;
        Observer observer;
        NSFileProviderPage page;
        std::atomic<bool> answered{false};
        Listing(std::shared_ptr<const BrindlemarFileProviderItemEnumerator> enumerator, Observer observer,
                NSFileProviderPage page)
            : enumerator(std::move(enumerator)), observer(std::move(observer)), page(std::move(page)) {}
        ~Listing() {
            if (!answered) observer->finishEnumeratingUpToPage(std::nullopt);
        }
    };
    auto listing = std::make_shared<Listing>(shared_from_this(), std::move(observer), std::move(page));
    BxMessages::sharedInstance().enumerateItemsJSON(
        {.itemID = container_.itemID, .from = "", .withDomain = container_.domain},
        [listing](const Payload& reply, const auto&) {
            if (listing->answered.exchange(true)) return; // a second answer of the host changes nothing
            listing->enumerator->replyArrived(reply.bytes(), listing->observer, listing->page);
        });
}

void BrindlemarFileProviderItemEnumerator::replyArrived(std::string_view reply, const Observer& observer,
                                                        const NSFileProviderPage& page) const {
    const LogScope log{Logger::shared(), kEnumerateItems};
    log.info("enumerateItems handler - (for: ", container_.itemID);
    const auto list =
        parseItemListing(reply, {.withDomain = container_.domain, .writableRoot = container_.writableRoot});
    cacheListing(list, container_.domain, container_.itemID);
    report(list, observer, page);
}

void BrindlemarFileProviderItemEnumerator::cacheListing(std::shared_ptr<const ItemList> list, const std::string& domain,
                                                        std::string_view containerID) const {
    if (!container_.provider) return;
    Platform::current().backgroundQueue.async(
        [provider = container_.provider, list = std::move(list), domain, key = cacheKey(domain, containerID)] {
            provider->caches->storeItems(list, domain);
            provider->caches->storeListing(list, key);
        });
}

void BrindlemarFileProviderItemEnumerator::report(const std::shared_ptr<const ItemList>& list, const Observer& observer,
                                                  const NSFileProviderPage& page) const {
    const LogScope log{Logger::shared(), kEnumerateItems};
    const auto logElapsed = [&] {
        const auto sinceNow = start_ - Platform::now();
        log.debug(shortestText(std::chrono::duration<double>(sinceNow).count()), " seconds elapsed ",
                  container_.itemID);
    };
    const std::int64_t start = page.toInt64();
    const bool isFirst = start < 1;
    if (isFirst && list->empty()) {
        observer->finishEnumeratingUpToPage(std::nullopt);
        return logElapsed();
    }
    if (!isFirst) log.info("page: ", start);
    const PageCut cut = cutPage(list->size(), start, observer->suggestedPageSize());
    if (isFirst && !cut.next) log.info("enumerateItems handlerWithItems - (items: ", listDescription(*list));
    observer->didEnumerateItems(ItemBatch(list, cut.first, cut.count));
    observer->finishEnumeratingUpToPage(cut.next ? std::optional<NSFileProviderPage>(*cut.next) : std::nullopt);
    if (isFirst && cut.next) logElapsed();
}

} // namespace brindlemar
