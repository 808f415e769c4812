#include "host/Turns.h"

#include <optional>

namespace brindlemar::host {

void Turns::take(const std::string& key, Kind kind, Queue& queue, Task task) {
    enum class Place { first, later, outside };
    const Place place = lines_->with([&](auto& lines) {
        const auto [entry, added] = lines.try_emplace(key);
        Line& line = entry->second;
        if (kind == Kind::lookup && line.copies > 0) return Place::outside;
        if (kind == Kind::copy) ++line.copies;
        line.turns.push_back({kind, &queue, added ? Task() : std::move(task)});
        return added ? Place::first : Place::later;
    });
    if (place == Place::outside) queue.async(std::move(task));
    if (place == Place::first) start(lines_, key, {kind, &queue, std::move(task)});
}

void Turns::start(std::shared_ptr<Lines> lines, std::string key, Turn turn) {
    Queue& queue = *turn.queue;
    queue.async([lines = std::move(lines), key = std::move(key), task = std::move(turn.task)]() mutable {
        task();
        task = nullptr;
        std::optional<Turn> next = lines->with([&](auto& all) -> std::optional<Turn> {
            const auto entry = all.find(key);
            Line& line = entry->second;
            if (line.turns.front().kind == Kind::copy) --line.copies;
            line.turns.pop_front();
            if (!line.turns.empty()) return std::move(line.turns.front());
            all.erase(entry);
            return std::nullopt;
        });
        if (next) start(std::move(lines), std::move(key), std::move(*next));
    });
}

} // namespace brindlemar::host
