// Points on the monotonic clock.
#pragma once

#include <algorithm>
#include <chrono>

namespace brindlemar {

using Deadline = std::chrono::steady_clock::time_point;

/// A century: longer delays count as this one, so that no sum leaves the clock's range.
inline constexpr std::chrono::nanoseconds kLongestDelay = std::chrono::hours(24 * 365 * 100);

/// Now when the delay is negative.
inline Deadline deadlineAfter(std::chrono::nanoseconds delay) {
    return std::chrono::steady_clock::now() + std::clamp(delay, std::chrono::nanoseconds::zero(), kLongestDelay);
}

/// For poll(2): rounded up, so that a wait never ends early.
inline int millisecondsUntil(Deadline deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
    return static_cast<int>(std::clamp<long long>(left, 0, 1'000'000'000));
}

} // namespace brindlemar
