// A mutex that threads get in turn.
#pragma once

#include <mutex>

namespace brindlemar {

/// A thread that lets go and takes it again at once does so after one that was waiting; with std::mutex it would nearly
/// always be first. To be used with std::lock_guard and std::unique_lock.
class TurnMutex {
public:
    void lock() {
        std::lock_guard turn(next_);
        mutex_.lock();
    }
    void unlock() { mutex_.unlock(); }

private:
    std::mutex next_, mutex_; // who waits for the second holds the first
};

} // namespace brindlemar
