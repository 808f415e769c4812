// How far transfers have come, on a terminal.
#pragma once

#include "cli/Events.h"
#include "cli/Output.h"

#include <chrono>

namespace brindlemar::cli {

struct ProgressView {
    std::string name;
    std::uint64_t done = 0, total = 0; // bytes
    unsigned percent = 0;
    double seconds = 0; // since the start
};
/// "lanterns.txt  [#####     ]  50%  1.2 MB of 2.4 MB  300 kB/s  0:04 left", cut to the columns.
std::string progressLine(const ProgressView& view, std::size_t columns);

/// One line for all transfers of a command; nothing unless the notices are a terminal. Never falls. Thread-safe.
class ProgressBar {
public:
    ProgressBar(Notices& notices, std::string name) : notices_(notices), view_{.name = std::move(name)} {}
    ~ProgressBar() { notices_.show(""); }

    /// More bytes are to come.
    void expect(std::uint64_t bytes);
    void advance(std::uint64_t bytes);

private:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::milliseconds kPause{100}; // between two drawings

    Notices& notices_;
    std::mutex mutex_;
    ProgressView view_;
    const Clock::time_point start_ = Clock::now();
    Clock::time_point drawn_{};
};

/// One transfer's share in the bar.
class ProgressShare {
public:
    ProgressShare(ProgressBar& bar, std::uint64_t bytes) : bar_(bar), bytes_(bytes) {}
    /// Takes events of the name "progress". That all is done counts only once finish() says so: the service may tell of
    /// full progress before there is any.
    void take(const Event& event);
    void finish() { advanceTo(bytes_); }

private:
    void advanceTo(std::uint64_t bytes);

    ProgressBar& bar_;
    const std::uint64_t bytes_;
    std::uint64_t told_ = 0;
};

} // namespace brindlemar::cli
