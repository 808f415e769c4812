// Dispatch queues and the timers that run on them.
#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace brindlemar {

using Task = std::function<void()>;

/// A repeating timer. Destroying it or calling invalidate() stops further ticks; a handler that is running goes on.
class Timer {
public:
    virtual ~Timer() = default;
    virtual void invalidate() = 0;
};

/// Runs tasks in the order given (the main queue: one at a time) or several at a time (the background queue).
/// Thread-safe. Tasks must not throw. Tasks that have not started when the queue is destroyed are dropped unrun.
class Queue {
public:
    virtual ~Queue() = default;
    /// Returns at once; the task never runs inside the call.
    virtual void async(Task task) = 0;
    /// Runs the task once, never earlier than `delay` from now on the monotonic clock.
    virtual void after(std::chrono::nanoseconds delay, Task task) = 0;
    /// First tick after one interval; ticks missed while the queue was busy coalesce into one; never re-entrant.
    [[nodiscard]] virtual std::unique_ptr<Timer> repeat(std::chrono::nanoseconds interval, Task handler) = 0;
};

} // namespace brindlemar
