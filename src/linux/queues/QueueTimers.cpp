#include "linux/queues/QueueTimers.h"

#include "support/Guarded.h"

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

namespace brindlemar {

class QueueTimers::Core {
public:
    Core() : thread_([this] { run(); }) {}

    void stop() {
        {
            std::lock_guard lock(mutex_);
            stopping_ = true;
        }
        changed_.notify_one();
        thread_.join();
        heap_.clear(); // nobody adds to it any more
    }

    void at(Deadline due, Task task) {
        {
            std::lock_guard lock(mutex_);
            if (stopping_) return;
            heap_.push_back({due, ++last_, std::move(task)});
            std::push_heap(heap_.begin(), heap_.end(), later);
            if (heap_.front().number != last_) return;
        }
        changed_.notify_one();
    }

private:
    struct Entry {
        Deadline due;
        std::uint64_t number; // equal times keep the order of the calls
        Task task;
    };
    static bool later(const Entry& a, const Entry& b) { return std::tie(a.due, a.number) > std::tie(b.due, b.number); }

    void run() {
        std::unique_lock lock(mutex_);
        while (!stopping_) {
            if (heap_.empty()) {
                changed_.wait(lock);
            } else if (const Deadline due = heap_.front().due; std::chrono::steady_clock::now() < due) {
                changed_.wait_until(lock, due);
            } else {
                std::pop_heap(heap_.begin(), heap_.end(), later);
                Task task = std::move(heap_.back().task);
                heap_.pop_back();
                lock.unlock();
                task();
                task = nullptr;
                lock.lock();
            }
        }
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Entry> heap_;
    std::uint64_t last_ = 0;
    bool stopping_ = false;
    std::thread thread_; // last: it uses all of the above
};

/// The state that the timer thread, the queue and the handle share.
class QueueTimers::Repetition : public std::enable_shared_from_this<Repetition> {
public:
    Repetition(std::weak_ptr<Core> core, std::weak_ptr<TaskSink> sink, std::chrono::nanoseconds interval, Task handler)
        : core_(std::move(core)), sink_(std::move(sink)), interval_(interval), next_(deadlineAfter(interval)),
          state_(State{std::make_shared<const Task>(std::move(handler)), Phase::idle}) {}

    void start() {
        if (const auto core = core_.lock()) core->at(next_, [self = shared_from_this()] { self->tick(); });
    }
    void cancel() {
        const auto dropped = state_.with([](State& state) { return std::exchange(state.handler, nullptr); });
    }

private:
    enum class Phase { idle, posted, running, runningAndMissed };
    struct State {
        std::shared_ptr<const Task> handler; // none once cancelled
        Phase phase = Phase::idle;
    };
    struct Step {
        bool alive, post;
    };

    void tick() { // on the timer thread
        const Step step = state_.with([](State& state) {
            if (!state.handler) return Step{false, false};
            if (state.phase == Phase::running) state.phase = Phase::runningAndMissed;
            if (state.phase != Phase::idle) return Step{true, false};
            state.phase = Phase::posted;
            return Step{true, true};
        });
        if (!step.alive || (step.post && !post())) return;
        const auto late = std::chrono::steady_clock::now() - next_;
        next_ += interval_ * (1 + late / interval_);
        start();
    }
    bool post() {
        const auto sink = sink_.lock();
        if (sink) sink->post([self = shared_from_this()] { self->run(); });
        return sink != nullptr;
    }
    void run() { // on the queue
        const auto handler = state_.with([](State& state) {
            state.phase = Phase::running;
            return state.handler;
        });
        if (!handler) return;
        (*handler)();
        const bool again = state_.with([](State& state) {
            const bool missed = state.phase == Phase::runningAndMissed;
            state.phase = missed ? Phase::posted : Phase::idle;
            return missed;
        });
        if (again) post();
    }

    const std::weak_ptr<Core> core_;
    const std::weak_ptr<TaskSink> sink_;
    const std::chrono::nanoseconds interval_;
    Deadline next_; // the timer thread's, once started
    Guarded<State> state_;
};

class QueueTimers::Handle final : public Timer {
public:
    explicit Handle(std::shared_ptr<Repetition> repetition) : repetition_(std::move(repetition)) {}
    ~Handle() override { invalidate(); }
    void invalidate() override { repetition_->cancel(); }

private:
    const std::shared_ptr<Repetition> repetition_;
};

QueueTimers::QueueTimers() : core_(std::make_shared<Core>()) {}
QueueTimers::~QueueTimers() { core_->stop(); }

void QueueTimers::at(Deadline due, Task task) {
    const auto core = core_; // the task may have run, and led to this object's end, before at() has returned
    core->at(due, std::move(task));
}

void QueueTimers::after(std::weak_ptr<TaskSink> sink, std::chrono::nanoseconds delay, Task task) {
    at(deadlineAfter(delay), [sink = std::move(sink), task = std::move(task)]() mutable {
        if (const auto queue = sink.lock()) queue->post(std::move(task));
    });
}

std::unique_ptr<Timer> QueueTimers::repeat(std::weak_ptr<TaskSink> sink, std::chrono::nanoseconds interval,
                                           Task handler) {
    constexpr std::chrono::nanoseconds shortest = std::chrono::milliseconds(1);
    auto repetition = std::make_shared<Repetition>(core_, std::move(sink),
                                                   std::clamp(interval, shortest, kLongestDelay), std::move(handler));
    repetition->start();
    return std::make_unique<Handle>(std::move(repetition));
}

} // namespace brindlemar
