// Named message ports on Unix sockets. The wire contract is docs/port-protocol.md.
#pragma once

#include "linux/ports/PortContext.h"
#include "linux/ports/SocketLocalPort.h"
#include "linux/ports/SocketRemotePort.h"

#include <map>
#include <mutex>

namespace brindlemar {

/// Ports belong to their users: one whose last reference goes away closes, perhaps a moment later on the poller's
/// thread, and nobody is told. What arrives is taken off the sockets at once and kept in memory, without bound, until
/// the dispatch queue takes it: a slow receiver does not make its senders time out.
///
/// The main queue and all dispatch queues outlive this object and its ports. The destructor invalidates what is left.
class SocketMessagePorts final : public MessagePorts {
public:
    static constexpr std::chrono::milliseconds kHelloLimit{1000};

    /// `diagnostic` hears of peers that break the rules and of what the system refuses; it may be called on any thread.
    /// Throws std::system_error when the system has no descriptor or thread to spare.
    SocketMessagePorts(RuntimeDirectory directory, Queue& mainQueue, Diagnostic diagnostic,
                       std::chrono::milliseconds helloLimit = kHelloLimit);
    ~SocketMessagePorts() override;

    std::shared_ptr<RemotePort> createRemote(std::string_view name) override;
    std::shared_ptr<LocalPort> createLocal(std::string_view name, MessageCallback callback) override;

private:
    template <class Port>
    using Ports = Guarded<std::map<std::string, std::weak_ptr<Port>, std::less<>>>;

    const std::shared_ptr<PortContext> context_;
    Ports<SocketRemotePort> remotes_;
    Ports<SocketLocalPort> locals_;
    std::mutex creatingLocal_; // a turn: two callers of one name get one port
};

} // namespace brindlemar
