// A clock that the test sets. Thread-safe.
#pragma once

#include "platform/Clock.h"

#include <atomic>
#include <mutex>
#include <vector>

namespace brindlemar {

class FakeClock : public Clock {
public:
    Timestamp now() override { return Timestamp(std::chrono::nanoseconds(now_.load())); }
    void set(Timestamp time) { now_ = time.time_since_epoch().count(); }
    void advance(std::chrono::nanoseconds duration) { now_ += duration.count(); }
    /// Recorded, and the time is over at once.
    void sleep(std::chrono::nanoseconds duration) override {
        advance(duration);
        std::lock_guard lock(mutex_);
        sleeps_.push_back(duration);
    }
    std::vector<std::chrono::nanoseconds> sleeps() {
        std::lock_guard lock(mutex_);
        return sleeps_;
    }

private:
    std::atomic<std::int64_t> now_{1'700'000'000'000'000'000};
    std::mutex mutex_;
    std::vector<std::chrono::nanoseconds> sleeps_;
};

} // namespace brindlemar
