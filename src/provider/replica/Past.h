// What the host had before it carried out changes of ours.
#pragma once

#include "provider/replica/Row.h"

#include <deque>
#include <string_view>
#include <unordered_map>

namespace brindlemar::replica {

/// Listings that began before, or that a cache answers from before, may still tell it; it is no news. For one thread at
/// a time.
class Past {
public:
    static constexpr auto kCached = std::chrono::seconds(15); // longer than the extension's caches answer
    /// The row is as the host had it until now.
    void add(const Row& before, Timestamp now);
    /// True when a listing that began then tells of an item no more than what was so.
    bool knows(std::string_view identifier, const Row& told, Timestamp began) const;
    void forget(Timestamp now);
    bool isEmpty() const { return entries_.empty(); }

private:
    static constexpr auto kKept = std::chrono::minutes(2); // longer than a listing takes
    struct State {
        Inode parent;
        std::string name;
        std::optional<HostVersion> version; // of a folder none: it changes with what is in it
        bool operator==(const State&) const = default;
    };
    static State stateOf(const Row& row);
    struct Entry {
        State state;
        Timestamp until;
    };
    using Entries = std::unordered_multimap<std::string, Entry>; // by identifier
    Entries entries_;
    std::deque<Entries::const_iterator> order_; // the oldest first
};

} // namespace brindlemar::replica
