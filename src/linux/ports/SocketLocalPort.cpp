#include "linux/ports/SocketLocalPort.h"

#include "linux/Crowd.h"
#include "linux/ports/AcceptedConnection.h"
#include "linux/ports/PortAddress.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>

namespace brindlemar {

namespace {
constexpr int kBatch = 64; // connections accepted before other ports get their turn
constexpr std::size_t kMostConnections = 128;
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
        } else if (errno == EAGAIN || errno == EINVAL) { // none waits, or the port has left its place meanwhile
            break;
        } else if (errno != EINTR && errno != ECONNABORTED) {
            return pauseAccepting(std::strerror(errno));
        }
    }
    pausing_ = false;
}

/// Out of descriptors or memory: the connection stays readable, so look away for a while.
void SocketLocalPort::pauseAccepting(const char* why) {
    context_->poller.watch(place_->socket(), false, false);
    context_->poller.wakeAt(place_->socket(), deadlineAfter(kAcceptPause));
    if (!std::exchange(pausing_, true)) context_->diagnose(file_, std::string("cannot accept a connection: ") + why);
}

void SocketLocalPort::timeUp() { context_->poller.watch(place_->socket(), true, false); }

void SocketLocalPort::adopt(FileDescriptor socket) {
    if (!peerIsSameUser(socket.get()))
        return context_->diagnose(file_, "refused a connection: its sender belongs to another user");
    const auto self = std::static_pointer_cast<SocketLocalPort>(shared_from_this());
    const auto connection = std::make_shared<AcceptedConnection>(context_, self, std::move(socket));
    connection->process = peerProcess(connection->descriptor());
    connection->standing = {false, ++moment_};
    std::shared_ptr<AcceptedConnection> last; // gives way
    const bool adopted = listening_.with([&](Listening& listening) {
        auto& all = listening.connections;
        if (listening.over) return false;
        if (all.size() >= kMostConnections)
            last = lastOfTheCrowd(
                       all.begin(), all.end(), [](const auto& entry) { return entry.second->process; },
                       [](const auto& entry) { return entry.second->standing; })
                       ->second;
        all.emplace(connection->descriptor(), connection);
        return true;
    });
    if (adopted && !connection->start()) forget(connection->descriptor());
    if (last) last->fail("there are too many, and its sender has been silent longest");
}

void SocketLocalPort::arrived(const std::shared_ptr<AcceptedConnection>& from, Received message) {
    from->standing = {true, ++moment_};
    Message waiting{message.header.msgid, std::move(message.body)};
    if (message.header.answerWanted)
        waiting.answer = [from = std::weak_ptr(from), msgid = message.header.msgid](std::optional<std::string> text) {
            if (const auto connection = from.lock()) connection->answer(msgid, std::move(text));
        };
    deliver(std::move(waiting));
}

void SocketLocalPort::forget(int connection) {
    listening_.with([&](Listening& listening) { return listening.connections.extract(connection); });
}

} // namespace brindlemar
