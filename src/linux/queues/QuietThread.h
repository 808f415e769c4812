// Threads that take no signals.
#pragma once

#include <csignal>
#include <functional>
#include <thread>

namespace brindlemar {

/// Signals are for the program's own threads; also a write to a pipe without a reader then fails and ends nothing.
/// Throws std::system_error when there is no thread to be had.
inline std::thread startQuietThread(std::function<void()> body) {
    sigset_t all, before;
    sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before);
    struct Restore {
        const sigset_t& mask;
        ~Restore() { ::pthread_sigmask(SIG_SETMASK, &mask, nullptr); }
    } restore{before};
    return std::thread(std::move(body));
}

} // namespace brindlemar
