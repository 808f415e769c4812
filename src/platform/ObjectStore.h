// Key-value stores with a memory front and a disk back, whose entries expire at a given time.
#pragma once

#include "platform/Timestamp.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace brindlemar {

/// A value whose type only the store's owner knows.
using StoredObject = std::shared_ptr<void>;

/// Turns values into bytes for the disk and back. Thread-safe.
struct ObjectCoder {
    std::function<void(const StoredObject& object, std::string& appendTo)> encode;
    /// None when the bytes are not what encode wrote.
    std::function<StoredObject(std::string_view bytes)> decode;
    /// About how many bytes encode will append; may be absent. A store may keep very large values in memory only, and
    /// knows from this without encoding them.
    std::function<std::size_t(const StoredObject& object)> estimatedSize{};
};

/// Many objects that live in one place and are stored together, each under its own key.
class ObjectGroup {
public:
    virtual ~ObjectGroup() = default;
    virtual std::size_t count() const = 0;
    virtual void appendKey(std::size_t index, std::string& key) const = 0;
    virtual StoredObject object(std::size_t index) const = 0;
};

struct StoreConfiguration {
    std::string name;
    /// When entries without an expiry of their own expire.
    Timestamp expiry{};
    std::uint64_t diskMaximumSize = 0;    // bytes; 0 is no limit
    std::size_t memoryCountLimit = 0;     // objects; a group counts as one, for its objects live elsewhere already
    std::size_t memoryTotalCostLimit = 0; // entries have cost 0
};

/// Thread-safe. A failing disk never shows: what memory has is served, what it has not is a miss. Nothing survives the
/// store.
class ObjectStore {
public:
    virtual ~ObjectStore() = default;
    /// The object itself from memory, or a decoded copy from disk (then also kept in memory until it expires). None
    /// when the key is unknown or its entry has expired.
    virtual StoredObject object(std::string_view forKey) = 0;
    /// The object can be read at once; it reaches the disk later, off the caller's path.
    virtual void setObject(StoredObject object, std::string_view forKey, Timestamp expiry) = 0;
    /// As setObject for each object of the group; where keys repeat the last one counts.
    virtual void setObjects(std::shared_ptr<const ObjectGroup> group, Timestamp expiry) = 0;
    virtual void removeAll() = 0;
    virtual void removeExpiredObjects() = 0;
};

class ObjectStores {
public:
    virtual ~ObjectStores() = default;
    /// None when the store cannot be made.
    virtual std::unique_ptr<ObjectStore> make(StoreConfiguration configuration, ObjectCoder coder) = 0;
};

} // namespace brindlemar
