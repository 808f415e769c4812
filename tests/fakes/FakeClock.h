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
    explicit FakeClock(Timestamp start = timestampFromSeconds(1'700'000'000)) {
        state_.with([&](State& state) { state.now = start; });
    }

    Timestamp now() override {
        return state_.with([](State& state) { return state.now; });
    }
    void sleep(std::chrono::nanoseconds duration) override {
        const auto hook = state_.with([&](State& state) {
            state.sleeps.push_back(duration);
            state.now += duration;
            return state.onSleep;
        });
        if (hook) hook(duration);
    }

    void set(Timestamp time) {
        state_.with([&](State& state) { state.now = time; });
    }
    void advance(std::chrono::nanoseconds duration) {
        state_.with([&](State& state) { state.now += duration; });
    }
    /// Runs on the sleeping thread at each sleep, after the time was moved on.
    void onSleep(std::function<void(std::chrono::nanoseconds)> hook) {
        state_.with([&](State& state) { state.onSleep.swap(hook); });
    }
    std::vector<std::chrono::nanoseconds> sleeps() const {
        return state_.with([](const State& state) { return state.sleeps; });
    }

private:
    struct State {
        Timestamp now;
        std::vector<std::chrono::nanoseconds> sleeps;
        std::function<void(std::chrono::nanoseconds)> onSleep;
    };
    Guarded<State> state_;
};

} // namespace brindlemar
