#include "linux/store/HybridStore.h"

#include "linux/ports/PortAddress.h"
#include "linux/queues/QuietThread.h"

#include <filesystem>
#include <system_error>

namespace brindlemar {

namespace {
constexpr std::size_t kMostFreshGroups = 10'000;
constexpr std::size_t kMostWaitingInGroups = 16'000'000;
} // namespace

struct HybridStore::Snapshot {
    std::optional<MemoryEntry> entry;
    SharedStoreRuns fresh, runs;
    std::uint64_t generation = 0;
};

HybridStore::HybridStore(Setup setup, Clock& clock)
    : setup_(std::move(setup)), clock_(clock), thread_(startQuietThread([this] { run(); })) {}

HybridStore::~HybridStore() {
    {
        std::lock_guard lock(mutex_);
        state_.stopping = true;
    }
    wake_.notify_one();
    thread_.join();
}

HybridStore::Snapshot HybridStore::snapshot(std::string_view key) {
    std::lock_guard lock(mutex_);
    Snapshot snapshot{std::nullopt, state_.fresh, state_.runs, state_.generation};
    if (const MemoryEntry* entry = state_.memory->find(key)) snapshot.entry = *entry;
    return snapshot;
}

StoredObject HybridStore::object(std::string_view key) {
    const Snapshot now = snapshot(key);
    const std::uint64_t hash = KeyIndex::hash(key);
    const auto isLive = [time = clock_.now()](Timestamp expiry) { return expiry > time; };
    for (const SharedStoreRuns& list : {now.fresh, now.runs})
        for (auto run = list->rbegin(); run != list->rend(); ++run) {
            // Of what is in memory only groups can be later writes.
            if (now.entry && (!run->objects || run->sequence < now.entry->sequence)) continue;
            const auto hit = findInRun(*run, key, hash);
            if (!hit) continue;
            if (!isLive(hit->expiry)) return nullptr;
            return hit->bytes ? decoded(key, *hit, now) : hit->object;
        }
    return now.entry && isLive(now.entry->expiry) ? now.entry->object : nullptr;
}

/// Decoded outside the lock; kept in memory unless something was written in the meantime that might hide it.
StoredObject HybridStore::decoded(std::string_view key, const RunHit& hit, const Snapshot& snapshot) {
    StoredObject object = setup_.coder.decode(*hit.bytes);
    if (!object) return nullptr;
    {
        std::lock_guard lock(mutex_);
        if (state_.generation != snapshot.generation) return nullptr;
        const std::size_t limit = setup_.configuration.memoryCountLimit;
        const bool unchanged = state_.fresh == snapshot.fresh && state_.runs == snapshot.runs;
        if (!unchanged || state_.memory->find(key) || (limit > 0 && state_.memory->size() >= 2 * limit)) return object;
        state_.memory->put(key, {object, hit.expiry, hit.sequence, true}, state_.garbage.objects);
        state_.due = std::min(state_.due, hit.expiry);
        state_.crowded = limit > 0 && state_.memory->size() > limit;
        if (!state_.crowded) return object;
    }
    wake_.notify_one();
    return object;
}

void HybridStore::setObject(StoredObject object, std::string_view key, Timestamp expiry) {
    bool wake = false;
    {
        std::lock_guard lock(mutex_);
        if (state_.writes.size() >= kMostWaitingObjects) empty();
        const std::uint64_t sequence = state_.nextSequence++;
        state_.memory->put(key, {std::move(object), expiry, sequence, false}, state_.garbage.objects);
        if (state_.writes.empty()) state_.gatherUntil = std::chrono::steady_clock::now() + kGathering;
        state_.writes.push_back({std::string(key), sequence, 0});
        state_.due = std::min(state_.due, expiry);
        wake = state_.writes.size() == 1 || state_.writes.size() == kBatch;
    }
    if (wake) wake_.notify_one();
}

void HybridStore::setObjects(std::shared_ptr<const ObjectGroup> group, Timestamp expiry) {
    const std::size_t count = group->count();
    if (count == 0) return;
    {
        std::lock_guard lock(mutex_);
        if (state_.fresh->size() >= kMostFreshGroups || state_.waitingInGroups + count > kMostWaitingInGroups) empty();
        auto fresh = std::make_shared<StoreRuns>(*state_.fresh);
        fresh->push_back(
            {state_.nextSequence, count, expiry, std::make_shared<KeyIndex>(count), std::move(group), nullptr});
        state_.nextSequence += count;
        state_.waitingInGroups += count;
        state_.due = std::min(state_.due, expiry);
        state_.garbage.runs.push_back(std::exchange(state_.fresh, std::move(fresh)));
    }
    wake_.notify_one();
}

void HybridStore::removeAll() {
    {
        std::lock_guard lock(mutex_);
        empty();
    }
    wake_.notify_one();
}

/// Under the lock. What is under way is recognised by its generation and not published.
void HybridStore::empty() {
    ++state_.generation;
    state_.garbage.fronts.push_back(std::exchange(state_.memory, std::make_unique<MemoryFront>()));
    state_.garbage.runs.push_back(std::exchange(state_.fresh, std::make_shared<StoreRuns>()));
    state_.garbage.runs.push_back(std::exchange(state_.runs, std::make_shared<StoreRuns>()));
    state_.garbage.writes.push_back(std::exchange(state_.writes, {}));
    state_.waitingInGroups = 0;
    state_.due = Timestamp::max();
}

void HybridStore::removeExpiredObjects() {
    const Timestamp now = clock_.now();
    {
        std::lock_guard lock(mutex_);
        if (state_.due > now) return;
    }
    wake_.notify_one();
}

void HybridStore::settle() {
    std::unique_lock lock(mutex_);
    ++state_.settling;
    wake_.notify_one();
    state_.idle = false;
    settled_.wait(lock, [this] { return state_.idle; });
    --state_.settling;
}

std::string HybridStores::filePath(std::string_view storeName) const {
    return directory_ + "/" + portFileName(storeName) + ".store";
}

std::unique_ptr<ObjectStore> HybridStores::make(StoreConfiguration configuration, ObjectCoder coder) {
    try {
        std::filesystem::create_directories(directory_);
    } catch (const std::filesystem::filesystem_error&) { // memory only, then
    }
    auto file = RunFile::create(filePath(configuration.name));
    try {
        return std::make_unique<HybridStore>(
            HybridStore::Setup{std::move(configuration), std::move(coder), std::move(file)}, clock_);
    } catch (const std::system_error&) { // no thread
        return nullptr;
    }
}

} // namespace brindlemar
