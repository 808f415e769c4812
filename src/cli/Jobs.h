// Work for several threads.
#pragma once

#include "cli/Session.h"
#include "linux/Wake.h"

#include <condition_variable>
#include <deque>
#include <optional>

namespace brindlemar::cli {

/// Jobs that find more jobs on their way, done by several threads that have a connection each.
class Jobs {
public:
    static constexpr std::size_t kWorkers = 16;

    using Job = std::function<void(Control&)>;
    explicit Jobs(Session& session) : session_(session) {}

    /// Any thread.
    void add(Job job);
    /// Does all jobs. What fails is complained about and the rest goes on; the first final Failure ends all and is
    /// thrown. False when anything failed.
    bool run();

private:
    void work();
    std::optional<Job> next();
    void failed(const Failure& failure);

    Session& session_;
    Wake stop_; // ends calls that wait
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Job> jobs_;
    std::size_t running_ = 0;
    bool allWell_ = true;
    std::optional<Failure> final_;
};

} // namespace brindlemar::cli
