#include "host/PortServer.h"

#include "platform/Configuration.h"

namespace brindlemar::host {

namespace {
constexpr std::chrono::seconds kSendTime{3};

std::string portName(std::string_view end, const std::string& domain) {
    return std::string(AppGroupIdentifier).append(end).append(domain);
}
} // namespace

/// Shared by the requests of one connection that are being answered.
class PortServer::Replies : public std::enable_shared_from_this<Replies> {
public:
    Replies(const Services& services, const Connection& connection, Tree tree, std::set<std::string> silent)
        : services_(services), name_(portName(".bxclient.", connection.domain)),
          handler_(connection, std::move(tree), std::move(silent), services.warn) {}

    void answer(std::int32_t msgid, std::string_view request) {
        handler_.handle(request, [self = shared_from_this(), msgid](std::string_view reply) {
            const bool sent = self->send(msgid, reply);
            if (!sent) self->services_.warn("A reply found nobody to take it on " + self->name_ + ".");
            return sent;
        });
    }

private:
    bool send(std::int32_t msgid, std::string_view reply) {
        // The stored port may have lost its peer unnoticed: then a new one gets a second try.
        for (int attempt = 0; attempt < 2; ++attempt) {
            const std::shared_ptr<RemotePort> port = reach();
            if (port && port->sendRequest({.msgid = msgid, .data = reply, .sendTimeout = kSendTime}).status ==
                            SendStatus::success)
                return true;
            forget(port);
        }
        return false;
    }
    std::shared_ptr<RemotePort> reach() {
        std::shared_ptr<RemotePort> port = port_.copy();
        if (port && port->isValid()) return port;
        port = services_.ports.createRemote(name_);
        std::shared_ptr<RemotePort> old = port;
        port_.with([&](auto& stored) { stored.swap(old); });
        return port;
    }
    void forget(std::shared_ptr<RemotePort> port) {
        std::shared_ptr<RemotePort> none;
        port_.with([&](auto& stored) {
            if (stored == port) stored.swap(none);
        });
    }

    const Services services_;
    const std::string name_;
    RequestHandler handler_;
    Guarded<std::shared_ptr<RemotePort>> port_;
};

std::unique_ptr<PortServer> PortServer::open(const Services& services, const Connection& connection, Tree tree,
                                             std::set<std::string> silent) {
    const auto replies = std::make_shared<Replies>(services, connection, std::move(tree), std::move(silent));
    auto port = services.ports.createLocal(
        portName(".bxserver.", connection.domain),
        [replies, &workers = services.workers](LocalPort&, std::int32_t msgid,
                                               const Payload& data) -> std::optional<std::string> {
            workers.async([replies, msgid, data] { replies->answer(msgid, data.bytes()); });
            return std::nullopt;
        });
    if (!port) return nullptr;
    port->setDispatchQueue(services.dispatch);
    return std::unique_ptr<PortServer>(new PortServer(std::move(port)));
}

} // namespace brindlemar::host
