// The two ports of one connection: requests come in on the host port, replies go out to the extension's reply port.
#pragma once

#include "host/RequestHandler.h"
#include "platform/MessagePort.h"

namespace brindlemar::host {

/// Listens as long as it lives. Requests are answered on the workers, several at a time; a reply is dropped, with a
/// warning, when the extension's reply port is not to be reached.
class PortServer {
public:
    struct Services {
        MessagePorts& ports;
        Queue& dispatch; // where messages arrive; serial
        Queue& workers;
        Say warn;
    };
    /// None when another process already serves a connection with this domain. The services outlive the server.
    static std::unique_ptr<PortServer> open(const Services& services, const Connection& connection, Tree tree,
                                            std::set<std::string> silent);
    ~PortServer() { port_->invalidate(); }

private:
    class Replies;
    explicit PortServer(std::shared_ptr<LocalPort> port) : port_(std::move(port)) {}
    const std::shared_ptr<LocalPort> port_;
};

} // namespace brindlemar::host
