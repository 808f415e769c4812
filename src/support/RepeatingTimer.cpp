#include "support/RepeatingTimer.h"

#include "platform/Platform.h"
#include "support/Guarded.h"

#include <algorithm>
#include <mutex>
#include <utility>

namespace brindlemar {

namespace {
enum class State { suspended, resumed };
}

struct RepeatingTimer::Source {
    struct Fields {
        State state = State::suspended;
        Task eventHandler;
        bool missed = false; // a tick during the pause
    };
    Guarded<Fields> fields;
    std::recursive_mutex running; // a handler may end its own timer

    void tick() {
        std::lock_guard turn(running);
        const Task handler = fields.with([](Fields& now) {
            now.missed = now.state == State::suspended;
            return now.missed ? Task() : now.eventHandler;
        });
        if (handler) handler();
    }
};

RepeatingTimer::RepeatingTimer(double timeInterval)
    : timeInterval_(timeInterval), source_(std::make_shared<Source>()) {}

RepeatingTimer::~RepeatingTimer() {
    timer_.reset();
    setEventHandler(nullptr);
    std::lock_guard ended(source_->running);
}

Task RepeatingTimer::eventHandler() const {
    return source_->fields.with([](const Source::Fields& now) { return now.eventHandler; });
}

void RepeatingTimer::setEventHandler(Task eventHandler) {
    source_->fields.with([&](Source::Fields& now) { now.eventHandler.swap(eventHandler); });
}

void RepeatingTimer::resume() {
    const bool missed = source_->fields.with([](Source::Fields& now) {
        now.state = State::resumed;
        return std::exchange(now.missed, false);
    });
    const auto tick = [source = std::weak_ptr(source_)] {
        if (const auto self = source.lock()) self->tick();
    };
    Queue& queue = Platform::current().backgroundQueue;
    constexpr double longest = 9e9; // 285 years, near what nanoseconds can count
    const std::chrono::duration<double> interval(timeInterval_ < longest ? std::max(timeInterval_, 0.0) : longest);
    if (!timer_)
        timer_ = queue.repeat(std::chrono::duration_cast<std::chrono::nanoseconds>(interval), tick);
    else if (missed)
        queue.async(tick);
}

void RepeatingTimer::suspend() {
    source_->fields.with([](Source::Fields& now) { now.state = State::suspended; });
}

} // namespace brindlemar
