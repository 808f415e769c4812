// Item stores on Linux: objects in memory, their bytes in a file, both given back as they expire.
#pragma once

#include "linux/store/MemoryFront.h"
#include "linux/store/StoreRun.h"
#include "platform/Clock.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace brindlemar {

/// Callers only touch memory; one thread of the store's own does the rest: it indexes groups, encodes and writes,
/// evicts what the disk has, drops what has expired, destroys what was dropped.
///
/// The latest write of a key wins wherever it lies. A single object is in memory until it is written, together with
/// others, as a run; a large group is a run from the start and is indexed by whoever needs the index first; a small
/// group is taken apart. A value of more than 16 MB is never on the disk. When writing falls behind by 10,000 objects
/// or 4,000,000 objects of groups, values stay off the disk; when even that cannot keep up, the store empties itself.
class HybridStore final : public ObjectStore {
public:
    struct Setup {
        StoreConfiguration configuration;
        ObjectCoder coder;
        std::shared_ptr<RunFile> file; // none: memory only
    };
    /// `clock` outlives the store. Throws std::system_error when there is no thread to be had.
    HybridStore(Setup setup, Clock& clock);
    ~HybridStore() override;

    StoredObject object(std::string_view forKey) override;
    void setObject(StoredObject object, std::string_view forKey, Timestamp expiry) override;
    void setObjects(std::shared_ptr<const ObjectGroup> group, Timestamp expiry) override;
    void removeAll() override;
    void removeExpiredObjects() override;

    /// Waits until the store's thread has nothing left to do. For tests and measurements.
    void settle();
    std::uint64_t diskUsed() const { return setup_.file ? setup_.file->used() : 0; }

private:
    struct Write { // of a single object, or of the group run with this sequence
        std::string key;
        std::uint64_t sequence = 0;
        std::size_t groupCount = 0; // 0: a single object
    };
    using Writes = std::deque<Write>;
    static constexpr std::size_t kBatch = 1000; // objects
    static constexpr std::chrono::milliseconds kGathering{100};
    static constexpr std::size_t kMostWaitingObjects = 100'000;
    struct Single { // ready to be written; without an object its key only
        std::string key;
        MemoryEntry entry;
    };
    struct GroupWrite { // under way
        std::uint64_t generation;
        StoreRun run;
        RunWriter writer;
        std::size_t next = 0;
    };
    struct Garbage {
        DroppedObjects objects;
        std::vector<std::unique_ptr<MemoryFront>> fronts;
        std::vector<SharedStoreRuns> runs;
        std::vector<Writes> writes;
        bool isEmpty() const { return objects.empty() && fronts.empty() && runs.empty() && writes.empty(); }
    };
    struct State {
        std::unique_ptr<MemoryFront> memory = std::make_unique<MemoryFront>();
        SharedStoreRuns fresh = std::make_shared<StoreRuns>(); // groups that the store's thread has not seen yet
        SharedStoreRuns runs = std::make_shared<StoreRuns>();  // in the order in which they hide each other
        Writes writes;
        std::size_t waitingInGroups = 0; // objects
        std::uint64_t nextSequence = 1;
        std::uint64_t generation = 0;     // counts removeAll
        Timestamp due = Timestamp::max(); // nothing expires before
        Garbage garbage;
        std::chrono::steady_clock::time_point gatherUntil{};
        unsigned settling = 0;
        bool crowded = false; // more in memory than there should be, and not only for want of writing
        bool idle = false, stopping = false;
    };
    struct Snapshot;

    // On any thread.
    Snapshot snapshot(std::string_view key);
    StoredObject decoded(std::string_view key, const RunHit& hit, const Snapshot& snapshot);
    void empty();

    // On the store's thread, in HybridStoreThread.cpp and HybridStoreWriting.cpp.
    void run();
    void await(std::unique_lock<std::mutex>& lock);
    bool hasWork() const;
    bool mayWrite() const;
    bool isCurrent(std::uint64_t generation);
    void destroyGarbage();
    void takeGroups();
    void takeApart(const StoreRun& group, std::uint64_t generation);
    void adopt(const StoreRun& group, std::uint64_t generation);
    void makeRoom();
    void replaceRuns(StoreRuns runs);

    void write();
    void beginGroup(std::unique_lock<std::mutex> lock);
    void writeGroup();
    void finishGroup(std::uint64_t generation, std::uint64_t sequence, std::shared_ptr<const DiskRun> disk);
    std::vector<Single> takeSingles();
    void writeSingles(const std::vector<Single>& batch, std::uint64_t generation, bool keysOnly);
    RunWriter::Encode encoder(const StoredObject& object) const;

    const Setup setup_;
    Clock& clock_;
    std::optional<GroupWrite> groupWrite_; // the store's thread's

    mutable std::mutex mutex_;
    std::condition_variable wake_, settled_;
    State state_;

    std::thread thread_; // last: it uses all of the above
};

/// Stores with their files in one directory, which is made when missing. A store's file is emptied when the store is
/// made; where that fails the store has memory only.
class HybridStores final : public ObjectStores {
public:
    HybridStores(std::string directory, Clock& clock) : directory_(std::move(directory)), clock_(clock) {}
    std::unique_ptr<ObjectStore> make(StoreConfiguration configuration, ObjectCoder coder) override;
    /// The file of the store with this name, whatever bytes the name holds.
    std::string filePath(std::string_view storeName) const;

private:
    const std::string directory_;
    Clock& clock_;
};

} // namespace brindlemar
