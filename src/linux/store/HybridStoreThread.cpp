// What the store's own thread does besides writing: taking in groups, forgetting, cleaning up.
#include "linux/store/HybridStore.h"

#include <malloc.h>

#include <algorithm>

namespace brindlemar {

namespace {

constexpr std::size_t kSmallGroup = 256;
constexpr auto kLongestWait = std::chrono::seconds(5); // the clock may be set
// The allocator is asked to return memory after this much went.
constexpr std::size_t kManyObjects = 50'000;
constexpr std::size_t kLargeObject = 16 << 20; // bytes

StoreRuns joined(const StoreRuns& runs, StoreRun last) {
    StoreRuns all;
    all.reserve(runs.size() + 1);
    all.assign(runs.begin(), runs.end());
    all.push_back(std::move(last));
    return all;
}

/// The oldest written groups keep no objects until no more than `limit` do. True when that changed something.
bool releaseGroups(StoreRuns& runs, std::size_t groups, std::size_t limit) {
    const std::size_t before = groups;
    for (StoreRun& run : runs) {
        if (groups <= limit) break;
        if (!run.objects || !run.written) continue;
        run.objects = nullptr;
        --groups;
    }
    return groups != before;
}

/// The oldest runs leave the disk until `excess` bytes are free. True when that changed something.
bool releaseDisk(StoreRuns& runs, std::uint64_t excess) {
    const std::uint64_t before = excess;
    for (StoreRun& run : runs) {
        if (excess == 0) break;
        if (!run.disk) continue;
        excess -= std::min(excess, run.disk->size());
        run.disk = nullptr;
    }
    return excess != before;
}

} // namespace

void HybridStore::run() {
    std::unique_lock lock(mutex_);
    while (!state_.stopping) {
        if (!hasWork()) {
            await(lock);
            continue;
        }
        lock.unlock();
        try {
            destroyGarbage();
            takeGroups();
            write();
            makeRoom();
        } catch (const std::exception&) { // no memory: begin again with nothing
            removeAll();
        }
        lock.lock();
    }
}

bool HybridStore::isCurrent(std::uint64_t generation) {
    std::lock_guard lock(mutex_);
    return state_.generation == generation;
}

bool HybridStore::mayWrite() const {
    // Groups first: they may hold earlier writes of the same keys.
    if (state_.writes.empty() || !state_.fresh->empty()) return false;
    return state_.settling > 0 || state_.writes.front().groupCount > 0 || state_.writes.size() >= kBatch ||
           std::chrono::steady_clock::now() >= state_.gatherUntil;
}

bool HybridStore::hasWork() const {
    return !state_.garbage.isEmpty() || !state_.fresh->empty() || mayWrite() || state_.crowded ||
           state_.due <= clock_.now();
}

void HybridStore::await(std::unique_lock<std::mutex>& lock) {
    state_.idle = true;
    settled_.notify_all();
    const auto untilDue = [this] {
        return std::min<std::chrono::nanoseconds>(state_.due - clock_.now(), kLongestWait);
    };
    if (!state_.writes.empty())
        wake_.wait_until(lock, state_.gatherUntil);
    else if (state_.due != Timestamp::max())
        wake_.wait_for(lock, untilDue());
    else
        wake_.wait(lock);
    state_.idle = false;
}

void HybridStore::destroyGarbage() {
    Garbage garbage;
    {
        std::lock_guard lock(mutex_);
        std::swap(garbage, state_.garbage);
    }
    std::size_t large = 0; // groups and objects
    std::vector<std::weak_ptr<const ObjectGroup>> groups;
    for (const SharedStoreRuns& runs : garbage.runs)
        for (const StoreRun& run : *runs)
            if (run.objects && run.count >= kManyObjects) groups.push_back(run.objects);
    if (setup_.coder.estimatedSize)
        for (const StoredObject& object : garbage.objects) large += setup_.coder.estimatedSize(object) >= kLargeObject;
    garbage = Garbage();
    for (const auto& group : groups) large += group.expired();
    if (large > 0) ::malloc_trim(0);
}

void HybridStore::takeGroups() {
    for (;;) {
        SharedStoreRuns groups;
        std::uint64_t generation;
        {
            std::lock_guard lock(mutex_);
            if (state_.fresh->empty()) return;
            groups = state_.fresh;
            generation = state_.generation;
        }
        for (const StoreRun& group : *groups)
            if (group.count < kSmallGroup)
                takeApart(group, generation);
            else
                adopt(group, generation);
        std::lock_guard lock(mutex_);
        if (state_.generation != generation) continue;
        const auto taken = static_cast<std::ptrdiff_t>(groups->size());
        auto rest = std::make_shared<StoreRuns>(state_.fresh->begin() + taken, state_.fresh->end());
        state_.garbage.runs.push_back(std::exchange(state_.fresh, std::move(rest)));
    }
}

/// Under the lock.
void HybridStore::replaceRuns(StoreRuns runs) {
    state_.garbage.runs.push_back(std::exchange(state_.runs, std::make_shared<StoreRuns>(std::move(runs))));
}

void HybridStore::takeApart(const StoreRun& group, std::uint64_t generation) {
    std::vector<std::pair<std::string, StoredObject>> items(group.count);
    for (std::size_t i = 0; i < group.count; ++i) {
        group.objects->appendKey(i, items[i].first);
        items[i].second = group.objects->object(i);
    }
    std::lock_guard lock(mutex_);
    if (state_.generation != generation) return;
    if (state_.writes.size() >= kMostWaitingObjects) {
        empty();
        return;
    }
    if (state_.writes.empty()) state_.gatherUntil = std::chrono::steady_clock::now() + kGathering;
    for (std::size_t i = 0; i < group.count; ++i) {
        auto& [key, object] = items[i];
        const std::uint64_t sequence = group.sequence + i;
        const MemoryEntry* newer = state_.memory->find(key);
        if (newer && newer->sequence > sequence) continue;
        state_.memory->put(key, {std::move(object), group.expiry, sequence, false}, state_.garbage.objects);
        state_.writes.push_back({std::move(key), sequence, 0});
    }
    state_.waitingInGroups -= group.count;
}

void HybridStore::adopt(const StoreRun& group, std::uint64_t generation) {
    group.buildIndex();
    auto hidden = [this] {
        std::lock_guard lock(mutex_);
        return state_.memory->keys();
    }();
    std::erase_if(hidden, [&](const auto& entry) {
        return entry.second > group.sequence || !findInRun(group, entry.first, KeyIndex::hash(entry.first));
    });
    std::lock_guard lock(mutex_);
    if (state_.generation != generation) return;
    for (const auto& [key, sequence] : hidden) state_.memory->erase(key, sequence, state_.garbage.objects);
    replaceRuns(joined(*state_.runs, group));
    state_.writes.push_back({{}, group.sequence, group.count});
}

void HybridStore::makeRoom() {
    const Timestamp now = clock_.now();
    const std::uint64_t used = diskUsed(), most = setup_.configuration.diskMaximumSize;
    std::lock_guard lock(mutex_);
    const bool isDue = state_.due <= now;
    const auto groups = static_cast<std::size_t>(std::count_if(
        state_.runs->begin(), state_.runs->end(), [](const StoreRun& run) { return run.objects != nullptr; }));
    const std::size_t limit = setup_.configuration.memoryCountLimit;
    state_.memory->removeExpired(now, state_.garbage.objects);
    if (limit > 0) state_.memory->evict(limit - std::min(limit, groups), state_.garbage.objects);
    state_.crowded = false;
    if (isDue || (most > 0 && used > most) || (limit > 0 && groups > limit)) {
        StoreRuns runs = isDue ? withoutExpired(*state_.runs, now) : *state_.runs;
        const bool fewerOnDisk = most > 0 && used > most && releaseDisk(runs, used - most);
        const bool fewerGroups = limit > 0 && groups > limit && releaseGroups(runs, groups, limit);
        if (isDue || fewerOnDisk || fewerGroups) replaceRuns(std::move(runs));
    }
    state_.due = std::min({state_.memory->nextExpiry(), nextExpiry(*state_.runs, now), nextExpiry(*state_.fresh, now)});
}

} // namespace brindlemar
