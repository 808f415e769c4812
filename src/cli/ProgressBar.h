// How far transfers have come, on a terminal.
#pragma once

#include "cli/Events.h"
#include "cli/Output.h"

#include <chrono>

namespace brindlemar::cli {

enum class Amount { bytes, files };

struct ProgressView {
    std::string name;
    std::uint64_t done = 0, total = 0;
    unsigned percent = 0;
    double seconds = 0; // since the start
    Amount amount = Amount::bytes;
};
/// "lanterns.txt  [#####     ]  50%  1.2 MB of 2.4 MB  300 kB/s  0:04 left", cut to the columns; or, without a rate,
/// "1 of 2 files".
std::string progressLine(const ProgressView& view, std::size_t columns);

/// One line for all transfers of a command; nothing unless the notices are a terminal. Never falls. Thread-safe.
class ProgressBar {
public:
    ProgressBar(Notices& notices, std::string name, Amount amount = Amount::bytes)
        : notices_(notices), view_{.name = std::move(name), .amount = amount} {}
    ~ProgressBar() { notices_.show(""); }

    /// More is to come.
    void expect(std::uint64_t more);
    void advance(std::uint64_t more);
    /// How far all of it is; what is less than before stays as it was.
    void set(std::uint64_t done, std::uint64_t total);

private:
    void draw();

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
