// What the host had before it carried out changes of ours.
#pragma once

#include "provider/replica/Row.h"

#include <deque>
#include <string_view>
#include <unordered_map>

namespace brindlemar::replica {

/// Listings that were under way meanwhile, or come from a cache, may still tell it; it is no news. For one thread at a
/// time.
class Past {
public:
    /// The row is as the host had it until now.
    void add(const Row& before, Timestamp now);
    /// True when an item tells no more than what was so lately.
    bool knows(std::string_view identifier, const Row& told) const;
    void forget(Timestamp now);
    bool isEmpty() const { return states_.empty(); }

private:
    /// Longer than a listing takes and is cached.
    static constexpr auto kLately = std::chrono::seconds(30);
    struct State {
        Inode parent;
        std::string name;
        std::optional<HostVersion> version; // of a folder none: it changes with what is in it
        bool operator==(const State&) const = default;
    };
    static State stateOf(const Row& row);
    struct Entry {
        Timestamp since;
        std::unordered_multimap<std::string, State>::const_iterator state;
    };
    std::unordered_multimap<std::string, State> states_; // by identifier
    std::deque<Entry> entries_;                          // the oldest first
};

} // namespace brindlemar::replica
