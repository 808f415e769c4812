#include "linux/queues/WorkerPool.h"

#include "linux/queues/BriefSpin.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <list>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace brindlemar {

namespace {
constexpr auto kLook = std::chrono::milliseconds(10);
}

class WorkerPool::Core final : public TaskSink, public std::enable_shared_from_this<Core> {
public:
    Core(QueueTimers& timers, Limits limits) : timers_(timers), limits_(limits) {
        if (limits_.usualThreads == 0) limits_.usualThreads = std::max(4U, std::thread::hardware_concurrency());
        limits_.mostThreads = std::max(limits_.mostThreads, limits_.usualThreads);
    }

    void post(Task task) override {
        std::shared_ptr<Worker> wake;
        bool watch = false;
        {
            std::lock_guard lock(mutex_);
            if (stopping_) return;
            waiting_.push_back(std::move(task));
            if (!idle_.empty()) {
                wake = std::move(idle_.back()); // the one that is still warm; the others get to leave
                idle_.pop_back();
                wake->woken = true;
            } else if (workers_.size() >= limits_.usualThreads || !addWorker()) {
                watch = !std::exchange(watching_, true);
                if (watch) startedAtLook_ = started_;
            }
        }
        if (wake) wake->changed.notify_one();
        if (watch) lookLater();
    }

    void stop() {
        Workers ending;
        std::deque<Task> dropped;
        {
            std::lock_guard lock(mutex_);
            stopping_ = true;
            ending.swap(workers_);
            ending.splice(ending.end(), left_);
            dropped.swap(waiting_);
            idle_.clear();
        }
        for (const auto& worker : ending) worker->changed.notify_one();
        join(ending);
    }

    unsigned threads() const {
        std::lock_guard lock(mutex_);
        return static_cast<unsigned>(workers_.size());
    }

private:
    struct Worker {
        std::condition_variable changed;
        std::atomic<bool> woken{false}; // and taken off the idle ones
        std::thread thread;
    };
    using Workers = std::list<std::shared_ptr<Worker>>;

    /// Under the lock. False when the system gives no thread.
    bool addWorker() {
        const auto place = workers_.insert(workers_.end(), std::make_shared<Worker>());
        try {
            (*place)->thread = std::thread([self = shared_from_this(), place] { self->work(place); });
            return true;
        } catch (const std::system_error&) {
            workers_.erase(place);
            return false;
        }
    }

    void work(Workers::iterator place) {
        std::unique_lock lock(mutex_);
        Worker& worker = **place;
        while (!stopping_) {
            if (!waiting_.empty()) {
                Task task = std::move(waiting_.front());
                waiting_.pop_front();
                ++started_;
                lock.unlock();
                task();
                task = nullptr;
                lock.lock();
                continue;
            }
            idle_.push_back(*place);
            worker.woken = false;
            lock.unlock();
            spinBriefly([&] { return worker.woken.load(std::memory_order_relaxed); });
            lock.lock();
            if (worker.changed.wait_until(lock, deadlineAfter(limits_.linger),
                                          [&] { return worker.woken || stopping_; }))
                continue;
            idle_.erase(std::find(idle_.begin(), idle_.end(), *place));
            if (workers_.size() > limits_.usualThreads) {
                left_.splice(left_.end(), workers_, place); // joined by whoever looks next
                return;
            }
        }
    }

    void lookLater() {
        timers_.at(deadlineAfter(kLook), [core = weak_from_this()] {
            if (const auto self = core.lock()) self->look();
        });
    }

    /// On the timer thread.
    void look() {
        Workers ended;
        bool again;
        {
            std::lock_guard lock(mutex_);
            ended.swap(left_);
            const bool stuck = !waiting_.empty() && started_ == startedAtLook_;
            startedAtLook_ = started_;
            if (stuck && !stopping_ && workers_.size() < limits_.mostThreads) addWorker();
            again = watching_ = !waiting_.empty() && !stopping_;
        }
        join(ended);
        if (again) lookLater();
    }

    static void join(const Workers& workers) {
        for (const auto& worker : workers) worker->thread.join();
    }

    QueueTimers& timers_;
    Limits limits_;
    mutable std::mutex mutex_;
    std::deque<Task> waiting_;
    Workers workers_, left_;
    std::vector<std::shared_ptr<Worker>> idle_; // the last one was busy last
    std::uint64_t started_ = 0, startedAtLook_ = 0;
    bool watching_ = false; // a look is scheduled
    bool stopping_ = false;
};

WorkerPool::WorkerPool(QueueTimers& timers, Limits limits)
    : timers_(timers), core_(std::make_shared<Core>(timers, limits)) {}

WorkerPool::~WorkerPool() { stop(); }

void WorkerPool::stop() { core_->stop(); }

void WorkerPool::async(Task task) {
    const auto core = core_; // the task may have run, and led to the queue's end, before post() has returned
    core->post(std::move(task));
}

void WorkerPool::after(std::chrono::nanoseconds delay, Task task) { timers_.after(core_, delay, std::move(task)); }

std::unique_ptr<Timer> WorkerPool::repeat(std::chrono::nanoseconds interval, Task handler) {
    return timers_.repeat(core_, interval, std::move(handler));
}

unsigned WorkerPool::threads() const { return core_->threads(); }

} // namespace brindlemar
