// Real sockets in a directory of their own, with two parties that know nothing of each other but the names.
#pragma once

#include "fakes/Patience.h"
#include "linux/ports/SocketMessagePorts.h"
#include "linux/queues/SerialQueue.h"

#include <cstdlib>
#include <filesystem>

namespace brindlemar {

struct TemporaryRuntimeDirectory {
    TemporaryRuntimeDirectory() { ::setenv("BRINDLEMAR_RUNTIME_DIR", ::mkdtemp(path.data()), 1); }
    ~TemporaryRuntimeDirectory() { std::filesystem::remove_all(path); }
    std::string path = (std::filesystem::temp_directory_path() / "ports-XXXXXX").string();
};

struct SocketWorld {
    static constexpr std::chrono::milliseconds kHelloLimit{300};

    TemporaryRuntimeDirectory temporary;
    RuntimeDirectory directory = RuntimeDirectory::open();
    Collected<std::string> complaints;
    QueueTimers timers;
    SerialQueue main{timers, "main"};
    SocketMessagePorts ours{RuntimeDirectory::open(), main, complain(), kHelloLimit};
    SocketMessagePorts theirs{RuntimeDirectory::open(), main, complain(), kHelloLimit};

    Diagnostic complain() {
        return [this](std::string_view text) { complaints.add(std::string(text)); };
    }
    /// Another process listens under the name for as long as the result lives.
    auto occupy(const std::string& name) {
        return theirs.createLocal(name, [](auto&&...) { return std::nullopt; });
    }
};

} // namespace brindlemar
