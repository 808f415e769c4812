// The machine's clock.
#pragma once

#include "platform/Clock.h"

#include <condition_variable>
#include <mutex>

namespace brindlemar {

class SystemClock final : public Clock {
public:
    Timestamp now() override;
    void sleep(std::chrono::nanoseconds duration) override;
    /// Ends every sleep, now and from now on: the process is about to end and nobody waits for an absent host any more.
    void stopSleeping();

private:
    std::mutex mutex_;
    std::condition_variable stop_;
    bool stopped_ = false;
};

} // namespace brindlemar
