// The part of a receiving port that has nothing to do with where its messages come from: backlog, order, invalidation.
#pragma once

#include "linux/ports/InvalidationNotice.h"

#include <deque>

namespace brindlemar {

/// Keeps what arrives until the dispatch queue takes it, one message per task, in order of arrival. The backlog lies in
/// memory and has no bound: a slow receiver must not make senders time out. Thread-safe.
///
/// Owned by its user: when the last reference goes away, the port closes, what still waits is dropped and nobody is
/// told. Both queues outlive the port.
class QueuedLocalPort : public LocalPort, public std::enable_shared_from_this<QueuedLocalPort> {
public:
    QueuedLocalPort(Queue& mainQueue, MessageCallback callback)
        : callback_(std::move(callback)), invalidation_(mainQueue) {}

    bool isValid() const final;
    void setInvalidationCallback(std::function<void(MessagePort&)> callback) final;
    void invalidate() final;
    void setDispatchQueue(Queue& queue) final;

protected:
    struct Message {
        std::int32_t msgid = 0;
        Payload data;
        /// Takes the callback's result; empty when the sender wants no answer.
        std::function<void(std::optional<std::string>)> answer{};
    };
    /// Refused once the port is invalid.
    void deliver(Message message);
    /// Ends the source of messages; called once, when the port turns invalid, under no lock.
    virtual void stopListening() = 0;

private:
    struct State {
        std::deque<Message> backlog;
        Queue* queue = nullptr;
        bool running = false; // inside the callback
        std::size_t owed = 0; // tasks that came meanwhile; whoever runs the callback does their work
        bool valid = true;
        bool finished() const { return !valid && !running && backlog.empty(); }
    };
    void schedule(Queue& queue);
    void handOver();

    const MessageCallback callback_;
    InvalidationNotice invalidation_;
    Guarded<State> state_;
};

} // namespace brindlemar
