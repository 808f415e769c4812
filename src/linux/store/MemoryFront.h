// The objects that a store holds in memory one by one.
#pragma once

#include "platform/ObjectStore.h"

#include <list>
#include <map>
#include <unordered_map>
#include <vector>

namespace brindlemar {

/// Objects that left the store. They are destroyed by the store's own thread: never under its lock, nor at a caller's
/// expense.
using DroppedObjects = std::vector<StoredObject>;

struct MemoryEntry {
    StoredObject object; // none once it expired before it was written
    Timestamp expiry{};
    std::uint64_t sequence = 0; // of the write that it stems from
    bool written = false;       // to the disk, where the key is found again when the entry is gone
};

/// Not thread-safe; runs no foreign code.
class MemoryFront {
public:
    /// Valid until the next change.
    const MemoryEntry* find(std::string_view key) const;
    void put(std::string_view key, MemoryEntry entry, DroppedObjects& dropped);
    void markWritten(std::string_view key, std::uint64_t sequence);
    /// Removes the entry unless a later write has replaced it.
    void erase(std::string_view key, std::uint64_t sequence, DroppedObjects& dropped);
    /// Removes the oldest of the written entries until no more than `limit` entries are left.
    void evict(std::size_t limit, DroppedObjects& dropped);
    /// Written entries go, of the others the objects.
    void removeExpired(Timestamp now, DroppedObjects& dropped);

    std::size_t size() const { return entries_.size(); }
    /// Before this no entry expires; Timestamp::max() when none ever does.
    Timestamp nextExpiry() const { return byExpiry_.empty() ? Timestamp::max() : byExpiry_.begin()->first; }
    /// Keys with the sequences of their writes.
    std::vector<std::pair<std::string, std::uint64_t>> keys() const;

private:
    struct Hash {
        using is_transparent = void;
        std::size_t operator()(std::string_view key) const { return std::hash<std::string_view>()(key); }
    };
    struct Node;
    using Entries = std::unordered_map<std::string, Node, Hash, std::equal_to<>>;
    using Order = std::list<Entries::value_type*>;
    using ByExpiry = std::multimap<Timestamp, Entries::value_type*>;
    struct Node {
        MemoryEntry entry;
        Order::iterator place;
        ByExpiry::iterator due; // end when the object is gone
    };
    Order::iterator remove(Entries::value_type& node, DroppedObjects& dropped);

    Entries entries_;
    Order order_; // the oldest first
    ByExpiry byExpiry_;
};

} // namespace brindlemar
