#include "host/Turns.h"

namespace brindlemar::host {

void Turns::take(const std::string& key, std::function<void()> task) {
    const bool ours = waiting_.with([&](auto& waiting) {
        const auto [entry, added] = waiting.try_emplace(key);
        if (!added) entry->second.push_back(std::move(task));
        return added;
    });
    if (!ours) return;
    while (task) {
        task();
        task = waiting_.with([&](auto& waiting) {
            const auto entry = waiting.find(key);
            std::function<void()> next;
            if (entry->second.empty()) {
                waiting.erase(entry);
            } else {
                next = std::move(entry->second.front());
                entry->second.pop_front();
            }
            return next;
        });
    }
}

} // namespace brindlemar::host
