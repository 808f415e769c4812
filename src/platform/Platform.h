// The bundle of platform services that the extension runs on. Whoever starts the process installs one.
#pragma once

#include "platform/Clock.h"
#include "platform/Configuration.h"
#include "platform/Domain.h"
#include "platform/Files.h"
#include "platform/LogBackend.h"
#include "platform/MessagePort.h"
#include "platform/ObjectStore.h"
#include "platform/Queue.h"
#include "platform/XPC.h"

namespace brindlemar {

/// References to services that outlive every use of the bundle.
struct Platform {
    Clock& clock;
    Queue& mainQueue;       // serial
    Queue& backgroundQueue; // concurrent, of background quality of service
    Queue& tasks;           // concurrent; runs asynchronous tasks, which may block
    MessagePorts& ports;
    NSFileProviderManagers& managers;
    XPCServices& xpc;
    Files& files;
    ObjectStores& stores;
    LogBackend& log;

    /// The installed bundle. Calling it before install() is a programming error and throws std::logic_error.
    static const Platform& current();
    /// The installed clock's time of day. Before install() the machine's: records can be made without a bundle.
    static Timestamp now();
    /// Installs the bundle for the process; the process-wide objects that were built from an earlier one must have
    /// been reset.
    static void install(const Platform& platform);
};

} // namespace brindlemar
