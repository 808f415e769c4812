#include "items/ChangeEnumeration.h"

#include "items/BrindlemarFileProviderItemEnumerator.h"
#include "items/ConnectionRoots.h"
#include "items/DirectoryScan.h"
#include "items/ItemListing.h"
#include "items/SyncAnchor.h"
#include "messaging/BxMessages.h"
#include "platform/Platform.h"
#include "support/Logger.h"
#include "support/StringHelpers.h"

#include <algorithm>
#include <future>

namespace brindlemar {

namespace {
using ChangeObserver = std::shared_ptr<NSFileProviderChangeObserver>;

LogScope changesLog() { return {Logger::shared(), "enumerateChanges(for:from:)"}; }

/// The end of one enumeration that waits for the host: it comes once, also when the request cannot be sent and its
/// handler is dropped unused.
class PendingChanges {
public:
    PendingChanges(ChangeObserver observer, bool moreComing)
        : observer_(std::move(observer)), moreComing_(moreComing) {}
    ~PendingChanges() {
        if (!answered_) finish();
    }
    /// True for the first answer only.
    bool take() { return !answered_.exchange(true); }
    void finish() const { observer_->finishEnumeratingChanges(newSyncAnchor(), moreComing_); }
    NSFileProviderChangeObserver& observer() const { return *observer_; }

private:
    const ChangeObserver observer_;
    const bool moreComing_;
    std::atomic<bool> answered_{false};
};

/// Blocks until the platform has answered.
std::optional<ItemIdentifier> identifierOf(const FileURL& location) {
    std::promise<std::optional<ItemIdentifier>> answer;
    Platform::current().managers.getIdentifierForUserVisibleFile(
        location, [&](std::optional<ItemIdentifier> item, const auto&, const std::optional<NSError>& error) {
            answer.set_value(error ? std::nullopt : std::move(item));
        });
    return answer.get_future().get();
}
} // namespace

std::optional<ItemIdentifier> takeRecentContainer(std::vector<ItemIdentifier>& recentEnumerators) {
    const auto found = std::ranges::find_if(
        recentEnumerators, [](const ItemIdentifier& identifier) { return identifier.find('|') != std::string::npos; });
    if (found == recentEnumerators.end()) return std::nullopt;
    ItemIdentifier container = *found;
    recentEnumerators.erase(recentEnumerators.begin());
    return container;
}

void BrindlemarFileProviderItemEnumerator::enumerateChanges(ChangeObserver observer, NSFileProviderSyncAnchor) {
    Platform::current().tasks.async([self = shared_from_this(), observer = std::move(observer)] {
        const ItemIdentifier& itemID = self->container_.itemID;
        changesLog().info("enumerateChanges(for: ", itemID, " ");
        if (itemID == NSFileProviderWorkingSetContainerItemIdentifier) return self->workingSetPass(observer);
        if (itemID == NSFileProviderTrashContainerItemIdentifier)
            return observer->finishEnumeratingChanges(newSyncAnchor(), false);
        self->askHostForDeletions(observer);
    });
}

void BrindlemarFileProviderItemEnumerator::askHostForDeletions(const ChangeObserver& observer) {
    const auto changes = std::make_shared<PendingChanges>(observer, false);
    BxMessages::sharedInstance().enumerateChanges(
        {.fromAnchorJSON = "", .withID = container_.itemID, .withDomain = container_.domain},
        [self = shared_from_this(), changes](Payload reply, const auto&) {
            if (!changes->take()) return;
            self->deletionsArrived(reply.bytes(), changes->observer());
            changes->finish();
        });
}

void BrindlemarFileProviderItemEnumerator::deletionsArrived(std::string_view reply,
                                                            NSFileProviderChangeObserver& observer) const {
    const LogScope log = changesLog();
    const JSON json = JSON::parse(reply);
    std::vector<ItemIdentifier> deleted;
    if (json.isArray())
        json.forEach([&](std::string_view, const JSON& element) {
            deleted.push_back(element.stringValue());
            log.info(deleted.back());
        });
    log.info(json.description());
    if (deleted.empty()) return;
    log.info("enumerateChanges handler toDelete count: ", deleted.size());
    reportDeleted(observer, std::move(deleted));
}

void BrindlemarFileProviderItemEnumerator::reportDeleted(NSFileProviderChangeObserver& observer,
                                                         std::vector<ItemIdentifier> identifiers) const {
    if (container_.provider) container_.provider->caches->removeAll();
    observer.didDeleteItems(std::move(identifiers));
}

void BrindlemarFileProviderItemEnumerator::workingSetPass(const ChangeObserver& observer) {
    changesLog().info("enumerateChanges working set");
    std::optional<ItemIdentifier> recent;
    if (container_.provider)
        recent = container_.provider->enumerators.with(
            [](EnumeratorLists& lists) { return takeRecentContainer(lists.recentEnumerators); });
    if (recent) return listAgain(*recent, observer);
    reconcileTop(*observer);
    observer->finishEnumeratingChanges(newSyncAnchor(), false);
}

void BrindlemarFileProviderItemEnumerator::listAgain(const ItemIdentifier& container, const ChangeObserver& observer) {
    const ResolvedIdentifier id = resolveIdentifier(container);
    const auto changes = std::make_shared<PendingChanges>(observer, true);
    BxMessages::sharedInstance().enumerateItemsJSON(
        {.itemID = std::string(id.itemID), .from = "", .withDomain = std::string(id.domain)},
        [self = shared_from_this(), changes, container](Payload reply, const auto&) {
            if (!changes->take()) return;
            changesLog().info("enumerateChanges handler - (for: ", self->container_.itemID, ")");
            const ResolvedIdentifier id = resolveIdentifier(container);
            const auto list = parseItemListing(
                reply.bytes(), {.withDomain = id.domain, .writableRoot = self->container_.writableRoot});
            self->cacheListing(list, std::string(id.domain), id.itemID);
            changes->observer().didUpdateItems(ItemBatch(list));
            changes->finish();
        });
}

/// The items on show at the top that belong to no connection any more; none when they cannot be known.
std::optional<std::vector<ItemIdentifier>> BrindlemarFileProviderItemEnumerator::strangersAtTop() const {
    const LogScope log = changesLog();
    const auto rootURL = container_.provider->rootURL.copy();
    if (!rootURL) {
        log.error("Provider was unset");
        return std::nullopt;
    }
    const auto locations = securityScopedFileURLs(*rootURL);
    if (!locations) return std::nullopt;
    const auto records = container_.provider->connections.copy();
    std::vector<ItemIdentifier> strangers;
    for (const FileURL& location : *locations) {
        const auto identifier = identifierOf(location);
        if (!identifier) {
            log.warning("Could not get item for ", absoluteString(location));
            continue;
        }
        const bool isConnection =
            std::ranges::any_of(records, [name = lastPathComponent(location.path)](const auto& r) {
                return split(r, '|').front() == name;
            });
        if (!isConnection && *identifier != NSFileProviderTrashContainerItemIdentifier)
            strangers.push_back(*identifier);
    }
    return strangers;
}

void BrindlemarFileProviderItemEnumerator::reconcileTop(NSFileProviderChangeObserver& observer) const {
    const LogScope log = changesLog();
    log.info("enumerate connections on file(for: ", container_.itemID);
    auto roots = std::make_shared<ItemList>();
    if (container_.provider && container_.provider->configured) {
        auto strangers = strangersAtTop();
        if (!strangers) return;
        if (!strangers->empty()) reportDeleted(observer, std::move(*strangers));
        for (const std::string& record : container_.provider->connections.copy()) {
            log.info(record);
            if (split(record, '|').size() != 2) continue;
            auto item = connectionRoot(*parseConnection(record), {.withDomain = kDefaultDomain, .writableRoot = false});
            if (item) roots->push_back(std::move(item));
        }
    }
    observer.didUpdateItems(ItemBatch(std::move(roots)));
}

void BrindlemarFileProviderItemEnumerator::currentSyncAnchor(
    std::function<void(NSFileProviderSyncAnchor)> completionHandler) {
    Platform::current().files.printLine("asking for sync anchor");
    completionHandler(newSyncAnchor());
}

void BrindlemarFileProviderItemEnumerator::invalidate() {
    LogScope(Logger::shared(), "invalidate()").info("invalidate: ", container_.itemID);
    if (!container_.provider || !container_.rawContainer) return;
    container_.provider->enumerators.with(
        [&](EnumeratorLists& lists) { std::erase(lists.liveEnumerators, *container_.rawContainer); });
}

} // namespace brindlemar
