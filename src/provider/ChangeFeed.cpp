#include "provider/ChangeFeed.h"

#include "provider/EventText.h"

#include <algorithm>
#include <functional>

namespace brindlemar {

namespace {
constexpr auto kPatience = std::chrono::seconds(5);

std::size_t hash(std::string_view text) { return std::hash<std::string_view>()(text); }

std::size_t mix(std::size_t seed, std::size_t value) {
    return (seed ^ value) * 0x9E3779B97F4A7C15ull; // 2^64 over the golden ratio
}
} // namespace

bool KnownItems::update(const NSFileProviderItem& item) {
    const auto modified = item.contentModificationDate();
    const std::size_t parent = hash(item.parentItemIdentifier());
    std::size_t fingerprint = mix(hash(item.filename()), parent);
    fingerprint = mix(fingerprint, item.documentSize().value_or(0));
    fingerprint = mix(fingerprint, modified ? static_cast<std::size_t>(modified->time_since_epoch().count()) : 0);
    const auto [entry, isNew] = entries_.try_emplace(hash(item.itemIdentifier()));
    if (!isNew && entry->second.fingerprint == fingerprint) return false;
    entry->second = {fingerprint, parent};
    return true;
}

void KnownItems::forget(std::string_view identifier) { entries_.erase(hash(identifier)); }

bool KnownItems::isWithin(std::string_view identifier, std::string_view container) const {
    constexpr int deepest = 1000; // parents that a host reports may run in a circle
    const std::size_t wanted = hash(container);
    std::size_t at = hash(identifier);
    for (int depth = 0; depth < deepest; ++depth) {
        if (at == wanted) return true;
        const auto entry = entries_.find(at);
        if (entry == entries_.end()) return false;
        at = entry->second.parent;
    }
    return false;
}

void ChangeFeed::apply(const ChangeSet& changes) {
    if (const auto sink = sink_.copy()) sink(changes);
    topLevel_.with([&](TopLevel& top) {
        for (const ItemIdentifier& identifier : changes.deleted) top.erase(identifier);
        for (const ItemBatch& batch : changes.updated)
            for (const auto& item : batch.items())
                if (item->parentItemIdentifier() == NSFileProviderRootContainerItemIdentifier)
                    top[ItemIdentifier(item->itemIdentifier())] = item->filename();
    });
    std::vector<Watcher> dropped;                 // their descriptors close outside the lock
    std::unordered_set<std::string_view> present; // a pass may delete a name at the top and report its item again
    for (const ItemBatch& batch : changes.updated)
        if (!changes.deleted.empty())
            for (const auto& item : batch.items()) present.insert(item->itemIdentifier());
    std::vector<ItemIdentifier> deleted = changes.deleted;
    std::erase_if(deleted, [&](const ItemIdentifier& identifier) { return present.contains(identifier); });
    state_.with([&](State& state) {
        ItemList changed;
        for (const ItemBatch& batch : changes.updated)
            for (const auto& item : batch.items())
                if (state.known.update(*item)) changed.push_back(item);
        tell(state, changes, changed, deleted);
        for (const ItemIdentifier& identifier : deleted) state.known.forget(identifier);
        const auto gone = std::partition(state.watchers.begin(), state.watchers.end(),
                                         [](const Watcher& watcher) { return watcher.output->isOpen(); });
        dropped.assign(std::move_iterator(gone), std::move_iterator(state.watchers.end()));
        state.watchers.erase(gone, state.watchers.end());
    });
}

void ChangeFeed::tell(State& state, const ChangeSet& changes, const ItemList& changed,
                      const std::vector<ItemIdentifier>& gone) const {
    for (const Watcher& watcher : state.watchers) {
        const auto concerns = [&](std::string_view identifier) {
            return watcher.container.empty() || state.known.isWithin(identifier, watcher.container);
        };
        ItemList items;
        std::vector<ItemIdentifier> deleted;
        std::ranges::copy_if(changed, std::back_inserter(items),
                             [&](const auto& item) { return concerns(item->itemIdentifier()); });
        std::ranges::copy_if(gone, std::back_inserter(deleted), concerns);
        if (!items.empty()) watcher.output->write(updatedEvent(items), kPatience);
        if (!deleted.empty()) watcher.output->write(deletedEvent(deleted), kPatience);
        if (changes.anchor && (!items.empty() || !deleted.empty()))
            watcher.output->write(changesFinishEvent(*changes.anchor, changes.moreComing), kPatience);
    }
}

void ChangeFeed::watch(std::shared_ptr<LineOutput> output, ItemIdentifier container) {
    state_.with([&](State& state) { state.watchers.push_back({std::move(output), std::move(container)}); });
}

void ChangeFeed::unwatch(const LineOutput& output) {
    std::vector<Watcher> dropped;
    state_.with([&](State& state) {
        for (auto& watcher : state.watchers)
            if (watcher.output.get() == &output) dropped.push_back(watcher);
        std::erase_if(state.watchers, [&](const Watcher& watcher) { return watcher.output.get() == &output; });
    });
}

} // namespace brindlemar
