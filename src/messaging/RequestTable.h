// Requests that wait for answers.
#pragma once

#include "platform/Errors.h"
#include "platform/MessagePort.h"
#include "support/Guarded.h"

#include <deque>
#include <optional>
#include <unordered_map>
#include <vector>

namespace brindlemar {

/// What a completion entry returns.
inline constexpr int kFinished = 0;      // the request has ended
inline constexpr int kKeepListening = 1; // further answers with the same id are wanted

/// Gets one answer: its text (valid UTF-8) or an error. The text may be absent.
using CompletionEntry = std::function<int(std::optional<Payload> reply, std::optional<NSError> error)>;

/// One registered entry. Its answers run one at a time, in the order of deliver(), on the threads that run them; the
/// entry never runs under a lock. Thread-safe.
class WaitingRequest : public std::enable_shared_from_this<WaitingRequest> {
public:
    explicit WaitingRequest(CompletionEntry entry) : entry_(std::move(entry)) {}

    struct Answer {
        std::optional<Payload> reply;
        std::optional<NSError> error;
        std::function<void()> whenFinished{}; // runs once this answer has ended the request
    };
    /// Puts the answer in line; it runs in a later runAnswers().
    void deliver(Answer answer);
    /// Ends the request with an error, unless it has ended before its turn comes.
    void fail(NSError error);
    /// Runs what is in line, unless another thread is at it and will do so.
    void runAnswers();

private:
    struct Line {
        std::deque<Answer> answers;
        bool running = false;
    };
    void run(const Answer& answer);

    const CompletionEntry entry_;
    Guarded<Line> line_;
    bool finished_ = false; // owned by whoever set Line::running
};

/// Completion entries by message id. Ids start at 1 and grow by one for each request; after 2147483647 they start at 1
/// again, passing over ids in use. Thread-safe.
class RequestTable {
public:
    explicit RequestTable(std::int32_t firstIdentifier = 1) {
        state_.with([&](State& state) { state.messageIdentifier = firstIdentifier; });
    }
    /// The id for the next request and its entry, registered under it.
    std::int32_t enter(std::shared_ptr<WaitingRequest> request);
    /// To be called after the send of the request that entered last.
    void advance();
    std::shared_ptr<WaitingRequest> find(std::int32_t id) const;
    /// Removes the entry if it still is the one under this id.
    void remove(std::int32_t id, const std::shared_ptr<WaitingRequest>& request);
    /// Empties the table and gives what was in it, oldest first.
    std::vector<std::shared_ptr<WaitingRequest>> takeAll();
    std::size_t count() const;

private:
    struct State {
        std::int32_t messageIdentifier = 1;
        std::unordered_map<std::int32_t, std::shared_ptr<WaitingRequest>> completionBlocks;
    };
    Guarded<State> state_;
};

} // namespace brindlemar
