// A periodic timer that can be paused.
#pragma once

#include "platform/Queue.h"

#include <memory>

namespace brindlemar {

/// Starts paused. The handler runs on the platform's background queue, never two at a time; the first tick comes one
/// period after the first resume(), and a tick that fell into a pause comes once the pause is over. The end of the
/// timer, which its handler may cause, waits for a handler that runs on another thread. Callers serialise resume() and
/// suspend(); the handler may be read and set on any thread.
class RepeatingTimer {
public:
    /// `timeInterval`: the period, in seconds.
    explicit RepeatingTimer(double timeInterval);
    ~RepeatingTimer();
    RepeatingTimer(const RepeatingTimer&) = delete;
    RepeatingTimer& operator=(const RepeatingTimer&) = delete;

    double timeInterval() const { return timeInterval_; }
    /// May be empty: ticks then do nothing.
    void setEventHandler(Task eventHandler);
    Task eventHandler() const;
    /// Calls while it runs already, or is paused already, do nothing.
    void resume();
    void suspend();

private:
    struct Source;
    const double timeInterval_;
    const std::shared_ptr<Source> source_;
    std::unique_ptr<Timer> timer_; // made by the first resume()
};

} // namespace brindlemar
