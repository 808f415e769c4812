// How what the host tells meets what is here.
#pragma once

#include "platform/Timestamp.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace brindlemar::replica {

/// By what a change of contents on the host is seen: its content version is constant.
struct HostVersion {
    std::int64_t modified = 0; // whole seconds since 1970
    std::uint32_t size = 0;    // the low 32 bits
    bool operator==(const HostVersion&) const = default;
};

enum class MergeAction {
    insert,   // new here
    refresh,  // the same contents; names and properties as the host has them
    drop,     // other contents: what is local is out of date, and fetched again when it is read
    keepBoth, // other contents under a local change: they appear as an item of their own
    restore,  // other contents than those that were deleted here: they are shown
    leave,    // deleted here, or on its way: the host's answer to that counts
};

struct LocalSide {
    HostVersion known;                      // as the host told last
    bool contentsChanged = false;           // not yet uploaded
    std::optional<HostVersion> uploading{}; // by a request whose answer may have been lost
    bool deleted = false;                   // not yet told
    bool isSent = false;                    // a request about it is under way
};

/// `local`: none when the identifier is not known here.
MergeAction chooseMerge(const std::optional<LocalSide>& local, const HostVersion& remote);

inline constexpr std::size_t kLongestName = 255; // bytes, of a file's name

/// "NAME (remote copy DATE).EXT", the date as 2026-11-23 in UTC.
std::string remoteCopyName(std::string_view name, Timestamp date);

/// The first of NAME, "NAME (2).EXT", "NAME (3).EXT" and so on that is free.
template <class IsTaken>
std::string freeName(std::string_view name, IsTaken&& isTaken);

/// The name with a text before its extension.
std::string withInsertion(std::string_view name, std::string_view text);

/// True when a directory can have an entry of this name.
bool isFileName(std::string_view name);

template <class IsTaken>
std::string freeName(std::string_view name, IsTaken&& isTaken) {
    std::string candidate(name);
    for (int number = 2; isTaken(candidate); ++number)
        candidate = withInsertion(name, " (" + std::to_string(number) + ")");
    return candidate;
}

} // namespace brindlemar::replica
