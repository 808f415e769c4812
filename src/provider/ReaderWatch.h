// Notices that the readers of pipes and sockets have gone.
#pragma once

#include "linux/FileDescriptor.h"
#include "linux/Wake.h"
#include "support/Guarded.h"

#include <functional>
#include <memory>
#include <thread>
#include <unordered_map>

namespace brindlemar {

/// One thread for all; thread-safe.
class ReaderWatch {
public:
    /// Throws std::system_error when the system has no descriptor or thread to spare.
    ReaderWatch();
    ~ReaderWatch();
    /// No callback runs after this. It is called on another thread.
    void stop();

    using Token = std::uint64_t;
    /// Calls `gone` once, on the watch's thread, when nobody can read any more what is written to the descriptor,
    /// unless that is closed first.
    Token add(int descriptor, std::function<void()> gone);
    /// Drops the callback, which may be running still.
    void remove(Token token);

private:
    void run();

    const FileDescriptor epoll_;
    Wake wake_;
    struct Callbacks {
        Token last = 0;
        std::unordered_map<Token, std::function<void()>> byToken; // a descriptor's number may be in use again
    };
    Guarded<Callbacks> callbacks_;
    std::thread thread_;
};

} // namespace brindlemar
