#include "linux/WorkerPool.h"

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <list>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

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
        bool wake, watch = false;
        {
            std::lock_guard lock(mutex_);
            if (stopping_) return;
            waiting_.push_back(std::move(task));
            wake = idle_ > 0;
            if (waiting_.size() > idle_ && !(threads_.size() < limits_.usualThreads && addThread()))
                watch = !std::exchange(watching_, true);
            if (watch) startedAtLook_ = started_;
        }
        if (wake) changed_.notify_one();
        if (watch) lookLater();
    }

    void stop() {
        Threads ending;
        std::deque<Task> dropped;
        {
            std::lock_guard lock(mutex_);
            stopping_ = true;
            ending.swap(threads_);
            ending.splice(ending.end(), left_);
            dropped.swap(waiting_);
        }
        changed_.notify_all();
        join(ending);
    }

    unsigned threads() const {
        std::lock_guard lock(mutex_);
        return static_cast<unsigned>(threads_.size());
    }

private:
    using Threads = std::list<std::thread>;

    /// Under the lock. False when the system gives no thread.
    bool addThread() {
        const auto place = threads_.emplace(threads_.end());
        try {
            *place = std::thread([self = shared_from_this(), place] { self->work(place); });
            return true;
        } catch (const std::system_error&) {
            threads_.erase(place);
            return false;
        }
    }

    void work(Threads::iterator place) {
        std::unique_lock lock(mutex_);
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
            ++idle_;
            const bool woken = changed_.wait_until(lock, deadlineAfter(limits_.linger),
                                                   [this] { return stopping_ || !waiting_.empty(); });
            --idle_;
            if (!woken && threads_.size() > limits_.usualThreads) {
                left_.splice(left_.end(), threads_, place); // joined by whoever looks next
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
        Threads ended;
        bool again;
        {
            std::lock_guard lock(mutex_);
            ended.swap(left_);
            const bool stuck = waiting_.size() > idle_ && started_ == startedAtLook_;
            startedAtLook_ = started_;
            if (stuck && !stopping_ && threads_.size() < limits_.mostThreads) addThread();
            again = watching_ = !waiting_.empty() && !stopping_;
        }
        join(ended);
        if (again) lookLater();
    }

    static void join(Threads& threads) {
        for (auto& thread : threads) thread.join();
    }

    QueueTimers& timers_;
    Limits limits_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Task> waiting_;
    Threads threads_, left_;
    std::size_t idle_ = 0;
    std::uint64_t started_ = 0, startedAtLook_ = 0;
    bool watching_ = false; // a look is scheduled
    bool stopping_ = false;
};

WorkerPool::WorkerPool(QueueTimers& timers, Limits limits)
    : timers_(timers), core_(std::make_shared<Core>(timers, limits)) {}

WorkerPool::~WorkerPool() { core_->stop(); }

void WorkerPool::async(Task task) { core_->post(std::move(task)); }

void WorkerPool::after(std::chrono::nanoseconds delay, Task task) { timers_.after(core_, delay, std::move(task)); }

std::unique_ptr<Timer> WorkerPool::repeat(std::chrono::nanoseconds interval, Task handler) {
    return timers_.repeat(core_, interval, std::move(handler));
}

unsigned WorkerPool::threads() const { return core_->threads(); }

} // namespace brindlemar
