// Tasks that must not run side by side.
#pragma once

#include "platform/Queue.h"
#include "support/Guarded.h"

#include <deque>
#include <map>
#include <string>

namespace brindlemar::host {

/// Tasks under one key run one at a time and in the order of the calls, each on its queue; nobody waits. But a lookup
/// goes past a line in which a copy is. Thread-safe; what was taken runs also after this object's end.
class Turns {
public:
    enum class Kind { lookup, change, copy };

    /// The task must not throw; the queue outlives it.
    void take(const std::string& key, Kind kind, Queue& queue, Task task);

private:
    struct Turn {
        Kind kind;
        Queue* queue;
        Task task;
    };
    struct Line {
        std::deque<Turn> turns; // the first one is under way
        std::size_t copies = 0;
    };
    using Lines = Guarded<std::map<std::string, Line>>;
    static void start(std::shared_ptr<Lines> lines, std::string key, Turn turn);

    const std::shared_ptr<Lines> lines_ = std::make_shared<Lines>();
};

} // namespace brindlemar::host
