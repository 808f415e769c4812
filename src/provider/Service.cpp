#include "provider/Service.h"

#include "core/BrindlemarFileProvider.h"
#include "items/ItemIdentifiers.h"
#include "linux/dbus/DBusServices.h"
#include "linux/log/LogFiles.h"
#include "linux/ports/SocketMessagePorts.h"
#include "linux/queues/QueueTimers.h"
#include "linux/queues/SerialQueue.h"
#include "linux/queues/SystemClock.h"
#include "linux/queues/WorkerPool.h"
#include "linux/store/HybridStore.h"
#include "messaging/BxMessages.h"
#include "messaging/MessageLogger.h"
#include "platform/Platform.h"
#include "provider/Calls.h"
#include "provider/DomainRegistry.h"
#include "provider/HostGate.h"
#include "provider/MountStatus.h"
#include "provider/ReaderWatch.h"
#include "provider/ServiceFiles.h"
#include "provider/WorkingSet.h"
#include "support/JSON.h"

#include <cstdlib>
#include <deque>
#include <stdexcept>

namespace brindlemar {

namespace {
/// What sockets report about peers that break the rules.
void logDiagnostic(std::string_view text) { LogScope(Logger::shared(), "diagnostic(_:)").warning(text); }

std::string domainDirectory(const ServicePlaces& places) {
    return places.state + "/domains/" + std::string(ExtensionBundleIdentifier);
}
std::string temporaryDirectory(const ServicePlaces& places) { return domainDirectory(places) + "/tmp"; }

std::string userDirectory(const char* variable, const char* belowHome) {
    const char* value = std::getenv(variable);
    if (value && *value == '/') return std::string(value) + "/brindlemar";
    const char* home = std::getenv("HOME");
    if (!home || *home != '/')
        throw std::runtime_error(std::string("There is no home directory to keep state in; set HOME or ") + variable +
                                 ".");
    return std::string(home) + belowHome + "/brindlemar";
}
} // namespace

ServicePlaces ServicePlaces::ofUser() {
    ServicePlaces places{.state = userDirectory("XDG_STATE_HOME", "/.local/state"),
                         .cache = userDirectory("XDG_CACHE_HOME", "/.cache"),
                         .userVisibleRoot = ""};
    const char* home = std::getenv("HOME");
    places.userVisibleRoot = home && *home == '/' ? std::string(home) + "/Brindlemar" : places.state + "/Brindlemar";
    return places;
}

/// In the order of construction. What the platform bundle refers to is declared before everything that uses it.
struct Service::Parts {
    Parts(const RuntimeDirectory& directory, const ServicePlaces& places)
        : stores(places.cache, clock, timers, logDiagnostic),
          registry({std::string(ExtensionBundleIdentifier), "Brindlemar"},
                   {.temporaryDirectory = temporaryDirectory(places), .userVisibleRoot = places.userVisibleRoot}, clock,
                   [this] { return mount ? mount->topLevel() : feed.topLevel(); }),
          fetched(temporaryDirectory(places), domainDirectory(places) + "/fetched", tasks),
          ports(RuntimeDirectory::open(), mainQueue, limited(logDiagnostic, timers)),
          xpc(directory, limited(logDiagnostic, timers)) {
        Platform::install({clock, mainQueue, backgroundQueue, tasks, ports, registry, xpc, files, stores, log});
        extension = BrindlemarFileProvider::make(registry.domain());
        workingSet = std::make_shared<WorkingSet>(extension, tasks, registry.ownManager(), feed, clock);
        calls.extension = extension;
        if (places.isMounted) {
            mount = std::make_unique<Mount>(
                domainDirectory(places), places.userVisibleRoot,
                Mount::Places{extension, folders, registry.ownManager(), fetched, tasks, clock,
                              // A connection that no host has named yet has lost none of its items.
                              [this](const std::string& connection) {
                                  return extension->isConnected(connection) &&
                                         hostIsExpected(registry.ownManager(), connection, tasks);
                              }});
            feed.setSink([this](const ChangeSet& changes) { mount->apply(changes); });
            calls.mount = mount.get();
        }
        registry.ownManager().setListener([this, set = std::weak_ptr(workingSet)] {
            if (const auto alive = set.lock()) alive->look();
            if (mount) mount->domainChanged();
        });
    }
    void stop() {
        stopping = true;
        if (mount) mount->stop();
        clock.stopSleeping();
    }
    /// The platform's hold on a source whose endpoint nobody has connected to yet; the oldest give way.
    void keep(const std::shared_ptr<NSFileProviderServiceSource>& source) {
        constexpr std::size_t most = 16;
        const auto dropped = sources.with([&](auto& kept) {
            kept.push_back(source);
            std::shared_ptr<NSFileProviderServiceSource> oldest;
            if (kept.size() > most) {
                oldest = std::move(kept.front());
                kept.pop_front();
            }
            return oldest;
        });
    }
    /// Lines for a reader whose going away is noticed. The call is under way until they are closed.
    std::shared_ptr<LineOutput> lines(CallOutput output) {
        struct Call {
            ~Call() { readers.remove(token); }
            std::shared_ptr<void> place;
            LineOutput lines;
            ReaderWatch& readers;
            ReaderWatch::Token token = 0;
        };
        std::shared_ptr<void> place = std::move(output.place);
        const std::shared_ptr<Call> call(new Call{std::move(place), LineOutput(std::move(output), stopping), readers});
        std::shared_ptr<LineOutput> lines(call, &call->lines);
        call->token = readers.add(lines->descriptor(), [weak = std::weak_ptr(lines)] {
            if (const auto alive = weak.lock()) alive->readerGone();
        });
        return lines;
    }
    ~Parts() {
        stop();
        if (mount) mount->hide();
        // No task runs any more when the process-wide objects go; they go before the ports and queues they use.
        readers.stop();
        callers.stop();
        tasks.stop();
        backgroundQueue.stop();
        mainQueue.stop();
        sources.with([](auto& kept) { return std::exchange(kept, {}); });
        registry.ownManager().setListener(nullptr);
        calls.extension.reset();
        workingSet.reset();
        extension->invalidate();
        extension.reset();
        BxMessages::reset();
        feed.setSink(nullptr);
        mount.reset();
    }

    std::atomic<bool> stopping{false};
    SystemClock clock;
    LogFiles log;
    struct LoggerEnd {
        ~LoggerEnd() {
            resetMessageLogger();
            Logger::reset();
        }
    } loggerEnd; // the logger writes through `log` to the last
    QueueTimers timers;
    SerialQueue mainQueue{timers, "main queue"};
    WorkerPool backgroundQueue{timers};
    WorkerPool tasks{timers};   // apart from the background queue: lookups that wait for a host do not hold up answers
    WorkerPool callers{timers}; // apart from the tasks: nor do they hold up whoever asks for what is here
    HybridStores stores;
    ReaderWatch readers; // outlives all outputs
    ChangeFeed feed;
    DomainRegistry registry;
    ServiceFiles files{registry};
    FetchedFiles fetched;
    SocketMessagePorts ports;
    DBusServices xpc; // its threads end here, before what they use
    std::shared_ptr<BrindlemarFileProvider> extension;
    std::shared_ptr<WorkingSet> workingSet;
    OpenFolders folders{clock};
    CallPlaces calls{nullptr, registry.ownManager(), callers, feed, fetched, folders, clock};
    Guarded<std::deque<std::shared_ptr<NSFileProviderServiceSource>>> sources;
    std::unique_ptr<Mount> mount;
};

Service::Service(const RuntimeDirectory& directory, const ServicePlaces& places)
    : parts_(std::make_unique<Parts>(directory, places)) {}
Service::~Service() = default;

std::string Service::status() const {
    const DomainManager::State domain = parts_->registry.ownManager().state();
    const std::vector<std::string> records = parts_->extension->connections.copy();
    std::vector<JSON> connections, signals;
    for (const std::string& record : records)
        if (const auto connection = parseConnection(record))
            connections.push_back(JSON::object({{"name", connection->name}, {"domain", connection->domain}}));
    for (const std::string& container : domain.signals) signals.push_back(container);
    JSON::Members members = mountStatus(parts_->mount.get());
    members.insert(
        members.begin(),
        {{"service", JSON::object({{"pid", JSON(std::int64_t{::getpid()})}, {"version", BRINDLEMAR_VERSION}})},
         {"domain", JSON::object({{"identifier", ExtensionBundleIdentifier},
                                  {"state", domain.connected ? "connected" : "disconnected"},
                                  {"since", JSON(wholeSecondsSince1970(domain.since))},
                                  {"reason", domain.connected ? JSON() : JSON(domain.reason)}})},
         {"configured", JSON(parts_->extension->configured.load())},
         {"connections", JSON::array(connections)},
         {"signals", JSON::object({{"pending", JSON(static_cast<std::int64_t>(domain.signals.size()))},
                                   {"containers", JSON::array(signals)},
                                   {"enumerating", JSON(parts_->workingSet->isEnumerating())},
                                   {"total", JSON(static_cast<std::int64_t>(domain.signalCount))}})},
         {"requests",
          JSON::object({{"waiting", JSON(static_cast<std::int64_t>(BxMessages::sharedInstance().waitingCount()))}})}});
    return JSON::object(members).serialized().value_or("{}");
}

std::optional<std::string> Service::endpoint(const std::string& serviceName) {
    std::optional<std::string> address;
    const auto askSources = [&](const std::optional<ServiceSources>& sources, const auto&) {
        if (!sources) return;
        for (const auto& source : *sources) {
            if (source->serviceName() != serviceName) continue;
            if (auto endpoint = source->makeListenerEndpoint()) address = std::move(endpoint->address);
            parts_->keep(source);
        }
    };
    parts_->extension->supportedServiceSources(std::string(NSFileProviderRootContainerItemIdentifier), askSources);
    return address;
}

void Service::stop() { parts_->stop(); }

void Service::show() {
    if (parts_->mount) parts_->mount->show();
}

void Service::call(std::string operation, std::string arguments, CallOutput output) {
    parts_->callers.async(
        [&parts = *parts_, operation = std::move(operation), arguments = std::move(arguments),
         lines = parts_->lines(std::move(output))] { runCall(parts.calls, operation, JSON::parse(arguments), lines); });
}

} // namespace brindlemar
