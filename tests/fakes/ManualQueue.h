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
    [[nodiscard]] std::unique_ptr<Timer> repeat(std::chrono::nanoseconds interval, Task handler) override {
        auto timer = std::make_unique<Repetition>(std::move(handler));
        tickLater(interval, timer->handler);
        return timer;
    }
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
    /// Moves this queue's time on. Runs all that waits, then each due task at its time, with all that it posts.
    void advance(std::chrono::nanoseconds duration) {
        const auto end = state_.with([&](State& state) { return state.now + duration; });
        runAll();
        while (state_.with([&](State& state) {
            if (state.later.empty() || state.later.begin()->first > end) return false;
            auto due = state.later.extract(state.later.begin());
            state.now = due.key();
            state.tasks.push_back(std::move(due.mapped()));
            return true;
        }))
            runAll();
        state_.with([&](State& state) { state.now = end; });
    }

private:
    struct Repetition final : Timer {
        explicit Repetition(Task task) : handler(std::make_shared<const Task>(std::move(task))) {}
        void invalidate() override { handler.reset(); }
        std::shared_ptr<const Task> handler;
    };
    void tickLater(std::chrono::nanoseconds interval, std::weak_ptr<const Task> weak) {
        after(interval, [this, interval, weak] {
            const auto handler = weak.lock();
            if (!handler) return;
            tickLater(interval, weak);
            (*handler)();
        });
    }
    struct State {
        std::chrono::nanoseconds now{};
        std::deque<Task> tasks;
        std::multimap<std::chrono::nanoseconds, Task> later;
    };
    Guarded<State> state_;
};

} // namespace brindlemar
