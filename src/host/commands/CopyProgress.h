// What a requester hears while a copy is made for it.
#pragma once

#include "host/commands/Commands.h"
#include "linux/files/FileCopy.h"

#include <atomic>
#include <mutex>

namespace brindlemar::host {

/// Sends {"status":"progress","progressPercentage":N} several times a second until it ends. When such a reply reaches
/// nobody, the requester has gone away, and the copy is to stop. Thread-safe.
class CopyProgress {
public:
    CopyProgress(Queue& ticks, const Reply& reply);
    ~CopyProgress() { end(); }

    /// For copyContents(); says stop once the requester has gone away.
    CopyStep step() const;
    /// No report comes after this. False when the requester has gone away.
    bool end();

private:
    struct State {
        const Reply reply;
        std::atomic<int> percentage{0};
        std::atomic<bool> abandoned{false};
        std::mutex sending{}; // held over a send, so that none is under way when the end returns
        bool ended = false;
        void tick();
    };
    const std::shared_ptr<State> state_;
    std::unique_ptr<Timer> timer_;
};

} // namespace brindlemar::host
