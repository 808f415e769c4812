#include "support/RepeatingTimer.h"

#include "platform/Platform.h"
#include "support/Guarded.h"

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

    void tick() {
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
    const std::chrono::duration<double> interval(timeInterval_);
    if (!timer_)
        timer_ = queue.repeat(std::chrono::duration_cast<std::chrono::nanoseconds>(interval), tick);
    else if (missed)
        queue.async(tick);
}

void RepeatingTimer::suspend() {
    source_->fields.with([](Source::Fields& now) { now.state = State::suspended; });
}

} // namespace brindlemar
