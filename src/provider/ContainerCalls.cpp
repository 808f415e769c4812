#include "provider/CallRows.h"

#include "provider/EventText.h"

#include <algorithm>

namespace brindlemar {

namespace {
constexpr std::int64_t kWholeFolder = 1'000'000; // pages are cut from what a cache may have lost meanwhile

/// One listing on its way through its pages; `feed`, if any, learns of its items.
class Listing final : public NSFileProviderEnumerationObserver, public std::enable_shared_from_this<Listing> {
public:
    Listing(Call call, std::shared_ptr<NSFileProviderEnumerator> enumerator, std::int64_t pageSize,
            ChangeFeed* feed = nullptr, std::shared_ptr<const void> atEnd = nullptr)
        : call_(std::move(call)), enumerator_(std::move(enumerator)), pageSize_(pageSize), feed_(feed),
          atEnd_(std::move(atEnd)), began_(call_.places.clock.now()) {}

    void start() { ask(NSFileProviderPage(std::string(NSFileProviderInitialPageSortedByName))); }

    std::int64_t suggestedPageSize() const override { return pageSize_; }
    void didEnumerateItems(ItemBatch items) override {
        call_.output->write(itemsEvent(items.items()));
        if (feed_) feed_->apply({.updated = {std::move(items)}, .began = began_});
    }
    void finishEnumeratingUpToPage(std::optional<NSFileProviderPage> page) override {
        if (call_.output->write(finishEvent(page)) && page) ask(std::move(*page));
    }

private:
    void ask(NSFileProviderPage page) {
        call_.places.tasks.async(
            [self = shared_from_this(), page = std::move(page)] { self->enumerator_->enumerateItems(self, page); });
    }

    const Call call_;
    const std::shared_ptr<NSFileProviderEnumerator> enumerator_;
    const std::int64_t pageSize_;
    ChangeFeed* const feed_;
    const std::shared_ptr<const void> atEnd_;
    const Timestamp began_;
};

/// An enumerator for this call alone, and what ends it; none when the call has failed.
struct OwnEnumerator {
    std::shared_ptr<NSFileProviderEnumerator> enumerator;
    std::shared_ptr<const void> invalidation;
};
OwnEnumerator makeEnumerator(const Call& call) {
    auto made = call.places.extension->enumerator(call.id());
    if (const auto* error = std::get_if<NSError>(&made)) {
        call.fail(*error);
        return {};
    }
    const auto enumerator = std::get<0>(std::move(made));
    return {enumerator, {enumerator.get(), [enumerator](const void*) { enumerator->invalidate(); }}};
}

} // namespace

void callList(Call call) {
    const auto pageSize = call.arguments["pageSize"].number();
    const std::int64_t size = std::max<std::int64_t>(pageSize ? pageSize->int64Value() : 1, 1);
    auto [enumerator, invalidation] = makeEnumerator(call);
    if (!enumerator) return;
    std::make_shared<Listing>(std::move(call), enumerator, size, nullptr, invalidation)->start();
}

void callBrowse(Call call) {
    auto opened = call.places.folders.open(*call.places.extension, call.id());
    if (const auto* error = std::get_if<NSError>(&opened)) return call.fail(*error);
    const auto& [enumerator, stale] = std::get<OpenFolders::Opened>(opened);
    const auto listing = std::make_shared<Listing>(call, enumerator, kWholeFolder, &call.places.feed);
    // Only the hosts know of deletions; those at the top come with the working set.
    const ItemIdentifier container = call.id();
    if (!stale || !resolveIdentifier(container).qualified) return listing->start();
    enumerator->enumerateChanges(std::make_shared<ChangeCollector>([call, listing](const ChangeSet& changes) {
                                     call.places.feed.apply(changes);
                                     listing->start();
                                 }),
                                 NSFileProviderSyncAnchor());
}

void callChanges(Call call) {
    auto [enumerator, invalidation] = makeEnumerator(call);
    if (!enumerator) return;
    enumerator->enumerateChanges(
        std::make_shared<ChangeCollector>([call, invalidation = invalidation](const ChangeSet& changes) {
            for (const ItemBatch& batch : changes.updated) call.output->write(updatedEvent(batch.items()));
            if (!changes.deleted.empty()) call.output->write(deletedEvent(changes.deleted));
            call.output->write(changesFinishEvent(*changes.anchor, changes.moreComing));
        }),
        NSFileProviderSyncAnchor());
}

void callAnchor(Call call) {
    const auto [enumerator, invalidation] = makeEnumerator(call);
    if (!enumerator) return;
    enumerator->currentSyncAnchor(
        [&](const NSFileProviderSyncAnchor& anchor) { call.output->write(changesFinishEvent(anchor, false)); });
}

void callWatch(Call call) {
    ChangeFeed& feed = call.places.feed;
    feed.watch(call.output, call.id());
    call.output->onReaderGone([&feed, output = call.output.get()] { feed.unwatch(*output); });
}

} // namespace brindlemar
