#include "linux/SystemClock.h"

#include "linux/Deadline.h"

#include <thread>

namespace brindlemar {

Timestamp SystemClock::now() {
    return std::chrono::time_point_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now());
}

void SystemClock::sleep(std::chrono::nanoseconds duration) { std::this_thread::sleep_until(deadlineAfter(duration)); }

} // namespace brindlemar
