#include "provider/replica/Past.h"

#include <algorithm>

namespace brindlemar::replica {

Past::State Past::stateOf(const Row& row) {
    return {row.hostParent, row.hostName, row.folder ? std::nullopt : std::optional(row.host)};
}

void Past::add(const Row& before, Timestamp now) {
    forget(now);
    if (before.identifier && before.hostParent != 0)
        order_.push_back(entries_.emplace(*before.identifier, Entry{stateOf(before), now}));
}

bool Past::knows(std::string_view identifier, const Row& told, Timestamp began) const {
    const auto [first, last] = entries_.equal_range(std::string(identifier));
    return std::any_of(first, last, [&](const auto& entry) {
        const Entry& past = entry.second;
        return began < past.until + kCached && past.state == stateOf(told);
    });
}

void Past::forget(Timestamp now) {
    for (; !order_.empty() && now - order_.front()->second.until > kKept; order_.pop_front())
        entries_.erase(order_.front());
}

} // namespace brindlemar::replica
