// The message ports to and from the host, one pair a domain.
#pragma once

#include "platform/MessagePort.h"
#include "support/Guarded.h"

#include <future>
#include <map>
#include <string>

namespace brindlemar {

/// Thread-safe. Its maps change only through port() and the two forget operations.
class PortDirectory {
public:
    /// What the directory's owner does with its ports.
    struct Callbacks {
        MessageCallback message;                                // the reply ports' messages, on the main queue
        std::function<void(MessagePort&)> hostPortInvalidated;  // on the main queue
        std::function<void(MessagePort&)> replyPortInvalidated; // on the main queue
        std::function<void()> hostPortCreated;                  // on the looking-up thread
    };
    explicit PortDirectory(Callbacks callbacks) : callbacks_(std::move(callbacks)) {}

    /// The port to the host of this domain; none for the default domain and when the host is absent. Looking for an
    /// absent host blocks the calling thread for 10 times 0.25 seconds. One lookup at a time creates a domain's ports:
    /// further callers wait for its result; other domains are not held up.
    std::shared_ptr<RemotePort> port(const std::string& domain, const std::string& replyPortWord);

    /// True while the port is the host port of some domain.
    bool holds(const RemotePort& port) const;
    bool isReachable(const std::string& domain) const;
    bool hasHostPort() const;
    /// Drops every host port, or reply port, that is this one.
    void forgetHostPort(const MessagePort& port);
    void forgetReplyPort(const MessagePort& port);

private:
    struct State {
        std::map<std::string, std::shared_ptr<RemotePort>> machPorts;      // to the host
        std::map<std::string, std::shared_ptr<LocalPort>> remoteMachPorts; // the extension's own, for replies
        std::map<std::string, std::shared_future<std::shared_ptr<RemotePort>>> lookups; // in progress
    };
    std::shared_ptr<RemotePort> create(const std::string& domain, const std::string& replyPortWord);
    void openReplyPort(const std::string& domain, const std::string& name);

    const Callbacks callbacks_;
    Guarded<State> state_;
};

} // namespace brindlemar
