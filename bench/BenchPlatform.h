// The platform on Linux without a log and without stores, for benchmarks.
#pragma once

#include "linux/LinuxFiles.h"
#include "linux/QueueTimers.h"
#include "linux/SerialQueue.h"
#include "linux/SocketMessagePorts.h"
#include "linux/SystemClock.h"
#include "linux/WorkerPool.h"
#include "messaging/BxMessages.h"
#include "platform/Platform.h"

namespace brindlemar::bench {

struct NoManagers final : NSFileProviderManagers {
    std::shared_ptr<NSFileProviderManager> manager(const NSFileProviderDomain&) override { return nullptr; }
};
struct NoXPC final : XPCServices {
    std::shared_ptr<XPCListener> makeAnonymousListener() override { return nullptr; }
};
struct NoStores final : ObjectStores {
    std::unique_ptr<ObjectStore> make(StoreConfiguration, ObjectCoder) override { return nullptr; }
};
struct NoLog final : LogBackend {
    std::unique_ptr<LogDestination> console() override { return nullptr; }
    std::unique_ptr<LogDestination> file(const RotatingLogFile&) override { return nullptr; }
    std::optional<std::string> libraryDirectory() override { return std::nullopt; }
    std::uint64_t threadID() override { return 0; }
};

struct BenchPlatform {
    BenchPlatform() {
        Platform::install({clock, mainQueue, backgroundQueue, tasks, ports, managers, xpc, files, stores, log});
    }
    ~BenchPlatform() {
        tasks.stop();
        backgroundQueue.stop();
        mainQueue.stop();
        BxMessages::reset();
    }
    SystemClock clock;
    NoLog log;
    QueueTimers timers;
    SerialQueue mainQueue{timers, "main queue"};
    WorkerPool backgroundQueue{timers}, tasks{timers};
    SocketMessagePorts ports{RuntimeDirectory::open(), mainQueue, [](std::string_view) {}};
    NoManagers managers;
    NoXPC xpc;
    LinuxFiles files;
    NoStores stores;
};

} // namespace brindlemar::bench
