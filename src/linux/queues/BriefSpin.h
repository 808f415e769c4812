// A short look before a sleep: waking a processor that sleeps costs far more than the work that is about to come.
#pragma once

#include <sched.h>

#include <chrono>
#include <thread>

namespace brindlemar {

/// Longer than a request's way to the host and back, so that the threads on its road meet each other awake.
inline constexpr auto kBriefSpin = std::chrono::microseconds(50);

/// Calls `ready` until it is true or the time is up, giving way to every other thread; not at all on one processor.
template <class Ready>
void spinBriefly(const Ready& ready) {
    static const bool alone = std::thread::hardware_concurrency() < 2;
    if (alone) return;
    const auto end = std::chrono::steady_clock::now() + kBriefSpin;
    while (!ready() && std::chrono::steady_clock::now() < end) ::sched_yield();
}

} // namespace brindlemar
