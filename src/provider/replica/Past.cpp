#include "provider/replica/Past.h"

#include <algorithm>

namespace brindlemar::replica {

Past::State Past::stateOf(const Row& row) {
    return {row.hostParent, row.hostName, row.folder ? std::nullopt : std::optional(row.host)};
}

void Past::add(const Row& before, Timestamp now) {
    forget(now);
    if (before.identifier && before.hostParent != 0)
        entries_.push_back({now, states_.emplace(*before.identifier, stateOf(before))});
}

bool Past::knows(std::string_view identifier, const Row& told) const {
    const auto [first, last] = states_.equal_range(std::string(identifier));
    return std::any_of(first, last, [&](const auto& entry) { return entry.second == stateOf(told); });
}

void Past::forget(Timestamp now) {
    for (; !entries_.empty() && now - entries_.front().since > kLately; entries_.pop_front())
        states_.erase(entries_.front().state);
}

} // namespace brindlemar::replica
