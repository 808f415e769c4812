// What the platform learns of changes: applied to what is known, and told to those who watch.
#pragma once

#include "platform/Enumerator.h"
#include "provider/LineOutput.h"
#include "support/Guarded.h"

#include <memory>
#include <unordered_map>
#include <unordered_set>

namespace brindlemar {

/// One enumeration of changes, complete; or, without an anchor, items of a listing.
struct ChangeSet {
    std::vector<ItemBatch> updated{};
    std::vector<ItemIdentifier> deleted{};
    std::optional<NSFileProviderSyncAnchor> anchor{};
    bool moreComing = false;
    std::optional<Timestamp> began{}; // unless it tells of this moment
};

/// Tells new and changed items from those that are reported again as they were. Knows items by fingerprints, some 50
/// bytes each. Not thread-safe.
class KnownItems {
public:
    /// True when the item is new or differs from what was known. It counts as known from now on.
    bool update(const NSFileProviderItem& item);
    void forget(std::string_view identifier);
    /// True when the item is, or lies anywhere below, the container, as far as its parents are known.
    bool isWithin(std::string_view identifier, std::string_view container) const;

private:
    struct Entry {
        std::size_t fingerprint = 0, parent = 0;
    };
    std::unordered_map<std::size_t, Entry> entries_; // by the identifier's hash
};

/// Thread-safe. Watchers are written to under the feed's lock, one change set after the other; one that does not read
/// for some seconds is given up.
class ChangeFeed {
public:
    /// The names on show at the top, with the items that stand behind them.
    using TopLevel = std::unordered_map<ItemIdentifier, std::string>;

    void apply(const ChangeSet& changes);
    /// Gets each change set before the watchers do. To be set before the first comes.
    void setSink(std::function<void(const ChangeSet&)> sink) {
        sink_.with([&](auto& current) { current.swap(sink); });
    }
    TopLevel topLevel() const { return topLevel_.copy(); }

    /// Writes the events of change sets to the output until its reader is gone; of those about the container and all
    /// below it only, unless it is empty.
    void watch(std::shared_ptr<LineOutput> output, ItemIdentifier container);
    void unwatch(const LineOutput& output);

private:
    struct Watcher {
        std::shared_ptr<LineOutput> output;
        ItemIdentifier container;
    };
    struct State {
        KnownItems known;
        std::vector<Watcher> watchers;
    };
    void tell(State& state, const ChangeSet& changes, const ItemList& changed,
              const std::vector<ItemIdentifier>& gone) const;

    Guarded<State> state_;
    Guarded<std::function<void(const ChangeSet&)>> sink_;
    Guarded<TopLevel> topLevel_; // apart: read while a change set is being applied
};

/// Collects one enumeration and hands it over at its finish.
class ChangeCollector final : public NSFileProviderChangeObserver {
public:
    explicit ChangeCollector(std::function<void(ChangeSet)> finished) : finished_(std::move(finished)) {}
    void didUpdateItems(ItemBatch items) override { changes_.updated.push_back(std::move(items)); }
    void didDeleteItems(std::vector<ItemIdentifier> identifiers) override {
        changes_.deleted.insert(changes_.deleted.end(), identifiers.begin(), identifiers.end());
    }
    void finishEnumeratingChanges(NSFileProviderSyncAnchor upTo, bool moreComing) override {
        changes_.anchor = std::move(upTo);
        changes_.moreComing = moreComing;
        finished_(std::move(changes_));
    }

private:
    const std::function<void(ChangeSet)> finished_;
    ChangeSet changes_;
};

} // namespace brindlemar
