// How the store's own thread brings objects to the disk.
#include "linux/store/HybridStore.h"

#include <algorithm>

namespace brindlemar {

namespace {
constexpr std::size_t kLargestValue = std::size_t{16} << 20; // bytes
constexpr std::size_t kManyWaitingObjects = 10'000;
constexpr std::size_t kManyWaitingInGroups = 4'000'000;
} // namespace

void HybridStore::write() {
    if (groupWrite_) {
        writeGroup();
        return;
    }
    std::unique_lock lock(mutex_);
    if (!mayWrite()) return;
    if (state_.writes.front().groupCount > 0) {
        beginGroup(std::move(lock));
        return;
    }
    const std::uint64_t generation = state_.generation;
    const std::vector<Single> batch = takeSingles();
    const bool keysOnly = !setup_.file || state_.writes.size() > kManyWaitingObjects;
    lock.unlock();
    if (!batch.empty()) writeSingles(batch, generation, keysOnly);
}

/// Under the lock. Leaves out what a later write has replaced.
std::vector<HybridStore::Single> HybridStore::takeSingles() {
    std::vector<Single> batch;
    Writes& writes = state_.writes;
    for (; !writes.empty() && writes.front().groupCount == 0 && batch.size() < kBatch; writes.pop_front()) {
        const MemoryEntry* entry = state_.memory->find(writes.front().key);
        if (entry && entry->sequence == writes.front().sequence)
            batch.push_back({std::move(writes.front().key), *entry});
    }
    return batch;
}

RunWriter::Encode HybridStore::encoder(const StoredObject& object) const {
    if (!object) return nullptr;
    if (setup_.coder.estimatedSize && setup_.coder.estimatedSize(object) > kLargestValue) return nullptr;
    return [this, &object](std::string& bytes) { setup_.coder.encode(object, bytes); };
}

void HybridStore::writeSingles(const std::vector<Single>& batch, std::uint64_t generation, bool keysOnly) {
    StoreRun run{.sequence = batch.front().entry.sequence, .count = batch.size(), .expiry = Timestamp::min()};
    run.keys = std::make_shared<KeyIndex>(run.count);
    run.keys->buildOnce([&](std::size_t i, std::string& key) { key.append(batch[i].key); });
    RunWriter writer(keysOnly ? nullptr : setup_.file, run.count);
    for (const auto& [key, entry] : batch) {
        run.expiry = std::max(run.expiry, entry.expiry);
        writer.add({entry.sequence, entry.expiry, key, std::nullopt}, encoder(entry.object), kLargestValue);
    }
    run.disk = writer.finish();
    run.written = true;

    std::lock_guard lock(mutex_);
    if (state_.generation != generation) return;
    for (const auto& [key, entry] : batch) state_.memory->markWritten(key, entry.sequence);
    StoreRuns runs = *state_.runs;
    runs.push_back(std::move(run));
    replaceRuns(std::move(runs));
}

void HybridStore::beginGroup(std::unique_lock<std::mutex> lock) {
    const std::uint64_t generation = state_.generation, sequence = state_.writes.front().sequence;
    const bool keysOnly = !setup_.file || state_.waitingInGroups > kManyWaitingInGroups;
    std::optional<StoreRun> group;
    for (const StoreRun& run : *state_.runs)
        if (run.sequence == sequence && run.objects) group = run;
    lock.unlock();
    if (group && !keysOnly)
        groupWrite_ = GroupWrite{generation, *group, RunWriter(setup_.file, group->count)};
    else
        finishGroup(generation, sequence, nullptr);
}

void HybridStore::writeGroup() {
    auto& [generation, run, writer, next] = *groupWrite_;
    const bool wanted = isCurrent(generation) && run.expiry > clock_.now();
    const std::size_t end = wanted ? std::min(next + kBatch, run.count) : next;
    DiskRecord head{.expiry = run.expiry};
    for (; next < end; ++next) {
        const StoredObject object = run.objects->object(next);
        head.sequence = run.sequence + next;
        head.key.clear();
        run.objects->appendKey(next, head.key);
        writer.add(head, encoder(object), kLargestValue);
    }
    if (wanted && next < run.count && writer.flush()) return; // goes on
    finishGroup(generation, run.sequence, writer.finish());
    groupWrite_.reset();
}

/// Without `disk` the group is in memory only.
void HybridStore::finishGroup(std::uint64_t generation, std::uint64_t sequence, std::shared_ptr<const DiskRun> disk) {
    std::lock_guard lock(mutex_);
    if (state_.generation != generation) return;
    state_.waitingInGroups -= state_.writes.front().groupCount;
    state_.writes.pop_front();
    StoreRuns runs = *state_.runs;
    for (StoreRun& run : runs) {
        if (run.sequence != sequence || !run.objects) continue;
        run.disk = disk;
        run.written = true;
    }
    replaceRuns(std::move(runs));
}

} // namespace brindlemar
