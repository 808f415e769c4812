#include "host/PortServer.h"

#include "platform/Configuration.h"

namespace brindlemar::host {

namespace {
constexpr std::chrono::seconds kSendTime{3};

std::string portName(std::string_view end, const std::string& domain) {
    return std::string(AppGroupIdentifier).append(end).append(domain);
}

/// The process that requests come from. Its successor counts its requests anew, so that no reply may go there. The port
/// to it is made with the first reply.
class Requester {
public:
    Requester(MessagePorts& ports, std::string name) : ports_(ports), name_(std::move(name)) {}

    bool send(std::int32_t msgid, std::string_view text) {
        const std::shared_ptr<RemotePort> port = reach();
        return port && port->sendRequest({.msgid = msgid, .data = text, .sendTimeout = kSendTime}).status ==
                           SendStatus::success;
    }
    bool isGone() const {
        const std::shared_ptr<RemotePort> port = port_.copy();
        return port && !port->isValid();
    }

private:
    std::shared_ptr<RemotePort> reach() {
        std::shared_ptr<RemotePort> port = port_.copy();
        // The port to a predecessor may still be in the way of the first attempt.
        for (int attempt = 0; !port && attempt < 2; ++attempt) port = ports_.createRemote(name_);
        return port_.with([&](auto& known) {
            if (!known) known = port;
            return known;
        });
    }
    MessagePorts& ports_;
    const std::string name_;
    Guarded<std::shared_ptr<RemotePort>> port_;
};
} // namespace

/// Shared by the requests of one connection that are being answered.
class PortServer::Replies : public std::enable_shared_from_this<Replies> {
public:
    Replies(const Services& services, std::unique_ptr<Served> served)
        : ports_(services.ports), name_(portName(".bxclient.", served->connection.domain)), warn_(served->warn),
          handler_(std::move(served), services.queues, services.misbehaviour) {}

    /// On the queue where messages arrive.
    void answer(std::int32_t msgid, std::string_view request) {
        if (!requester_ || requester_->isGone()) requester_ = std::make_shared<Requester>(ports_, name_);
        handler_.handle(request, [self = shared_from_this(), requester = requester_, msgid](std::string_view reply) {
            const bool sent = requester->send(msgid, reply);
            if (!sent) self->warn_("A reply found nobody to take it on " + self->name_ + ".");
            return sent;
        });
    }

private:
    MessagePorts& ports_;
    const std::string name_;
    const Say warn_;
    RequestHandler handler_;
    std::shared_ptr<Requester> requester_; // the one of now
};

std::unique_ptr<PortServer> PortServer::open(const Services& services, std::unique_ptr<Served> served) {
    const std::string name = portName(".bxserver.", served->connection.domain);
    const auto replies = std::make_shared<Replies>(services, std::move(served));
    auto port = services.ports.createLocal(
        name,
        [replies, &dispatch = services.dispatch, delay = services.misbehaviour.delay()](
            LocalPort&, std::int32_t msgid, const Payload& data) -> std::optional<std::string> {
            if (delay.count() == 0)
                replies->answer(msgid, data.bytes());
            else
                dispatch.after(delay, [replies, msgid, data] { replies->answer(msgid, data.bytes()); });
            return std::nullopt;
        });
    if (!port) return nullptr;
    port->setDispatchQueue(services.dispatch);
    return std::unique_ptr<PortServer>(new PortServer(std::move(port)));
}

} // namespace brindlemar::host
