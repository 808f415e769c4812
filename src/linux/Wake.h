// Wakes a thread that waits in poll(2).
#pragma once

#include "linux/FileDescriptor.h"

#include <atomic>

namespace brindlemar {

/// One waiting thread, any number of others that wake it. Thread-safe.
class Wake {
public:
    /// Throws std::system_error when the process has no descriptor left (eventfd(2)).
    Wake();
    /// The waiter's next poll returns at once.
    void signal();
    /// As signal(), and stopped() stays true: the waiter should finish.
    void stop();
    bool stopped() const { return stopped_; }

    /// For the waiter: readable while a signal is pending, until drain().
    int descriptor() const { return event_.get(); }
    void drain();

private:
    FileDescriptor event_;
    std::atomic<bool> stopped_{false};
};

} // namespace brindlemar
