#include "linux/ports/QueuedLocalPort.h"

namespace brindlemar {

bool QueuedLocalPort::isValid() const {
    return state_.with([](const State& state) { return state.valid; });
}

void QueuedLocalPort::setInvalidationCallback(std::function<void(MessagePort&)> callback) {
    invalidation_.set(shared_from_this(), std::move(callback));
}

void QueuedLocalPort::setDispatchQueue(Queue& queue) {
    std::size_t waiting = state_.with([&](State& state) {
        state.queue = &queue;
        return state.backlog.size();
    });
    while (waiting-- > 0) schedule(queue);
}

void QueuedLocalPort::deliver(Message message) {
    Queue* const queue = state_.with([&](State& state) -> Queue* {
        if (!state.valid) return nullptr;
        state.backlog.push_back(std::move(message));
        return state.queue;
    });
    if (queue) schedule(*queue);
}

void QueuedLocalPort::invalidate() {
    std::deque<Message> unwanted; // nobody ever asked for messages
    Queue* queue = nullptr;
    const bool first = state_.with([&](State& state) {
        queue = state.queue;
        if (!queue) state.backlog.swap(unwanted);
        return std::exchange(state.valid, false);
    });
    if (!first) return;
    stopListening();
    // The tasks posted so far do not keep the port alive; what has arrived is handed over all the same.
    if (queue)
        queue->async([self = shared_from_this()] { self->handOver(); });
    else
        invalidation_.announce(shared_from_this());
}

/// A task for each message, so that what is posted to the queue after a message arrived comes after the message.
void QueuedLocalPort::schedule(Queue& queue) {
    queue.async([port = weak_from_this()] {
        if (const auto self = port.lock()) self->handOver();
    });
}

void QueuedLocalPort::handOver() {
    bool again = true;
    while (again) {
        Message message;
        const bool mine = state_.with([&](State& state) {
            if (state.running) ++state.owed;
            if (state.running || state.backlog.empty()) return false;
            state.running = true;
            message = std::move(state.backlog.front());
            state.backlog.pop_front();
            return true;
        });
        if (!mine) break;
        auto answer = callback_(*this, message.msgid, message.data);
        if (message.answer) message.answer(std::move(answer));
        again = state_.with([](State& state) {
            state.running = false;
            if (state.owed == 0) return !state.valid && !state.backlog.empty();
            --state.owed;
            return true;
        });
    }
    if (state_.with([](State& state) { return state.finished(); })) invalidation_.announce(shared_from_this());
}

} // namespace brindlemar
