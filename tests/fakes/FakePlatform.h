// A whole platform without an operating system under it, installed for the length of one test.
#pragma once

#include "fakes/FakeClock.h"
#include "fakes/FakeMessagePorts.h"
#include "fakes/ManualQueue.h"
#include "platform/Platform.h"

#include <set>

namespace brindlemar {

class FakeManager final : public NSFileProviderManager {
public:
    void reconnect(ErrorHandler handler) override;
    void disconnect(std::string reason, unsigned options, ErrorHandler handler) override;
    void getUserVisibleURL(std::string_view,
                           std::function<void(std::optional<FileURL>, std::optional<NSError>)> handler) override;
    std::optional<FileURL> temporaryDirectoryURL() override { return FileURL{"/tmp/d"}; }
    void signalEnumerator(std::string_view container, ErrorHandler handler) override;

    /// What was asked of the manager, in order: "reconnect", "disconnect REASON OPTIONS", "signal CONTAINER".
    Guarded<std::vector<std::string>> calls;
    std::optional<NSError> answer; // given to every handler
};

class FakeManagers final : public NSFileProviderManagers {
public:
    std::shared_ptr<NSFileProviderManager> manager(const NSFileProviderDomain& domain) override;
    std::map<std::string, std::shared_ptr<FakeManager>> known; // by domain identifier
};

/// Keeps what was sent and lets the test be the other end.
struct FakeConnection final : XPCConnection {
    void setExportedInterface(const XPCInterface& interface) override { exportedInterface = &interface; }
    void setExportedObject(std::shared_ptr<XPCExportedObject> object) override { exportedObject = std::move(object); }
    void setRemoteObjectInterface(const XPCInterface&) override {}
    void setInvalidationHandler(std::function<void()> handler) override { invalidationHandler = std::move(handler); }
    void resume() override { resumed = true; }
    bool send(std::string_view selector, std::vector<std::string>) override {
        sent.emplace_back(selector);
        return true;
    }
    void invalidate() override {}

    const XPCInterface* exportedInterface = nullptr;
    std::shared_ptr<XPCExportedObject> exportedObject;
    std::function<void()> invalidationHandler;
    bool resumed = false;
    std::vector<std::string> sent;
};

struct FakeListener final : XPCListener {
    void setDelegate(std::weak_ptr<XPCListenerDelegate> object) override { delegate = std::move(object); }
    void resume() override { resumed = true; }
    XPCListenerEndpoint endpoint() const override { return {"fake"}; }

    std::weak_ptr<XPCListenerDelegate> delegate;
    bool resumed = false;
};

struct FakeXPC final : XPCServices {
    std::shared_ptr<XPCListener> makeAnonymousListener() override {
        auto listener = std::make_shared<FakeListener>();
        made.push_back(listener);
        return listener;
    }
    std::vector<std::weak_ptr<FakeListener>> made;
};

struct FakeFiles final : Files {
    bool writeAtomically(std::string_view path, std::string_view bytes) override {
        written[std::string(path)] = bytes;
        return true;
    }
    void printLine(std::string_view line) override { printed.emplace_back(line); }
    std::map<std::string, std::string> written;
    std::vector<std::string> printed;
};

/// Stores in memory whose entries come back as decoded copies when `decodes` is set.
struct FakeStores final : ObjectStores {
    explicit FakeStores(Clock& clock) : clock(clock) {}
    std::unique_ptr<ObjectStore> make(StoreConfiguration configuration, ObjectCoder coder) override;

    Clock& clock;
    std::vector<std::string> emptied; // names of stores that were emptied, in order
    std::set<std::string> failing;    // names that cannot be made
    bool decodes = false;
};

struct FakeLog final : LogBackend {
    std::unique_ptr<LogDestination> console() override { return nullptr; }
    std::unique_ptr<LogDestination> file(const RotatingLogFile&) override;
    std::optional<std::string> libraryDirectory() override { return "/library"; }
    std::uint64_t threadID() override { return 7; }
    std::shared_ptr<Guarded<std::vector<std::string>>> lines = std::make_shared<Guarded<std::vector<std::string>>>();
};

/// Installs itself as the process's platform; its destruction resets what was built from it.
struct FakePlatform {
    FakePlatform();
    ~FakePlatform();

    FakeClock clock;
    ManualQueue mainQueue, backgroundQueue, tasks;
    FakeMessagePorts ports{mainQueue};
    FakeManagers managers;
    FakeXPC xpc;
    FakeFiles files;
    FakeStores stores{clock};
    FakeLog log;
    std::shared_ptr<FakeManager> manager; // of the domain named by ExtensionBundleIdentifier

    /// Runs everything that waits on any queue until nothing waits.
    void settle();
    /// Log lines since the last call as "LEVEL message", those of one level only when it is given.
    std::vector<std::string> logged(std::string_view level = {});
    std::vector<std::string> managerCalls();

    static std::string hostPort(std::string_view domain) {
        return "group.io.brindlemar.bxserver." + std::string(domain);
    }
    static std::string replyPort(std::string_view domain) {
        return "group.io.brindlemar.bxclient." + std::string(domain);
    }
};

} // namespace brindlemar
