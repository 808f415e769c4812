#include "linux/QueuedLocalPort.h"

namespace brindlemar {

bool QueuedLocalPort::isValid() const {
    return state_.with([](const State& state) { return state.valid; });
}

void QueuedLocalPort::setInvalidationCallback(std::function<void(MessagePort&)> callback) {
    invalidation_.set(shared_from_this(), std::move(callback));
}

void QueuedLocalPort::setDispatchQueue(Queue& queue) {
    const bool waiting = state_.with([&](State& state) {
        state.queue = &queue;
        return !state.backlog.empty() && !std::exchange(state.scheduled, true);
    });
    if (waiting) schedule();
}

void QueuedLocalPort::deliver(Message message) {
    const bool first = state_.with([&](State& state) {
        if (!state.valid) return false;
        state.backlog.push_back(std::move(message));
        return state.queue && !std::exchange(state.scheduled, true);
    });
    if (first) schedule();
}

void QueuedLocalPort::invalidate() {
    std::deque<Message> unwanted; // nobody ever asked for messages
    const bool first = state_.with([&](State& state) {
        if (!state.queue) state.backlog.swap(unwanted);
        return std::exchange(state.valid, false);
    });
    if (!first) return;
    stopListening();
    // The tasks posted so far do not keep the port alive; what has arrived is handed over all the same.
    if (state_.with([](State& state) { return state.finished(); }))
        invalidation_.announce(shared_from_this());
    else
        schedule();
}

void QueuedLocalPort::schedule() {
    struct Plan {
        Queue* queue;
        bool valid;
    };
    const auto plan = state_.with([](State& state) { return Plan{state.queue, state.valid}; });
    if (plan.valid)
        plan.queue->async([port = weak_from_this()] {
            if (const auto self = port.lock()) self->handOverOne();
        });
    else
        plan.queue->async([self = shared_from_this()] { self->handOverOne(); });
}

void QueuedLocalPort::handOverOne() {
    Message message;
    const bool mine = state_.with([&](State& state) {
        if (state.running || state.backlog.empty()) return false;
        state.running = true;
        message = std::move(state.backlog.front());
        state.backlog.pop_front();
        return true;
    });
    if (mine) {
        auto answer = callback_(*this, message.msgid, message.data);
        if (message.answer) message.answer(std::move(answer));
    }
    struct Next {
        bool more, finished;
    };
    const auto next = state_.with([&](State& state) {
        if (mine) state.running = false;
        if (state.running) return Next{false, false}; // whoever runs the callback goes on
        state.scheduled = !state.backlog.empty();
        return Next{state.scheduled, state.finished()};
    });
    if (next.more) schedule();
    if (next.finished) invalidation_.announce(shared_from_this());
}

} // namespace brindlemar
