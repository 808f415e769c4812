// A clock that stands still until a test moves it.
#pragma once

#include "platform/Clock.h"
#include "support/Guarded.h"

#include <functional>
#include <vector>

namespace brindlemar {

/// Thread-safe. Sleeping returns at once: it is recorded and moves the time on.
class FakeClock final : public Clock {
public:
    Timestamp now() override { return now_.copy(); }
    void sleep(std::chrono::nanoseconds duration) override {
        sleeps.with([&](auto& list) { list.push_back(duration); });
        advance(duration);
        if (onSleep) onSleep();
    }
    void set(Timestamp time) {
        now_.with([&](Timestamp& now) { now = time; });
    }
    void advance(std::chrono::nanoseconds duration) {
        now_.with([&](Timestamp& now) { now += duration; });
    }
    Guarded<std::vector<std::chrono::nanoseconds>> sleeps;
    std::function<void()> onSleep; // runs on the sleeping thread at each sleep; set before there are others

private:
    Guarded<Timestamp> now_{timestampFromSeconds(1'700'000'000)};
};

} // namespace brindlemar
