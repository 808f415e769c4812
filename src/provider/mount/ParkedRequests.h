// Requests of the kernel that are answered later.
#pragma once

#include "linux/fuse/FuseSession.h"
#include "platform/Queue.h"

#include <atomic>
#include <functional>
#include <memory>

namespace brindlemar {

/// Thrown by operations: the program's errno(3).
struct ErrorNumber {
    int number;
};

/// Calls body(), which answers the request or throws before it has; then the error is the answer.
void answerOrFail(fuse_req_t request, const std::function<void()>& body);

/// Answered exactly once, by whoever comes first: what it waits for, the interruption of its program, or the end of the
/// last copy of the pointer to it (EIO). Thread-safe.
class ParkedRequest {
public:
    /// The queue, on which interruptions are answered, outlives the request.
    static std::shared_ptr<ParkedRequest> park(fuse_req_t request, Queue& tasks);
    ~ParkedRequest();
    ParkedRequest(const ParkedRequest&) = delete;
    ParkedRequest& operator=(const ParkedRequest&) = delete;

    using Body = std::function<void(fuse_req_t request)>;
    /// Calls body(request), which answers it or throws; see answerOrFail(). Not called when that has happened already.
    void answer(const Body& body);
    void fail(int error);
    /// Answers all there are.
    static void failAll(int error);
    /// And all to come, before their session ends.
    static void refuse(int error);
    /// A session begins.
    static void admit();
    bool isAnswered() const { return answered_; }
    /// Runs, on the queue, when the program does not wait any more: once at the most, before the answer EINTR. To be
    /// set before anybody else can answer.
    void onInterruption(std::function<void()> handler);

private:
    ParkedRequest(fuse_req_t request, Queue& tasks) : request_(request), tasks_(tasks) {}
    void interrupted();

    const fuse_req_t request_;
    Queue& tasks_;
    std::atomic<bool> answered_{false};
    std::uint64_t number_ = 0;
    std::function<void()> handler_;
};

} // namespace brindlemar
