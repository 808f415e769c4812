#include "linux/ports/SocketLocalPort.h"

#include "linux/ports/AcceptedConnection.h"
#include "linux/ports/PortAddress.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>

namespace brindlemar {

namespace {
constexpr int kBatch = 64; // connections accepted before other ports get their turn
constexpr auto kAcceptPause = std::chrono::milliseconds(100);
} // namespace

std::shared_ptr<SocketLocalPort> SocketLocalPort::listen(std::shared_ptr<PortContext> context, std::string_view name,
                                                         const MessageCallback& callback) {
    std::string file = portFileName(name);
    auto place = PortPlace::take(*context, file);
    if (!place) return nullptr;
    std::shared_ptr<SocketLocalPort> port(
        new SocketLocalPort(std::move(context), name, std::move(file), std::move(place), callback));
    if (port->context_->poller.add(port->place_->socket(), port)) return port;
    port->context_->diagnose(port->file_, "the system has no room to watch it");
    return nullptr;
}

SocketLocalPort::SocketLocalPort(std::shared_ptr<PortContext> context, std::string_view name, std::string file,
                                 std::unique_ptr<PortPlace> place, const MessageCallback& callback)
    : QueuedLocalPort(context->mainQueue, callback), context_(std::move(context)), name_(name), file_(std::move(file)),
      place_(std::move(place)) {}

void SocketLocalPort::stopListening() {
    decltype(Listening::connections) closing;
    const bool over = listening_.with([&](Listening& listening) {
        closing.swap(listening.connections);
        return std::exchange(listening.over, true);
    });
    if (over) return;
    context_->poller.remove(place_->socket());
    place_->leave();
    // Whoever still holds a connection must not keep its sender waiting.
    for (const auto& [descriptor, connection] : closing) ::shutdown(descriptor, SHUT_RDWR);
}

void SocketLocalPort::ready(PacketReader&) {
    for (int i = 0; i < kBatch; ++i) {
        FileDescriptor socket(::accept4(place_->socket(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (socket) {
            adopt(std::move(socket));
        } else if (errno == EAGAIN) {
            break;
        } else if (errno != EINTR && errno != ECONNABORTED) {
            // Out of descriptors or memory: the connection stays readable, so look away for a while.
            if (!std::exchange(pausing_, true))
                context_->diagnose(file_, std::string("cannot accept a connection: ") + std::strerror(errno));
            context_->poller.watch(place_->socket(), false, false);
            context_->poller.wakeAt(place_->socket(), deadlineAfter(kAcceptPause));
            return;
        }
    }
    pausing_ = false;
}

void SocketLocalPort::timeUp() { context_->poller.watch(place_->socket(), true, false); }

void SocketLocalPort::adopt(FileDescriptor socket) {
    if (!peerIsSameUser(socket.get()))
        return context_->diagnose(file_, "refused a connection: its sender belongs to another user");
    const auto self = std::static_pointer_cast<SocketLocalPort>(shared_from_this());
    const auto connection = std::make_shared<AcceptedConnection>(context_, self, std::move(socket));
    const bool adopted = listening_.with([&](Listening& listening) {
        if (!listening.over) listening.connections.emplace(connection->descriptor(), connection);
        return !listening.over;
    });
    if (adopted && !connection->start()) forget(connection->descriptor());
}

void SocketLocalPort::arrived(std::weak_ptr<AcceptedConnection> from, Received message) {
    Message waiting{message.header.msgid, std::move(message.body)};
    if (message.header.answerWanted)
        waiting.answer = [from = std::move(from), msgid = message.header.msgid](std::optional<std::string> text) {
            if (const auto connection = from.lock()) connection->answer(msgid, std::move(text));
        };
    deliver(std::move(waiting));
}

void SocketLocalPort::forget(int connection) {
    listening_.with([&](Listening& listening) { return listening.connections.extract(connection); });
}

} // namespace brindlemar
