// One sender's connection to a local port.
#pragma once

#include "linux/ports/PortContext.h"

#include <atomic>
#include <deque>

namespace brindlemar {

class SocketLocalPort;

/// Expects a hello with the port's name in time, repeats it, then hands messages to the port. A packet that breaks the
/// rules closes this connection and no other.
class AcceptedConnection final : public PortPoller::Client, public std::enable_shared_from_this<AcceptedConnection> {
public:
    AcceptedConnection(std::shared_ptr<PortContext> context, std::weak_ptr<SocketLocalPort> port, FileDescriptor socket)
        : context_(std::move(context)), port_(std::move(port)), socket_(std::move(socket)) {}
    ~AcceptedConnection() override { context_->poller.remove(socket_.get()); }

    int descriptor() const { return socket_.get(); }
    /// On the poller's thread. False when the system refuses to watch the connection.
    bool start();
    /// On any thread; never blocks. What the peer does not take at once waits for it, up to a limit that closes the
    /// connection.
    void answer(std::int32_t msgid, std::optional<std::string> text);

    /// Closes the connection, whose sender notices, and logs why.
    void fail(std::string_view why);

    void ready(PacketReader& reader) override;
    void timeUp() override;
    void failed(const char* why) override;

    // Kept by the port, on the poller's thread.
    pid_t process = 0;                       // the sender's
    std::pair<bool, std::uint64_t> standing; // whether it has sent a message, and the order of the last ones

private:
    struct Answer {
        Payload body;
        OutgoingPacket packet; // a view of the body
    };
    struct Outbox {
        std::deque<Answer> waiting;
        bool full = false; // the socket's queue is: the poller tells when there is room
    };
    /// False when the connection was closed instead.
    bool greet(SocketLocalPort& port, const Received& hello);
    void sendWaiting();
    void close(SocketLocalPort& port, std::string_view why = {});

    const std::shared_ptr<PortContext> context_;
    const std::weak_ptr<SocketLocalPort> port_;
    const FileDescriptor socket_;
    bool greeted_ = false; // the poller thread's
    std::atomic<bool> closed_{false};
    Guarded<Outbox> outbox_;
};

} // namespace brindlemar
