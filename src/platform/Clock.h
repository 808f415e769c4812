// Time, handed in so that tests run without waiting.
#pragma once

#include "platform/Timestamp.h"

namespace brindlemar {

/// Thread-safe.
class Clock {
public:
    virtual ~Clock() = default;
    /// The time of day. May jump when the machine's clock is set.
    virtual Timestamp now() = 0;
    /// Blocks the calling thread for at least this long, measured on the monotonic clock.
    virtual void sleep(std::chrono::nanoseconds duration) = 0;
};

} // namespace brindlemar
