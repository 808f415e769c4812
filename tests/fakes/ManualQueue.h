// A queue whose tasks run when the test says so, on the test's thread.
#pragma once

#include "platform/Queue.h"
#include "support/Guarded.h"

#include <deque>
#include <map>
#include <utility>

namespace brindlemar {

/// Posting is thread-safe. Tasks run on the thread that calls runOne(), runAll() or advance(), first in, first out.
class ManualQueue final : public Queue {
public:
    void async(Task task) override {
        state_.with([&](State& state) { state.tasks.push_back(std::move(task)); });
    }
    void after(std::chrono::nanoseconds delay, Task task) override {
        state_.with([&](State& state) { state.later.emplace(state.now + delay, std::move(task)); });
    }
    /// Nothing tested ticks.
    [[nodiscard]] std::unique_ptr<Timer> repeat(std::chrono::nanoseconds, Task) override { return nullptr; }
    /// False when nothing was waiting.
    bool runOne() {
        const auto task = state_.with([](State& state) {
            if (state.tasks.empty()) return Task();
            Task first = std::move(state.tasks.front());
            state.tasks.pop_front();
            return first;
        });
        if (task) task();
        return task != nullptr;
    }
    /// Runs what waits and what that posts, until nothing waits; gives the number of tasks run.
    std::size_t runAll() {
        std::size_t count = 0;
        while (runOne()) ++count;
        return count;
    }
    /// Moves this queue's time on and runs what waits and what has become due.
    void advance(std::chrono::nanoseconds duration) {
        state_.with([&](State& state) {
            state.now += duration;
            const auto end = state.later.upper_bound(state.now);
            for (auto due = state.later.begin(); due != end; ++due) state.tasks.push_back(std::move(due->second));
            state.later.erase(state.later.begin(), end);
        });
        runAll();
    }

private:
    struct State {
        std::chrono::nanoseconds now{};
        std::deque<Task> tasks;
        std::multimap<std::chrono::nanoseconds, Task> later;
    };
    Guarded<State> state_;
};

} // namespace brindlemar
