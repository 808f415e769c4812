// Mutual exclusion by a lock object.
#pragma once

#include <mutex>
#include <utility>

namespace brindlemar {

/// A lock that its holder may take again.
class Monitor {
    friend auto synchronized(Monitor& lock, auto&& body);
    std::recursive_mutex mutex_;
};

/// Runs the body while holding the monitor, which is released on every path out; gives the body's result.
auto synchronized(Monitor& lock, auto&& body) {
    std::lock_guard guard(lock.mutex_);
    return std::forward<decltype(body)>(body)();
}

} // namespace brindlemar
