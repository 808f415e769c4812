// What all ports of one SocketMessagePorts share.
#pragma once

#include "linux/RuntimeDirectory.h"
#include "linux/ports/PortPoller.h"
#include "platform/Queue.h"

#include <functional>
#include <string>

namespace brindlemar {

/// Gets one sentence for the log, on any thread; must not throw and must not call the ports.
using PortDiagnostic = std::function<void(std::string_view)>;

struct PortContext {
    RuntimeDirectory directory;
    Queue& mainQueue;
    PortDiagnostic diagnostic;
    /// How long either side waits for the other's hello.
    std::chrono::milliseconds helloLimit;
    PortPoller poller{};

    void diagnose(const std::string& file, std::string_view what) const {
        if (diagnostic) diagnostic("Message port " + file + ": " + std::string(what));
    }
};

} // namespace brindlemar
