// Points in time, as the platform's dates: UTC, nanoseconds since 1970. Good for the years 1678 to 2262.
#pragma once

#include <chrono>
#include <cstdint>

namespace brindlemar {

using Timestamp = std::chrono::sys_time<std::chrono::nanoseconds>;

inline Timestamp timestampFromSeconds(std::uint32_t seconds) { return Timestamp(std::chrono::seconds(seconds)); }

/// Seconds since 1970 with their fraction.
inline double secondsSince1970(Timestamp time) {
    return std::chrono::duration<double>(time.time_since_epoch()).count();
}

/// Whole seconds since 1970, truncated toward zero.
inline std::int64_t wholeSecondsSince1970(Timestamp time) {
    return std::chrono::duration_cast<std::chrono::seconds>(time.time_since_epoch()).count();
}

/// True from `then` on until the span is over. Clocks are set: what lies in the future was long ago.
inline bool isWithin(Timestamp::duration span, Timestamp then, Timestamp now) {
    return then <= now && now - then < span;
}

} // namespace brindlemar
