// The two ports of one connection: requests come in on the host port, replies go out to the extension's reply port.
#pragma once

#include "host/RequestHandler.h"
#include "platform/MessagePort.h"

namespace brindlemar::host {

/// Listens as long as it lives. Requests are answered on the queues, several at a time; a reply is dropped, with a
/// warning, when the requester is not to be reached any more.
class PortServer {
public:
    struct Services {
        MessagePorts& ports;
        Queue& dispatch; // where messages arrive; serial
        RequestHandler::Queues queues;
        Misbehaviour& misbehaviour;
    };
    /// None when another process already serves a connection with this domain. The services outlive the server.
    static std::unique_ptr<PortServer> open(const Services& services, std::unique_ptr<Served> served);
    ~PortServer() { port_->invalidate(); }

private:
    class Replies;
    explicit PortServer(std::shared_ptr<LocalPort> port) : port_(std::move(port)) {}
    const std::shared_ptr<LocalPort> port_;
};

} // namespace brindlemar::host
