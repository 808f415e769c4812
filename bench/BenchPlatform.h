// The platform on Linux without a log and without stores, for benchmarks.
#pragma once

#include "NoServices.h"
#include "linux/ports/SocketMessagePorts.h"
#include "linux/queues/QueueTimers.h"
#include "linux/queues/SerialQueue.h"
#include "linux/queues/SystemClock.h"
#include "linux/queues/WorkerPool.h"
#include "messaging/BxMessages.h"
#include "platform/Platform.h"

namespace brindlemar::bench {

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
    NoFiles files;
    NoStores stores;
};

} // namespace brindlemar::bench
