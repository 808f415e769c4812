#include "messaging/PortDirectory.h"

#include "messaging/MessageLogger.h"
#include "platform/Platform.h"
#include "support/DefaultDomain.h"

namespace brindlemar {

namespace {
constexpr int kAttempts = 10;
constexpr auto kPauseBetweenAttempts = std::chrono::milliseconds(250);

std::string portName(std::string_view middle, std::string_view domain) {
    return std::string(AppGroupIdentifier).append(".").append(middle).append(".").append(domain);
}

/// Takes the entries that hold this port out of the map; the caller drops them outside the lock.
template <class Map>
auto extractPort(Map& map, const MessagePort& port) {
    std::vector<typename Map::mapped_type> taken;
    for (auto entry = map.begin(); entry != map.end();) {
        if (entry->second.get() == &port) {
            taken.push_back(std::move(entry->second));
            entry = map.erase(entry);
        } else {
            ++entry;
        }
    }
    return taken;
}
} // namespace

std::shared_ptr<RemotePort> PortDirectory::port(const std::string& domain, const std::string& replyPortWord) {
    if (domain == kDefaultDomain) return nullptr;
    std::promise<std::shared_ptr<RemotePort>> promise;
    std::shared_future<std::shared_ptr<RemotePort>> others;
    auto existing = state_.with([&](State& state) -> std::shared_ptr<RemotePort> {
        // A lookup under way may have its host port already, but not yet the reply port that answers come to.
        if (const auto running = state.lookups.find(domain); running != state.lookups.end()) {
            others = running->second;
            return nullptr;
        }
        if (const auto found = state.machPorts.find(domain); found != state.machPorts.end()) return found->second;
        state.lookups.emplace(domain, promise.get_future().share());
        return nullptr;
    });
    if (existing) return existing;
    if (others.valid()) return others.get();

    std::shared_ptr<RemotePort> created;
    try {
        created = create(domain, replyPortWord);
    } catch (const std::exception& error) { // out of memory or descriptors
        LogScope(messageLogger(), "port(forDomain:canRetry:)").error("lookup failed: ", std::string_view(error.what()));
    }
    auto finished = state_.with([&](State& state) { return state.lookups.extract(domain); });
    promise.set_value(created);
    return created;
}

std::shared_ptr<RemotePort> PortDirectory::create(const std::string& domain, const std::string& replyPortWord) {
    const Platform& platform = Platform::current();
    const LogScope log{messageLogger(), "port(forDomain:canRetry:)"};
    const std::string hostPortName = portName("bxserver", domain);
    std::shared_ptr<RemotePort> port;
    for (int attempt = 0; attempt < kAttempts && !port; ++attempt) {
        port = platform.ports.createRemote(hostPortName);
        if (port) break;
        log.warning("failed to create bxserver port for ", hostPortName);
        platform.clock.sleep(kPauseBetweenAttempts);
    }
    if (!port) {
        log.error("failed to create bxserver port for ", hostPortName, " and exhausted retries.");
        return nullptr;
    }
    log.info("Existing bxserver port found for ", hostPortName);
    // Stored first: a port that is already dead reports so at once, and must be found here to be dropped.
    state_.with([&](State& state) { state.machPorts[domain] = port; });
    port->setInvalidationCallback(callbacks_.hostPortInvalidated);
    callbacks_.hostPortCreated();
    openReplyPort(domain, portName(replyPortWord, domain));
    return port;
}

void PortDirectory::openReplyPort(const std::string& domain, const std::string& name) {
    const LogScope log{messageLogger(), "port(forDomain:canRetry:)"};
    const Platform& platform = Platform::current();
    const auto known = state_.with([&](State& state) -> std::shared_ptr<LocalPort> {
        const auto found = state.remoteMachPorts.find(domain);
        return found == state.remoteMachPorts.end() ? nullptr : found->second;
    });
    if (known && known->isValid()) return log.debug("Found remote port in bxmessages: ", name);
    auto port = platform.ports.createLocal(name, callbacks_.message);
    if (!port) return log.warning("failed to find or create remote port in bxmessages: ", name);
    const auto previous = state_.with([&](State& state) { return std::exchange(state.remoteMachPorts[domain], port); });
    port->setInvalidationCallback(callbacks_.replyPortInvalidated);
    port->setDispatchQueue(platform.mainQueue);
    log.debug("Created remote port in bxmessages: ", name);
}

bool PortDirectory::holds(const RemotePort& port) const {
    return state_.with([&](const State& state) {
        for (const auto& [domain, known] : state.machPorts)
            if (known.get() == &port) return true;
        return false;
    });
}

bool PortDirectory::isReachable(const std::string& domain) const {
    const auto port = state_.with([&](const State& state) -> std::shared_ptr<RemotePort> {
        const auto found = state.machPorts.find(domain);
        return found == state.machPorts.end() ? nullptr : found->second;
    });
    return port && port->isValid();
}

bool PortDirectory::hasHostPort() const {
    return state_.with([](const State& state) { return !state.machPorts.empty(); });
}

void PortDirectory::forgetHostPort(const MessagePort& port) {
    const auto dropped = state_.with([&](State& state) { return extractPort(state.machPorts, port); });
}

void PortDirectory::forgetReplyPort(const MessagePort& port) {
    const auto dropped = state_.with([&](State& state) { return extractPort(state.remoteMachPorts, port); });
}

} // namespace brindlemar
