#include "linux/queues/SystemClock.h"

#include "linux/Deadline.h"

namespace brindlemar {

Timestamp SystemClock::now() {
    return std::chrono::time_point_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now());
}

void SystemClock::sleep(std::chrono::nanoseconds duration) {
    std::unique_lock lock(mutex_);
    stop_.wait_until(lock, deadlineAfter(duration), [this] { return stopped_; });
}

void SystemClock::stopSleeping() {
    std::lock_guard lock(mutex_);
    stopped_ = true;
    stop_.notify_all();
}

} // namespace brindlemar
