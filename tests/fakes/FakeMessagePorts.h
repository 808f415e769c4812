// Message ports inside one process, without sockets: they record what is sent and do what the test says.
#pragma once

#include "platform/MessagePort.h"
#include "support/Guarded.h"

#include <future>
#include <map>
#include <vector>

namespace brindlemar {

/// Thread-safe. A remote port can be created for a peer that the test added, or for a local port of this object.
class FakeMessagePorts final : public MessagePorts {
public:
    /// One sendRequest, as it was called, whatever its status.
    struct Sent {
        std::string port;
        std::int32_t msgid = 0;
        std::string data;
        std::chrono::nanoseconds sendTimeout{};
        std::optional<std::chrono::nanoseconds> receiveTimeout{};
    };
    using Answer = std::optional<std::string>;
    using PeerHandler = std::function<void(const Sent&)>; // runs inside the sender's call

    /// The queue outlives this object and its ports.
    explicit FakeMessagePorts(Queue& mainQueue);
    ~FakeMessagePorts() override;

    std::shared_ptr<RemotePort> createRemote(std::string_view name) override;
    std::shared_ptr<LocalPort> createLocal(std::string_view name, MessageCallback callback) override;

    /// Somebody in another process listens under the name: createRemote finds it, createLocal gives none.
    void addPeer(
        const std::string& name, PeerHandler handler = [](const Sent&) {});
    /// The peer goes away: its remote port turns invalid.
    void removePeer(const std::string& name);
    /// The next `count` calls of createRemote give none.
    void failCreateRemote(int count);
    /// The next `count` sends on valid ports do nothing but give this status.
    void failSends(int count, std::int32_t status);

    std::vector<Sent> sent() const;
    /// How often createRemote was called, failed calls too.
    int remoteAttempts() const;

    /// A message for the local port of the name, handed over on its dispatch queue. The future holds the callback's
    /// result.
    std::future<Answer> inject(const std::string& name, std::int32_t msgid, std::string_view data);
    /// The valid local port of the name, or none.
    std::shared_ptr<LocalPort> local(const std::string& name) const;

private:
    class Remote;
    class Local;
    struct Registry;
    const std::shared_ptr<Guarded<Registry>> registry_;
    Queue& mainQueue_;
};

} // namespace brindlemar
