// Platform services for a test that must not reach them: any call fails it.
#pragma once

#include "platform/Platform.h"

#include <gtest/gtest.h>

namespace brindlemar {

struct UnusedServices : Queue, MessagePorts, NSFileProviderManagers, XPCServices, Files, ObjectStores {
    void async(Task) override { unexpected(); }
    void after(std::chrono::nanoseconds, Task) override { unexpected(); }
    std::unique_ptr<Timer> repeat(std::chrono::nanoseconds, Task) override { return unexpected(); }
    std::shared_ptr<RemotePort> createRemote(std::string_view) override { return unexpected(); }
    std::shared_ptr<LocalPort> createLocal(std::string_view, MessageCallback) override { return unexpected(); }
    std::shared_ptr<NSFileProviderManager> manager(const NSFileProviderDomain&) override { return unexpected(); }
    std::shared_ptr<XPCListener> makeAnonymousListener() override { return unexpected(); }
    bool writeAtomically(std::string_view, std::string_view) override { return unexpected() != nullptr; }
    void printLine(std::string_view) override { unexpected(); }
    std::unique_ptr<ObjectStore> make(StoreConfiguration, ObjectCoder) override { return unexpected(); }

    Platform platform(Clock& clock, LogBackend& log) {
        return {clock, *this, *this, *this, *this, *this, *this, *this, *this, log};
    }

private:
    static std::nullptr_t unexpected() {
        ADD_FAILURE() << "a service was called that the test does not provide";
        return nullptr;
    }
};

} // namespace brindlemar
