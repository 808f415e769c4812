// Tasks that must not run side by side.
#pragma once

#include "support/Guarded.h"

#include <deque>
#include <functional>
#include <map>
#include <string>

namespace brindlemar::host {

/// Tasks under one key run one at a time and in the order of the calls; nobody waits. Thread-safe.
class Turns {
public:
    /// Runs the task now, and those that come meanwhile; or leaves it to the thread that is at the key's tasks already.
    /// Tasks must not throw.
    void take(const std::string& key, std::function<void()> task);

private:
    /// A key is there while some thread runs its tasks.
    Guarded<std::map<std::string, std::deque<std::function<void()>>>> waiting_;
};

} // namespace brindlemar::host
