// Platform services that do nothing, for programs that need a bundle and use little of it.
#pragma once

#include "linux/files/LinuxFiles.h"
#include "platform/Platform.h"

namespace brindlemar {

struct NoPorts final : MessagePorts {
    std::shared_ptr<RemotePort> createRemote(std::string_view) override { return nullptr; }
    std::shared_ptr<LocalPort> createLocal(std::string_view, MessageCallback) override { return nullptr; }
};
struct NoManagers final : NSFileProviderManagers {
    std::shared_ptr<NSFileProviderManager> manager(const NSFileProviderDomain&) override { return nullptr; }
    void getIdentifierForUserVisibleFile(const FileURL&, IdentifierHandler handler) override {
        handler(std::nullopt, std::nullopt, noSuchItem());
    }
};
struct NoXPC final : XPCServices {
    std::shared_ptr<XPCListener> makeAnonymousListener() override { return nullptr; }
};
struct NoFiles final : LinuxFiles {
    bool writeAtomically(std::string_view, std::string_view) override { return false; }
    void printLine(std::string_view) override {}
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

} // namespace brindlemar
