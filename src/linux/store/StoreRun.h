// Consecutive writes of a store, found through one index.
#pragma once

#include "linux/store/KeyIndex.h"
#include "linux/store/RunFile.h"
#include "platform/ObjectStore.h"

#include <vector>

namespace brindlemar {

/// Knows which keys were written when; the values lie in memory, else on the disk, else nowhere. A run without values
/// still counts: its keys hide what earlier runs hold under them.
struct StoreRun {
    std::uint64_t sequence = 0; // of the first key
    std::size_t count = 0;
    Timestamp expiry{}; // of the last key to expire
    std::shared_ptr<KeyIndex> keys{};
    std::shared_ptr<const ObjectGroup> objects{}; // key i expires at `expiry` and was written at sequence + i
    std::shared_ptr<const DiskRun> disk{};
    bool written = false; // all of it is on the disk that ever will be

    void buildIndex() const;
};

using StoreRuns = std::vector<StoreRun>;
using SharedStoreRuns = std::shared_ptr<const StoreRuns>;

/// What a run has under a key. Neither object nor bytes: the value is nowhere.
struct RunHit {
    std::uint64_t sequence = 0;
    Timestamp expiry{};
    StoredObject object;
    std::optional<std::string> bytes;
};

/// None when the key is not one of the run's.
std::optional<RunHit> findInRun(const StoreRun& run, std::string_view key, std::uint64_t hash);

/// The runs that must be kept at this time: those that have not expired, and those that hide an earlier one that has
/// not. The hiding ones come without their values.
StoreRuns withoutExpired(const StoreRuns& runs, Timestamp now);

/// The earliest expiry after `now`; Timestamp::max() when there is none.
Timestamp nextExpiry(const StoreRuns& runs, Timestamp now);

} // namespace brindlemar
