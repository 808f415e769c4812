// Item stores on Linux: objects in memory, their bytes in a file, both given back as they expire.
#pragma once

#include "linux/queues/SerialQueue.h"
#include "linux/store/IndexedGroup.h"
#include "platform/Clock.h"

#include <unordered_map>

namespace brindlemar {

/// Callers only touch memory, and the file to find what memory has not. Every second a thread of the store's own writes
/// what is new and drops what need not or must not stay.
///
/// Writes are numbered and reach the file in their order, so the latest write of a key is in memory or else in the
/// file. Memory has the last of them, as many as the configuration allows, and what waits to be written; a group leaves
/// it once it is in the file, and all that was written before does too. A value of more than 16 MB is never on the
/// disk. A file that fails is dropped, and the next write begins another; a store that cannot keep up empties itself.
class HybridStore final : public ObjectStore {
public:
    struct Setup {
        StoreConfiguration configuration;
        ObjectCoder coder;
        std::string path;                                 // of the file; there while it holds something
        std::function<void(std::string_view)> diagnostic; // hears of the disk's first failure, on any thread
    };
    /// Clock and timers outlive the store. Throws std::system_error when there is no thread to be had.
    HybridStore(Setup setup, Clock& clock, QueueTimers& timers);
    ~HybridStore() override { removeAll(); } // ends what is under way

    StoredObject object(std::string_view forKey) override;
    void setObject(StoredObject object, std::string_view forKey, Timestamp expiry) override;
    void setObjects(std::shared_ptr<const ObjectGroup> group, Timestamp expiry) override;
    void removeAll() override;
    void removeExpiredObjects() override {} // nobody gets them any more, and they go within a second

    /// Waits until all is written and dropped. For tests and measurements.
    void settle();

private:
    using SharedGroup = std::shared_ptr<const IndexedGroup>;
    using SharedFile = std::shared_ptr<RecordFile>;
    struct Entry { // one write
        SharedGroup group;
        Timestamp expiry;
        std::uint64_t number;
    };
    struct Memory {
        std::unordered_map<std::string, Entry> singles; // groups of one
        std::vector<Entry> groups;                      // in their order
    };
    struct State {
        Memory memory;
        SharedFile file; // made when there is something to write
        std::uint64_t last = 0;
        std::uint64_t written = 0; // up to here all is in the file that ever will be
        std::size_t waiting = 0;   // objects to be written
        // Destroyed by the store's thread: never under the lock, nor at a caller's expense.
        std::vector<std::shared_ptr<const void>> garbage;
    };

    // On any thread.
    StoredObject fromFile(std::string_view key, const SharedFile& file, std::uint64_t last);
    void put(SharedGroup group, Timestamp expiry, const std::optional<std::string>& singleKey);
    void empty();
    void abandon(const SharedFile& file, const RecordFile::Error& error);

    // On the store's thread, in HybridStoreThread.cpp.
    void tidy();
    void write();
    void writeTo(const SharedFile& file, const std::vector<Entry>& entries);
    void drop(Timestamp now);

    const Setup setup_;
    Clock& clock_;
    Timestamp latestInFile_{}, sweptAt_{}; // the store's thread's
    std::once_flag reported_;
    std::mutex mutex_;
    State state_;
    SerialQueue queue_; // its tasks use all of the above
    std::unique_ptr<Timer> everySecond_;
};

/// Stores with their files in one directory, which is made when missing; where that fails they have memory only. What
/// an earlier store of the same name left is removed. Clock and timers outlive the stores.
class HybridStores final : public ObjectStores {
public:
    using Diagnostic = std::function<void(std::string_view)>;
    HybridStores(std::string directory, Clock& clock, QueueTimers& timers, Diagnostic diagnostic)
        : directory_(std::move(directory)), clock_(clock), timers_(timers), diagnostic_(std::move(diagnostic)) {}
    std::unique_ptr<ObjectStore> make(StoreConfiguration configuration, ObjectCoder coder) override;
    /// The file of the store with this name, whatever bytes the name holds.
    std::string filePath(std::string_view storeName) const;

private:
    const std::string directory_;
    Clock& clock_;
    QueueTimers& timers_;
    const Diagnostic diagnostic_;
};

} // namespace brindlemar
