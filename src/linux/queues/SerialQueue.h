// A queue with a thread of its own.
#pragma once

#include "linux/queues/QueueTimers.h"

#include <string>
#include <thread>

namespace brindlemar {

/// One task at a time, in the order of the calls. stop(), or else the destructor, waits for the running task and drops
/// the others and all that come later; neither may run on this queue.
class SerialQueue final : public Queue {
public:
    /// `name` shows in process listings (at most 15 bytes of it). The timers outlive the queue.
    SerialQueue(QueueTimers& timers, const std::string& name);
    ~SerialQueue() override;

    void stop();
    void async(Task task) override;
    void after(std::chrono::nanoseconds delay, Task task) override;
    [[nodiscard]] std::unique_ptr<Timer> repeat(std::chrono::nanoseconds interval, Task handler) override;

private:
    class Core;
    QueueTimers& timers_;
    const std::shared_ptr<Core> core_;
    std::thread thread_;
};

} // namespace brindlemar
