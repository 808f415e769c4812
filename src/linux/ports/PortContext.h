// What all ports of one SocketMessagePorts share.
#pragma once

#include "linux/Diagnostic.h"
#include "linux/RuntimeDirectory.h"
#include "linux/ports/PortPoller.h"
#include "platform/Queue.h"

#include <string>

namespace brindlemar {

struct PortContext {
    RuntimeDirectory directory;
    Queue& mainQueue;
    Diagnostic diagnostic;
    /// How long either side waits for the other's hello.
    std::chrono::milliseconds helloLimit;
    PortPoller poller{};

    void diagnose(const std::string& file, std::string_view what) const {
        if (diagnostic) diagnostic("Message port " + file + ": " + std::string(what));
    }
};

} // namespace brindlemar
