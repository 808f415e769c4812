// Points on the monotonic clock.
#pragma once

#include <algorithm>
#include <chrono>

namespace brindlemar {

using Deadline = std::chrono::steady_clock::time_point;

/// Now when the delay is negative; a delay beyond the clock's range counts as a century.
inline Deadline deadlineAfter(std::chrono::nanoseconds delay) {
    constexpr std::chrono::nanoseconds century = std::chrono::hours(24 * 365 * 100);
    return std::chrono::steady_clock::now() + std::clamp(delay, std::chrono::nanoseconds::zero(), century);
}

/// For poll(2): rounded up, so that a wait never ends early.
inline int millisecondsUntil(Deadline deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
    return static_cast<int>(std::clamp<long long>(left, 0, 1'000'000'000));
}

} // namespace brindlemar
