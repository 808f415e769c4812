#include "linux/queues/SerialQueue.h"

#include "linux/queues/BriefSpin.h"

#include <pthread.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <utility>
#include <vector>

namespace brindlemar {

class SerialQueue::Core final : public TaskSink {
public:
    void post(Task task) override {
        {
            std::lock_guard lock(mutex_);
            if (stopping_) return;
            waiting_.push_back(std::move(task));
            posted_.store(true, std::memory_order_relaxed);
            if (!asleep_) return;
        }
        changed_.notify_one();
    }

    void run() {
        std::vector<Task> batch;
        while (takeBatch(batch)) {
            for (Task& task : batch) {
                if (stopping_.load(std::memory_order_relaxed)) break;
                task();
                task = nullptr; // what a task holds goes before the next one starts
            }
            batch.clear();
        }
    }

    void stop() {
        {
            std::lock_guard lock(mutex_);
            stopping_ = true;
            posted_ = true;
        }
        changed_.notify_one();
    }
    /// After the thread has ended.
    void dropWaiting() { waiting_.clear(); }

private:
    bool takeBatch(std::vector<Task>& batch) {
        spinBriefly([this] { return posted_.load(std::memory_order_relaxed); });
        std::unique_lock lock(mutex_);
        asleep_ = true; // only the sleeper clears it: a poster that did could leave a second one without a wake-up
        changed_.wait(lock, [this] { return stopping_ || !waiting_.empty(); });
        asleep_ = false;
        batch.swap(waiting_);
        posted_ = false;
        return !stopping_;
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Task> waiting_;
    bool asleep_ = false;
    std::atomic<bool> posted_{false}; // a hint for who looks without the lock
    std::atomic<bool> stopping_{false};
};

SerialQueue::SerialQueue(QueueTimers& timers, const std::string& name)
    : timers_(timers), core_(std::make_shared<Core>()), thread_([core = core_] { core->run(); }) {
    ::pthread_setname_np(thread_.native_handle(), name.substr(0, 15).c_str());
}

SerialQueue::~SerialQueue() { stop(); }

void SerialQueue::stop() {
    if (!thread_.joinable()) return;
    core_->stop();
    thread_.join();
    core_->dropWaiting();
}

void SerialQueue::async(Task task) {
    const auto core = core_; // the task may have run, and led to the queue's end, before post() has returned
    core->post(std::move(task));
}

void SerialQueue::after(std::chrono::nanoseconds delay, Task task) { timers_.after(core_, delay, std::move(task)); }

std::unique_ptr<Timer> SerialQueue::repeat(std::chrono::nanoseconds interval, Task handler) {
    return timers_.repeat(core_, interval, std::move(handler));
}

} // namespace brindlemar
