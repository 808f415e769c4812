// A queue whose tasks run when the test says so, on the test's thread.
#pragma once

#include "platform/Queue.h"
#include "support/Guarded.h"

#include <algorithm>
#include <cstdint>
#include <deque>
#include <map>
#include <utility>

namespace brindlemar {

/// Posting is thread-safe. Tasks run on the thread that calls runOne(), runAll() or advance(), first in, first out.
class ManualQueue final : public Queue {
public:
    void async(Task task) override {
        state_->with([&](State& state) { state.tasks.push_back(std::move(task)); });
    }
    void after(std::chrono::nanoseconds delay, Task task) override {
        state_->with([&](State& state) { state.timers.emplace(state.now + delay, Entry{0, {}, std::move(task)}); });
    }
    [[nodiscard]] std::unique_ptr<Timer> repeat(std::chrono::nanoseconds interval, Task handler) override {
        const std::uint64_t id = state_->with([&](State& state) {
            const std::uint64_t number = ++state.lastID;
            state.timers.emplace(state.now + interval, Entry{number, interval, std::move(handler)});
            return number;
        });
        return std::make_unique<Repetition>(state_, id);
    }

    /// False when nothing was waiting.
    bool runOne() {
        Task task = state_->with([](State& state) {
            if (state.tasks.empty()) return Task();
            Task first = std::move(state.tasks.front());
            state.tasks.pop_front();
            return first;
        });
        if (!task) return false;
        task();
        return true;
    }
    /// Runs what waits and what that posts, until nothing waits; gives the number of tasks run.
    std::size_t runAll() {
        std::size_t count = 0;
        while (runOne()) ++count;
        return count;
    }
    /// Moves this queue's time on. Runs all that waits, then each due delayed task and tick at its time, in order,
    /// with all that they post.
    void advance(std::chrono::nanoseconds duration) {
        const auto end = state_->with([&](State& state) { return state.now + duration; });
        runAll();
        while (Task due = nextDue(end)) {
            due();
            runAll();
        }
        state_->with([&](State& state) { state.now = end; });
    }
    /// Tasks that wait to run now, delayed ones not counted.
    std::size_t waiting() const {
        return state_->with([](const State& state) { return state.tasks.size(); });
    }
    /// Delayed tasks and repeating timers that are still to come.
    std::size_t scheduled() const {
        return state_->with([](const State& state) { return state.timers.size(); });
    }

private:
    struct Entry {
        std::uint64_t id; // 0: once
        std::chrono::nanoseconds interval;
        Task task;
    };
    struct State {
        std::chrono::nanoseconds now{};
        std::uint64_t lastID = 0;
        std::deque<Task> tasks;
        std::multimap<std::chrono::nanoseconds, Entry> timers; // equal times: in the order they were asked for
    };
    using Shared = std::shared_ptr<Guarded<State>>;

    class Repetition final : public Timer {
    public:
        Repetition(Shared state, std::uint64_t id) : state_(std::move(state)), id_(id) {}
        ~Repetition() override { invalidate(); }
        void invalidate() override {
            const auto dropped = state_->with([&](State& state) {
                for (auto it = state.timers.begin(); it != state.timers.end(); ++it)
                    if (it->second.id == id_) return state.timers.extract(it);
                return decltype(state.timers)::node_type();
            });
        }

    private:
        Shared state_;
        std::uint64_t id_;
    };

    Task nextDue(std::chrono::nanoseconds end) {
        return state_->with([&](State& state) -> Task {
            if (state.timers.empty() || state.timers.begin()->first > end) return {};
            auto node = state.timers.extract(state.timers.begin());
            state.now = std::max(state.now, node.key());
            if (node.mapped().id == 0) return std::move(node.mapped().task);
            Task tick = node.mapped().task;
            node.key() += node.mapped().interval;
            state.timers.insert(std::move(node));
            return tick;
        });
    }

    Shared state_ = std::make_shared<Guarded<State>>();
};

} // namespace brindlemar
