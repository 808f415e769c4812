// Callers of one port that wait for the answer to a request.
#pragma once

#include "platform/MessagePort.h"

#include <condition_variable>
#include <list>
#include <mutex>

namespace brindlemar {

/// Thread-safe. An answer goes to the caller that has waited longest under its message id; one that nobody waits for is
/// dropped.
class PendingAnswers {
    struct Waiter {
        std::int32_t msgid;
        std::optional<RemotePort::Result> result{};
    };

public:
    /// One caller's place, taken before the request is sent and given up at the end of its scope.
    class Place {
    public:
        Place(PendingAnswers& owner, std::int32_t msgid);
        ~Place();
        Place(const Place&) = delete;
        Place& operator=(const Place&) = delete;
        /// Blocks until the answer, the port's end (becameInvalid) or the time limit (receiveTimeout).
        RemotePort::Result wait(std::chrono::nanoseconds limit);

    private:
        PendingAnswers& owner_;
        std::list<Waiter>::iterator waiter_;
    };

    void arrived(std::int32_t msgid, Payload answer);
    /// The port is invalid: every caller, present and future, gets becameInvalid.
    void end();

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::list<Waiter> waiters_;
    bool ended_ = false;
};

} // namespace brindlemar
