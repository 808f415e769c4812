// An item as the replica has it.
#pragma once

#include "platform/Errors.h"
#include "platform/Item.h"
#include "provider/replica/Merge.h"
#include "provider/replica/Pending.h"

namespace brindlemar::replica {

/// The number by which the file system knows an item; never given twice.
using Inode = std::int64_t;
inline constexpr Inode kRoot = 1;

struct Row {
    Inode inode = 0, parent = 0;
    std::optional<std::string> identifier{}; // none until the host has given one
    std::string name;
    bool folder = false;
    std::uint64_t size = 0; // bytes
    Timestamp modified{}, used{};
    Timestamp changed{};            // here last, in whatever way
    std::optional<unsigned> mode{}; // permission bits that somebody asked for
    unsigned capabilities = 0, flags = 0;
    std::string storageClass, decoration;
    HostVersion host;                  // what the host told last
    std::optional<HostVersion> sent{}; // by a request whose answer may have been lost
    Inode sentParent = 0;              // and where the item is to be by such a request, if that was in it
    std::string sentName{};
    Inode hostParent = 0;                  // where the host has the item, as far as it has answered;
    std::string hostName;                  // none while it knows nothing of the item
    std::optional<std::string> contents{}; // the name of its file, when it is local
    std::optional<Timestamp> listed{};     // when a folder was first listed to the end
    Pending pending;
    std::int64_t generation = 0; // counts the local changes
    std::optional<NSError> error{};
    bool operator==(const Row&) const = default;
};

/// What of the place differs.
inline ItemFields placeChanges(Inode parent, std::string_view name, Inode newParent, std::string_view newName) {
    return (name != newName ? ItemField::filename : 0) | (parent != newParent ? ItemField::parentItemIdentifier : 0);
}

} // namespace brindlemar::replica
