// Real sockets in a directory of their own, with two parties that know nothing of each other but the names.
#pragma once

#include "fakes/Patience.h"
#include "fakes/TemporaryDirectory.h"
#include "linux/ports/SocketMessagePorts.h"
#include "linux/queues/SerialQueue.h"

namespace brindlemar {

struct SocketWorld {
    static constexpr std::chrono::milliseconds kHelloLimit{300};
    SocketWorld()
        : directory((::setenv("BRINDLEMAR_RUNTIME_DIR", temporary.path().c_str(), 1), RuntimeDirectory::open())) {}
    TemporaryDirectory temporary;
    RuntimeDirectory directory;
    Collected<std::string> complaints;
    QueueTimers timers;
    SerialQueue main{timers, "main"};
    SocketMessagePorts ours{RuntimeDirectory::open(), main, complain(), kHelloLimit};
    SocketMessagePorts theirs{RuntimeDirectory::open(), main, complain(), kHelloLimit};
    std::function<void()> onComplaint = [] {}; // on the thread that takes packets off the sockets
    Diagnostic complain() {
        return [this](std::string_view text) {
            complaints.add(std::string(text));
            onComplaint();
        };
    }
    /// Another process listens under the name for as long as the result lives.
    auto occupy(const std::string& name) {
        return theirs.createLocal(name, [](auto&&...) { return std::nullopt; });
    }
};

} // namespace brindlemar
