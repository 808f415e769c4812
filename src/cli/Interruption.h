// The user's and the system's wish to end the program.
#pragma once

#include "linux/FileDescriptor.h"
#include "linux/Wake.h"

#include <functional>
#include <thread>

namespace brindlemar::cli {

/// While it lives, SIGINT, SIGTERM and SIGHUP, each unless it is ignored, make it call `cleanUp` on a thread of its own
/// and end the process with 128 + the signal's number, whatever the other threads are waiting for. To be made before
/// all other threads, which inherit what it does to the signals.
class Interruption {
public:
    explicit Interruption(std::function<void()> cleanUp);
    ~Interruption();

private:
    void wait();

    const std::function<void()> cleanUp_;
    FileDescriptor signals_;
    Wake end_;
    std::thread thread_;
};

} // namespace brindlemar::cli
