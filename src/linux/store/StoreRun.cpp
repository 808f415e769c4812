#include "linux/store/StoreRun.h"

#include <algorithm>

namespace brindlemar {

void StoreRun::buildIndex() const {
    if (objects) keys->buildOnce([this](std::size_t number, std::string& key) { objects->appendKey(number, key); });
}

namespace {

std::optional<RunHit> findObject(const StoreRun& run, std::string_view key, std::uint64_t hash) {
    run.buildIndex();
    std::string candidate;
    const auto number = run.keys->find(hash, [&](std::size_t i) {
        candidate.clear();
        run.objects->appendKey(i, candidate);
        return candidate == key;
    });
    if (!number) return std::nullopt;
    return RunHit{run.sequence + *number, run.expiry, run.objects->object(*number), std::nullopt};
}

std::optional<RunHit> findRecord(const StoreRun& run, std::string_view key, std::uint64_t hash) {
    std::optional<DiskRecord> record;
    const auto number = run.keys->find(hash, [&](std::size_t i) {
        record = run.disk->read(i);
        return !record || record->key == key; // what cannot be read is lost, not absent
    });
    if (!number) return std::nullopt;
    if (!record) return RunHit{};
    return RunHit{record->sequence, record->expiry, nullptr, std::move(record->value)};
}

} // namespace

std::optional<RunHit> findInRun(const StoreRun& run, std::string_view key, std::uint64_t hash) {
    if (run.objects) return findObject(run, key, hash);
    if (run.disk) return findRecord(run, key, hash);
    // Two keys with one hash cost a miss.
    return run.keys->find(hash, [](std::size_t) { return true; }) ? std::optional(RunHit{}) : std::nullopt;
}

StoreRuns withoutExpired(const StoreRuns& runs, Timestamp now) {
    StoreRuns kept;
    Timestamp latest = Timestamp::min();
    for (const StoreRun& run : runs) {
        if (run.expiry > now) {
            kept.push_back(run);
            latest = std::max(latest, run.expiry);
        } else if (latest > now) {
            kept.push_back({run.sequence, run.count, run.expiry, run.keys, nullptr, nullptr, true});
        }
    }
    return kept;
}

Timestamp nextExpiry(const StoreRuns& runs, Timestamp now) {
    Timestamp next = Timestamp::max();
    for (const StoreRun& run : runs)
        if (run.expiry > now) next = std::min(next, run.expiry);
    return next;
}

} // namespace brindlemar
