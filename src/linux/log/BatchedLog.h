// A log destination that gathers lines and writes them from a thread of its own.
#pragma once

#include "platform/LogBackend.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace brindlemar {

/// Where the bytes go in the end. Called by one thread at a time.
class LogOutput {
public:
    virtual ~LogOutput() = default;
    /// Takes whole lines, each with its terminator, and answers how many of the bytes it wrote. The rest is offered
    /// again, later, in front of what came since.
    virtual std::size_t write(std::string_view bytes) = 0;
};

/// Lines reach the output about a millisecond after they were written, urgent ones before write() returns. A caller
/// that is faster than the output waits for it. While the output fails or stands still, nobody waits: lines are kept
/// up to the limit, those beyond it are dropped, and one line says how many they were. Nobody waits longer than
/// `patience` at a time. The destructor flushes.
class BatchedLog : public LogDestination {
public:
    struct Limits {
        std::size_t backlog = std::size_t{8} << 20; // bytes
        std::chrono::milliseconds gathering{1};
        std::chrono::milliseconds retry{1000};
        std::chrono::milliseconds patience{1000};
    };
    explicit BatchedLog(std::unique_ptr<LogOutput> output) : BatchedLog(std::move(output), Limits()) {}
    BatchedLog(std::unique_ptr<LogOutput> output, Limits limits);
    ~BatchedLog() override;

    void write(std::string_view line, bool urgent) override;
    void flush() override;

private:
    void run();
    void awaitWork(std::unique_lock<std::mutex>& lock);
    void awaitAttempt(std::unique_lock<std::mutex>& lock);

    const std::unique_ptr<LogOutput> output_; // the writer thread's
    const Limits limits_;

    std::mutex mutex_;
    std::condition_variable wake_, attempted_;
    std::string pending_;        // lines since the last attempt
    std::size_t kept_ = 0;       // bytes that a failing output did not take yet
    std::uint64_t dropped_ = 0;  // lines, since the last note of them
    std::uint64_t wanted_ = 0;   // attempts that somebody asked for
    std::uint64_t finished_ = 0; // the highest of them that is over
    bool stuck_ = false;         // somebody's patience ended during the attempt that is under way
    bool stopping_ = false;

    std::thread writer_; // last: it uses all of the above
};

} // namespace brindlemar
