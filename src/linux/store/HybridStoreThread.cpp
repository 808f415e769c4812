// What a store's own thread does: writing, forgetting, cleaning up.
#include "linux/store/HybridStore.h"

#include <malloc.h>

#include <utility>

namespace brindlemar {

namespace {
constexpr std::size_t kBatch = 1000; // records
constexpr std::size_t kBatchBytes = 1 << 20;
constexpr std::size_t kLargestValue = 16 << 20; // bytes
constexpr std::chrono::seconds kSweep{10};
} // namespace

void HybridStore::tidy() {
    const Timestamp now = clock_.now();
    try {
        write();
        drop(now);
    } catch (const std::exception&) { // no memory: begin again with nothing
        removeAll();
    }
    std::unique_lock lock(mutex_);
    const SharedFile file = state_.file;
    auto garbage = std::exchange(state_.garbage, {});
    lock.unlock();
    garbage.clear();
    if (std::chrono::abs(now - sweptAt_) < kSweep) return; // the clock may have been set
    sweptAt_ = now;
    ::malloc_trim(0);
    try {
        if (file) file->removeExpired(now);
    } catch (const RecordFile::Error& error) {
        abandon(file, error);
    }
}

void HybridStore::write() {
    std::vector<Entry> entries;
    std::unique_lock lock(mutex_);
    SharedFile file = state_.file;
    const std::uint64_t end = state_.last;
    const std::size_t waiting = state_.waiting;
    const auto waits = [this](const Entry& entry) { return entry.number > state_.written; };
    std::ranges::copy_if(state_.memory.groups, std::back_inserter(entries), waits);
    for (const auto& [key, entry] : state_.memory.singles)
        if (waits(entry)) entries.push_back(entry);
    lock.unlock();
    if (entries.empty()) return;
    std::ranges::sort(entries, {}, &Entry::number);
    try {
        if (!file) {
            file = std::make_shared<RecordFile>(setup_.path, setup_.configuration.diskMaximumSize);
            latestInFile_ = Timestamp::min();
            lock.lock();
            if (end > state_.written) state_.file = file; // else all was removed
            lock.unlock();
        }
        writeTo(file, entries);
    } catch (const RecordFile::Error& error) {
        abandon(file, error);
    }
    lock.lock();
    if (end <= state_.written) return;
    state_.written = end;
    state_.waiting -= waiting;
}

/// Ends early when the file is dropped.
void HybridStore::writeTo(const SharedFile& file, const std::vector<Entry>& entries) {
    const auto& [encode, decode, estimatedSize] = setup_.coder;
    std::vector<RecordFile::Record> records(kBatch);
    std::size_t used = 0, bytes = 0;
    const auto isCurrent = [&] {
        std::lock_guard lock(mutex_);
        return state_.file == file;
    };
    for (const auto& [group, expiry, number] : entries) {
        latestInFile_ = std::max(latestInFile_, expiry);
        for (const auto& [hash, place] : group->places()) {
            RecordFile::Record& record = records[used++];
            record.hash = hash;
            record.expiry = expiry;
            record.key.clear();
            record.value.clear();
            group->objects->appendKey(place, record.key);
            const StoredObject object = group->objects->object(place);
            record.hasValue = object && !(estimatedSize && estimatedSize(object) > kLargestValue);
            if (record.hasValue) encode(object, record.value);
            bytes += record.value.size();
            if (used < kBatch && bytes < kBatchBytes) continue;
            if (!isCurrent()) return;
            file->put(std::span(records).first(std::exchange(used, 0)));
            bytes = 0;
        }
    }
    if (isCurrent()) file->put(std::span(records).first(used));
}

/// What has expired, groups that the file has, and the oldest when memory holds too much. Only what is written goes,
/// and nothing that hides what stays.
void HybridStore::drop(Timestamp now) {
    std::lock_guard lock(mutex_);
    auto& [memory, file, last, written, waiting, garbage] = state_;
    const std::uint64_t limit = setup_.configuration.memoryCountLimit;
    std::uint64_t end = limit > 0 && last > limit ? last - limit : 0; // all up to here goes
    for (const Entry& group : memory.groups)
        if (group.number <= written && (file || group.expiry <= now)) end = std::max(end, group.number);
    end = std::min(end, written);
    auto& groups = memory.groups;
    const auto stay = std::ranges::find_if(groups, [end](const Entry& group) { return group.number > end; });
    for (auto group = groups.begin(); group != stay; ++group) garbage.push_back(std::move(group->group));
    groups.erase(groups.begin(), stay);
    std::erase_if(memory.singles, [&](const auto& item) {
        const auto& [group, expiry, number] = item.second;
        const bool goes = number <= end || (number <= state_.written && expiry <= now && state_.memory.groups.empty());
        if (goes) state_.garbage.push_back(group);
        return goes;
    });
    if (latestInFile_ <= now) garbage.push_back(std::exchange(file, nullptr));
}

} // namespace brindlemar
