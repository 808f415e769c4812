// The thread that knows what is due when, for all queues of the process.
#pragma once

#include "linux/Deadline.h"
#include "platform/Queue.h"

namespace brindlemar {

/// The inner part of a queue, which timers refer to weakly: what becomes due after the queue's end is dropped.
class TaskSink {
public:
    virtual ~TaskSink() = default;
    /// Returns at once. Drops the task when the queue has been stopped.
    virtual void post(Task task) = 0;
};

/// One thread, a heap of due times on the monotonic clock. Thread-safe; outlives the queues that use it. The destructor
/// stops and joins the thread and drops what is not due yet; it must not run on a task of this object.
class QueueTimers {
public:
    QueueTimers();
    ~QueueTimers();
    QueueTimers(const QueueTimers&) = delete;
    QueueTimers& operator=(const QueueTimers&) = delete;

    /// Posts the task once, never early.
    void after(std::weak_ptr<TaskSink> sink, std::chrono::nanoseconds delay, Task task);
    /// Posts the handler at start + n * interval. A tick is skipped while an earlier one waits in the queue; those that
    /// fall into a run of the handler make one more run after it. Intervals below a millisecond count as one.
    [[nodiscard]] std::unique_ptr<Timer> repeat(std::weak_ptr<TaskSink> sink, std::chrono::nanoseconds interval,
                                                Task handler);
    /// Runs the task on the timer thread itself; it must be short.
    void at(Deadline due, Task task);

private:
    class Core;
    class Repetition;
    class Handle;
    const std::shared_ptr<Core> core_;
};

} // namespace brindlemar
