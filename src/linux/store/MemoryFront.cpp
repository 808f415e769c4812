#include "linux/store/MemoryFront.h"

namespace brindlemar {

const MemoryEntry* MemoryFront::find(std::string_view key) const {
    const auto found = entries_.find(key);
    return found == entries_.end() ? nullptr : &found->second.entry;
}

void MemoryFront::put(std::string_view key, MemoryEntry entry, DroppedObjects& dropped) {
    if (const auto old = entries_.find(key); old != entries_.end()) remove(*old, dropped);
    auto& node = *entries_.try_emplace(std::string(key)).first;
    node.second.due = byExpiry_.emplace(entry.expiry, &node);
    node.second.place = order_.insert(order_.end(), &node);
    node.second.entry = std::move(entry);
}

MemoryFront::Order::iterator MemoryFront::remove(Entries::value_type& node, DroppedObjects& dropped) {
    if (node.second.due != byExpiry_.end()) byExpiry_.erase(node.second.due);
    if (node.second.entry.object) dropped.push_back(std::move(node.second.entry.object));
    const auto next = order_.erase(node.second.place);
    entries_.erase(entries_.find(node.first));
    return next;
}

void MemoryFront::markWritten(std::string_view key, std::uint64_t sequence) {
    const auto found = entries_.find(key);
    if (found == entries_.end() || found->second.entry.sequence != sequence) return;
    found->second.entry.written = true;
}

void MemoryFront::erase(std::string_view key, std::uint64_t sequence, DroppedObjects& dropped) {
    const auto found = entries_.find(key);
    if (found != entries_.end() && found->second.entry.sequence == sequence) remove(*found, dropped);
}

void MemoryFront::evict(std::size_t limit, DroppedObjects& dropped) {
    for (auto oldest = order_.begin(); entries_.size() > limit && oldest != order_.end();)
        oldest = (*oldest)->second.entry.written ? remove(**oldest, dropped) : std::next(oldest);
}

void MemoryFront::removeExpired(Timestamp now, DroppedObjects& dropped) {
    while (nextExpiry() <= now) {
        auto& node = *byExpiry_.begin()->second;
        if (node.second.entry.written) {
            remove(node, dropped);
        } else {
            byExpiry_.erase(node.second.due);
            node.second.due = byExpiry_.end();
            dropped.push_back(std::move(node.second.entry.object));
        }
    }
}

std::vector<std::pair<std::string, std::uint64_t>> MemoryFront::keys() const {
    std::vector<std::pair<std::string, std::uint64_t>> keys;
    keys.reserve(entries_.size());
    for (const auto& [key, node] : entries_) keys.emplace_back(key, node.entry.sequence);
    return keys;
}

} // namespace brindlemar
