// The sending end of a message port, on a connected socket.
#pragma once

#include "linux/ports/InvalidationNotice.h"
#include "linux/ports/PendingAnswers.h"
#include "linux/ports/PortContext.h"
#include "linux/ports/Turn.h"

#include <atomic>

namespace brindlemar {

/// Owned by its user: when the last reference goes away the connection closes and nobody is told. A request's
/// sendTimeout covers the wait for other senders on the same port too. Once a send has waited in vain, later ones try
/// without waiting until one succeeds: a listener that is stuck costs its senders one wait, not one each.
class SocketRemotePort final : public RemotePort,
                               public PortPoller::Client,
                               public std::enable_shared_from_this<SocketRemotePort> {
public:
    /// Connects and exchanges hellos; blocks for the hello limit at most. None when nobody listens, the listener stays
    /// silent, has another name or belongs to another user.
    static std::shared_ptr<SocketRemotePort> connect(std::shared_ptr<PortContext> context, std::string_view name);
    ~SocketRemotePort() override;

    /// Sees the peer's end even before the invalidation callback is due.
    bool isValid() const override;
    void setInvalidationCallback(std::function<void(MessagePort&)> callback) override;
    void invalidate() override;
    Result sendRequest(const Request& request) override;

    void ready(PacketReader& reader) override;
    void quiet() override { invalidate(); }
    void failed(const char* why) override;

private:
    SocketRemotePort(std::shared_ptr<PortContext> context, std::string file, FileDescriptor socket)
        : context_(std::move(context)), file_(std::move(file)), socket_(std::move(socket)),
          invalidation_(context_->mainQueue) {}
    std::int32_t send(const OutgoingPacket& packet, Deadline deadline);
    std::int32_t sendInTurn(const OutgoingPacket& packet, Deadline deadline);

    const std::shared_ptr<PortContext> context_;
    const std::string file_; // the port's socket file, for the log
    const FileDescriptor socket_;
    Turn turn_; // one sender at a time: messages stay in order
    PendingAnswers answers_;
    InvalidationNotice invalidation_;
    std::atomic<bool> valid_{true};
    std::atomic<bool> stuck_{false}; // the last send found no room in all its time
};

} // namespace brindlemar
