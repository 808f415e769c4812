// A whole platform without an operating system under it, installed for the length of one test.
#pragma once

#include "fakes/FakeClock.h"
#include "fakes/FakeMessagePorts.h"
#include "fakes/ManualQueue.h"
#include "linux/files/LinuxFiles.h"
#include "messaging/BxMessages.h"
#include "messaging/MessageLogger.h"
#include "platform/Platform.h"

#include <set>

namespace brindlemar {

using Strings = std::vector<std::string>;

struct FakeManager final : NSFileProviderManager {
    void reconnect(ErrorHandler handler) override { note("reconnect", handler); }
    void disconnect(std::string reason, unsigned options, ErrorHandler handler) override {
        note("disconnect " + reason + " " + std::to_string(options), handler);
    }
    void getUserVisibleURL(std::string_view,
                           std::function<void(std::optional<FileURL>, std::optional<NSError>)> handler) override {
        handler(FileURL{"/visible"}, std::nullopt);
    }
    std::optional<FileURL> temporaryDirectoryURL() override { return temporaryDirectory; }
    void signalEnumerator(std::string_view container, ErrorHandler handler) override {
        note("signal " + std::string(container), handler);
    }
    void note(const std::string& call, const ErrorHandler& handler) {
        calls.with([&](auto& list) { list.push_back(call); });
        handler(answer);
    }
    Guarded<Strings> calls;        // what was asked of the manager, in order
    std::optional<NSError> answer; // given to every handler
    std::optional<FileURL> temporaryDirectory{{"/tmp/d"}};
};

struct FakeManagers final : NSFileProviderManagers {
    std::shared_ptr<NSFileProviderManager> manager(const NSFileProviderDomain& domain) override {
        const auto found = known.find(domain.identifier);
        return found == known.end() ? nullptr : found->second;
    }
    void getIdentifierForUserVisibleFile(const FileURL& at, IdentifierHandler handler) override {
        const auto item = visible.find(at.path);
        if (item == visible.end()) return handler(std::nullopt, std::nullopt, noSuchItem());
        handler(item->second, "domain", std::nullopt);
    }
    std::map<std::string, std::shared_ptr<FakeManager>> known; // by domain identifier
    std::map<std::string, ItemIdentifier> visible;             // by path
};

/// Keeps what was sent and lets the test be the other end.
struct FakeConnection final : XPCConnection {
    void setExportedInterface(const XPCInterface& interface) override { protocol = interface.protocolName; }
    void setExportedObject(std::shared_ptr<XPCExportedObject> object) override { exportedObject = std::move(object); }
    void setRemoteObjectInterface(const XPCInterface&) override {}
    void setInvalidationHandler(std::function<void()> handler) override { invalidationHandler = std::move(handler); }
    void resume() override { events.push_back("resumed"); }
    bool send(std::string_view selector, Strings) override { return events.emplace_back(selector), true; }
    void invalidate() override {}
    std::string protocol;
    std::shared_ptr<XPCExportedObject> exportedObject;
    std::function<void()> invalidationHandler;
    Strings events;
};

struct NoXPC final : XPCServices {
    std::shared_ptr<XPCListener> makeAnonymousListener() override { return nullptr; }
};

/// The real files, but for what leads out of a test; "/visible" holds `visible`, unless access is refused.
struct FakeFiles final : LinuxFiles {
    bool startAccessingSecurityScopedResource(const FileURL&) override { return ++accesses, grantsAccess; }
    void stopAccessingSecurityScopedResource(const FileURL&) override { --accesses; }
    std::variant<std::vector<FileURL>, NSError> contentsOfDirectory(const FileURL& at) override {
        if (at.path == "/visible" && accesses > 0) return visible;
        return noSuchItem();
    }
    bool writeAtomically(std::string_view path, std::string_view bytes) override {
        written[std::string(path)] = bytes;
        return true;
    }
    void printLine(std::string_view) override {}
    std::map<std::string, std::string> written;
    std::vector<FileURL> visible;
    bool grantsAccess = true;
    int accesses = 0;
};

/// Stores in memory whose entries come back as decoded copies when `decodes` is set.
struct FakeStores final : ObjectStores {
    explicit FakeStores(Clock& clock) : clock(clock) {}
    std::unique_ptr<ObjectStore> make(StoreConfiguration configuration, ObjectCoder coder) override {
        if (failing.contains(configuration.name)) return nullptr;
        return std::make_unique<Store>(*this, configuration.name, std::move(coder));
    }
    struct Store final : ObjectStore {
        Store(FakeStores& stores, std::string name, ObjectCoder coder)
            : stores(stores), name(std::move(name)), coder(std::move(coder)) {}
        StoredObject object(std::string_view key) override {
            const auto found = entries.find(std::string(key));
            if (found == entries.end() || found->second.second <= stores.clock.now()) return nullptr;
            if (!stores.decodes) return found->second.first;
            std::string bytes;
            coder.encode(found->second.first, bytes);
            return coder.decode(bytes);
        }
        void setObject(StoredObject object, std::string_view key, Timestamp expiry) override {
            entries[std::string(key)] = {std::move(object), expiry};
        }
        void setObjects(std::shared_ptr<const ObjectGroup> group, Timestamp expiry) override {
            for (std::size_t i = 0; i < group->count(); ++i) {
                std::string key;
                group->appendKey(i, key);
                setObject(group->object(i), key, expiry);
            }
        }
        void removeAll() override { stores.emptied.push_back(name); }
        void removeExpiredObjects() override {}
        FakeStores& stores;
        const std::string name;
        const ObjectCoder coder;
        std::map<std::string, std::pair<StoredObject, Timestamp>> entries;
    };
    Clock& clock;
    Strings emptied;               // names of stores that were emptied, in order
    std::set<std::string> failing; // names that cannot be made
    bool decodes = false;
};

struct FakeLog final : LogBackend {
    struct Destination final : LogDestination {
        explicit Destination(Guarded<Strings>& lines) : lines(lines) {}
        void write(std::string_view line, bool) override {
            lines.with([&](auto& list) { list.emplace_back(line); });
        }
        void flush() override {}
        Guarded<Strings>& lines;
    };
    std::unique_ptr<LogDestination> console() override { return nullptr; }
    std::unique_ptr<LogDestination> file(const RotatingLogFile&) override {
        return std::make_unique<Destination>(lines);
    }
    std::optional<std::string> libraryDirectory() override { return "/library"; }
    std::uint64_t threadID() override { return 7; }
    Guarded<Strings> lines;
};

/// Installs itself as the process's platform; its destruction resets what was built from it.
struct FakePlatform {
    FakePlatform() {
        Platform::install({clock, mainQueue, backgroundQueue, tasks, ports, managers, xpc, files, stores, log});
    }
    ~FakePlatform() {
        settle();
        BxMessages::reset();
        resetMessageLogger();
        Logger::reset();
    }
    FakeClock clock;
    ManualQueue mainQueue, backgroundQueue, tasks;
    FakeMessagePorts ports{mainQueue};
    FakeManagers managers;
    NoXPC xpc;
    FakeFiles files;
    FakeStores stores{clock};
    FakeLog log;
    std::shared_ptr<FakeManager> manager = managers.known[std::string(ExtensionBundleIdentifier)] =
        std::make_shared<FakeManager>();
    /// Runs everything that waits on any queue until nothing waits.
    void settle() {
        while (tasks.runAll() + mainQueue.runAll() + backgroundQueue.runAll() > 0) {
        }
    }
    /// Log lines since the last call as "LEVEL message", those of one level only when it is given.
    Strings logged(std::string_view level = {}) {
        Strings found;
        for (const std::string& line : log.lines.with([](auto& list) { return std::exchange(list, {}); })) {
            const auto field = [&](std::string_view key, std::string_view end) {
                const std::size_t start = line.find(key) + key.size();
                return line.substr(start, line.find(end, start) - start);
            };
            const std::string name = field(" level=", " ");
            if (level.empty() || level == name) found.push_back(name + " " + field(" msg=\"", "\" thread="));
        }
        return found;
    }
    Strings managerCalls() {
        return manager->calls.with([](auto& list) { return std::exchange(list, {}); });
    }
    static std::string hostPort(const std::string& domain) { return "group.io.brindlemar.bxserver." + domain; }
    static std::string replyPort(const std::string& domain) { return "group.io.brindlemar.bxclient." + domain; }
};

} // namespace brindlemar
