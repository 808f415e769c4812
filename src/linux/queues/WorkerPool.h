// A queue that runs several tasks at a time and lends out more threads while some of them block.
#pragma once

#include "linux/queues/QueueTimers.h"

namespace brindlemar {

/// Tasks start in the order of the calls. Up to `usualThreads` threads are made as tasks come; beyond that, one more
/// each time tasks have waited a look (10 ms) during which none was started, up to `mostThreads`. A thread above the
/// usual number that finds nothing to do for `linger` leaves. stop(), or else the destructor, waits for the running
/// tasks and drops the others and all that come later; neither may run on this queue.
class WorkerPool final : public Queue {
public:
    struct Limits {
        unsigned usualThreads = 0; // 0: the number of processors, at least 4
        unsigned mostThreads = 256;
        std::chrono::milliseconds linger{2000};
    };
    /// The timers outlive the queue.
    explicit WorkerPool(QueueTimers& timers) : WorkerPool(timers, Limits{}) {}
    WorkerPool(QueueTimers& timers, Limits limits);
    ~WorkerPool() override;

    void stop();
    void async(Task task) override;
    void after(std::chrono::nanoseconds delay, Task task) override;
    [[nodiscard]] std::unique_ptr<Timer> repeat(std::chrono::nanoseconds interval, Task handler) override;

    /// Threads alive now.
    unsigned threads() const;

private:
    class Core;
    QueueTimers& timers_;
    const std::shared_ptr<Core> core_;
};

} // namespace brindlemar
