// A lock for slow steps, taken in the order of asking, with a time limit on the wait.
#pragma once

#include "linux/Deadline.h"

#include <condition_variable>
#include <list>
#include <mutex>

namespace brindlemar {

/// Thread-safe; not recursive.
class Turn {
public:
    /// False when the turn did not come in time. A turn that is free is given whatever the deadline.
    bool take(Deadline deadline) {
        std::unique_lock lock(mutex_);
        const auto place = waiting_.emplace(waiting_.end());
        if (place->wait_until(lock, deadline, [&] { return place == waiting_.begin(); })) return true;
        waiting_.erase(place);
        return false;
    }
    void give() {
        std::lock_guard lock(mutex_);
        waiting_.pop_front();
        if (!waiting_.empty()) waiting_.front().notify_one();
    }

private:
    std::mutex mutex_;
    std::list<std::condition_variable> waiting_; // the first has the turn
};

} // namespace brindlemar
