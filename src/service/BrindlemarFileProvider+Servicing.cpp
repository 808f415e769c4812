#include "service/BrindlemarFileProvider+Servicing.h"

#include "messaging/DomainConnection.h"
#include "platform/Platform.h"
#include "support/Logger.h"
#include "support/OnceCompletion.h"

namespace brindlemar {

namespace {
constexpr std::string_view kConfigure = "configureWithConnections:";
constexpr std::string_view kHello = "hello";

void changeDomainInTask(void (*change)(DomainHandler), std::string_view function, std::string_view failureText) {
    Platform::current().tasks.async([=] {
        change([=](std::optional<FileProviderError> error) {
            if (error) LogScope(Logger::shared(), function).error(failureText, error->localizedDescription());
        });
    });
}
} // namespace

const XPCInterface& brindlemarServiceInterface() {
    static const XPCInterface interface {
        "BrindlemarServiceV1", {
            { .selector = kConfigure, .takesStrings = true }
        }
    };
    return interface;
}

const XPCInterface& brindlemarHostServiceInterface() {
    static const XPCInterface interface {
        "BrindlemarHostServiceV1", {
            { .selector = kHello }
        }
    };
    return interface;
}

std::string BrindlemarServiceSource::serviceName() const { return std::string(brindlemarServiceName); }

std::optional<XPCListenerEndpoint> BrindlemarServiceSource::makeListenerEndpoint() {
    const auto listener = Platform::current().xpc.makeAnonymousListener();
    if (!listener) return std::nullopt;
    listener->setDelegate(weak_from_this());
    synchronized(lock_, [&] { listeners_.insert(listener); });
    listener->resume();
    return listener->endpoint();
}

bool BrindlemarServiceSource::shouldAcceptNewConnection(XPCListener& listener,
                                                        std::shared_ptr<XPCConnection> connection) {
    connection->setExportedInterface(brindlemarServiceInterface());
    connection->setExportedObject(shared_from_this());
    connection->setRemoteObjectInterface(brindlemarHostServiceInterface());
    connection->resume();
    connection->setInvalidationHandler([] {
        changeDomainInTask(disconnectDomain, "listener(_:shouldAcceptNewConnection:)", "Failed to disconnect: ");
    });
    const auto dropped = synchronized(lock_, [&] {
        const auto found = std::ranges::find_if(listeners_, [&](const auto& one) { return one.get() == &listener; });
        return found == listeners_.end() ? nullptr : listeners_.extract(found).value();
    });
    connection->send(kHello, {});
    return true;
}

void BrindlemarServiceSource::receive(std::string_view selector, std::vector<std::string> strings) {
    if (selector == kConfigure) configure(std::move(strings));
}

void BrindlemarServiceSource::configure(std::vector<std::string> connections) {
    constexpr std::string_view function = "configure(connections:)";
    const LogScope log{Logger::shared(), function};
    log.debug(std::to_string(connections.size()), " connections");
    log.debug("connections: ", printedList(connections));
    const std::string list = propertyList(connections);
    if (const auto ext = ext_.lock()) {
        ext->connections.with([&](auto& current) { current.swap(connections); });
        ext->configured = true;
    }
    Platform::current().files.writeAtomically("connections.plist", list);
    changeDomainInTask(reconnectDomain, function, "Failed to reconnect: ");
}

std::size_t BrindlemarServiceSource::waitingListeners() {
    return synchronized(lock_, [&] { return listeners_.size(); });
}

std::shared_ptr<NSProgress> BrindlemarFileProvider::supportedServiceSources(ItemIdentifier,
                                                                            ServiceSourcesHandler completionHandler) {
    const OnceCompletion<std::optional<ServiceSources>, std::optional<NSError>> completion(
        std::move(completionHandler), {std::nullopt, userCancelled()});
    completion(ServiceSources{std::make_shared<BrindlemarServiceSource>(shared_from_this())}, std::nullopt);
    auto progress = std::make_shared<NSProgress>();
    progress->setCancellationHandler([completion] { completion(std::nullopt, userCancelled()); });
    return progress;
}

} // namespace brindlemar
