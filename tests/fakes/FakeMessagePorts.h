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
        std::int32_t status = SendStatus::success;
    };
    using Answer = std::optional<std::string>;
    /// Runs inside the sender's call, after it was recorded; the result is the answer, where one is asked for.
    using PeerHandler = std::function<Answer(const Sent&)>;

    /// The queue outlives this object and its ports.
    explicit FakeMessagePorts(Queue& mainQueue);
    ~FakeMessagePorts() override;

    std::shared_ptr<RemotePort> createRemote(std::string_view name) override;
    std::shared_ptr<LocalPort> createLocal(std::string_view name, MessageCallback callback) override;

    /// Somebody in another process listens under the name: createRemote finds it, createLocal gives none.
    void addPeer(std::string name, PeerHandler handler = {});
    /// The peer goes away: its remote port turns invalid.
    void removePeer(const std::string& name);
    /// The next `count` calls of createRemote give none.
    void failCreateRemote(int count);
    /// The next `count` calls of createLocal give none.
    void failCreateLocal(int count);
    /// The next `count` sends on valid ports do nothing but give this status.
    void failSends(int count, std::int32_t status);

    std::vector<Sent> sent() const;
    /// The names asked for with createRemote, in order, failed calls too.
    std::vector<std::string> remoteAttempts() const;

    /// A message for the local port of the name, handed over on its dispatch queue. The future holds the callback's
    /// result; it is not valid() when no valid port has the name, and broken when the port goes away first.
    std::future<Answer> inject(const std::string& name, std::int32_t msgid, std::string_view data);
    /// The valid ports of the name, or none.
    std::shared_ptr<RemotePort> remote(const std::string& name) const;
    std::shared_ptr<LocalPort> local(const std::string& name) const;
    /// Invalidates the remote and the local port of the name, as far as there are any.
    void invalidate(const std::string& name);

private:
    class Remote;
    class Local;
    struct Registry;
    std::shared_ptr<Guarded<Registry>> registry_;
    Queue& mainQueue_;
};

} // namespace brindlemar
