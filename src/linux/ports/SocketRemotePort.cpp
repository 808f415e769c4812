#include "linux/ports/SocketRemotePort.h"

#include "linux/ports/PortAddress.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>
#include <cstring>

namespace brindlemar {

namespace {

short waitFor(int socket, short events, int milliseconds) {
    pollfd entry{socket, events, 0};
    return ::poll(&entry, 1, milliseconds) > 0 ? entry.revents : short{0};
}

/// A blocking connect(2) waits for a full backlog; the limit makes it give up.
FileDescriptor connectSocket(const PortContext& context, const std::string& file) {
    FileDescriptor socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    if (!socket) return {};
    const auto limit = std::chrono::duration_cast<std::chrono::microseconds>(context.helloLimit).count();
    const timeval time{.tv_sec = limit / 1'000'000, .tv_usec = limit % 1'000'000};
    ::setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &time, sizeof time);
    const PortAddress address(context.directory, file);
    if (::connect(socket.get(), address.get(), address.size) != 0) return {};
    if (::fcntl(socket.get(), F_SETFL, O_NONBLOCK) != 0) return {};
    return socket;
}

/// Nothing when the hellos were exchanged, else what went wrong.
std::string exchangeHellos(int socket, std::string_view name, Deadline deadline) {
    const auto hello = makePacket({.kind = FrameKind::hello}, name);
    if (!hello || sendPacket(socket, *hello) != 0) return "its listener takes no hello";
    PacketReader reader(1);
    for (;;) {
        reader.take(socket);
        const auto received = reader.next(FrameKind::hello);
        switch (received.state) {
        case Received::State::packet:
            return received.body.bytes() == name ? "" : "its listener has another name";
        case Received::State::ended:
            return "its listener closed instead of a hello";
        case Received::State::refused:
            return "its listener sent a packet " + std::string(received.fault);
        case Received::State::nothing:
            const int left = millisecondsUntil(deadline);
            if (left == 0) return "its listener stays silent";
            waitFor(socket, POLLIN, left);
        }
    }
}

} // namespace

std::shared_ptr<SocketRemotePort> SocketRemotePort::connect(std::shared_ptr<PortContext> context,
                                                            std::string_view name) {
    const Deadline deadline = deadlineAfter(context->helloLimit);
    std::string file = portFileName(name);
    FileDescriptor socket = connectSocket(*context, file);
    if (!socket) {
        if (errno != ENOENT && errno != ECONNREFUSED)
            context->diagnose(file, std::string("cannot be connected: ") + std::strerror(errno));
        return nullptr;
    }
    const std::string fault = peerIsSameUser(socket.get()) ? exchangeHellos(socket.get(), name, deadline)
                                                           : "its listener belongs to another user";
    if (!fault.empty()) {
        context->diagnose(file, fault);
        return nullptr;
    }
    std::shared_ptr<SocketRemotePort> port(
        new SocketRemotePort(std::move(context), std::move(file), std::move(socket)));
    if (port->context_->poller.add(port->socket_.get(), port)) return port;
    port->context_->diagnose(port->file_, "the system has no room to watch it");
    return nullptr;
}

SocketRemotePort::~SocketRemotePort() { context_->poller.remove(socket_.get()); }

bool SocketRemotePort::isValid() const {
    return valid_ && (waitFor(socket_.get(), 0, 0) & (POLLHUP | POLLERR | POLLNVAL)) == 0;
}

void SocketRemotePort::setInvalidationCallback(std::function<void(MessagePort&)> callback) {
    invalidation_.set(shared_from_this(), std::move(callback));
}

void SocketRemotePort::invalidate() {
    if (!valid_.exchange(false)) return;
    context_->poller.remove(socket_.get());
    ::shutdown(socket_.get(), SHUT_RDWR);
    answers_.end();
    invalidation_.announce(shared_from_this());
}

RemotePort::Result SocketRemotePort::sendRequest(const Request& request) {
    const Deadline deadline = deadlineAfter(request.sendTimeout);
    if (!valid_) return {SendStatus::invalid};
    const auto packet =
        makePacket({.answerWanted = request.receiveTimeout.has_value(), .msgid = request.msgid}, request.data);
    if (!packet) return {SendStatus::transportError};
    if (!request.receiveTimeout) return {send(*packet, deadline)};
    PendingAnswers::Place place(answers_, request.msgid);
    const std::int32_t status = send(*packet, deadline);
    return status == SendStatus::success ? place.wait(*request.receiveTimeout) : Result{status};
}

std::int32_t SocketRemotePort::send(const OutgoingPacket& packet, Deadline deadline) {
    if (!turn_.take(stuck_ ? deadlineAfter({}) : deadline)) return SendStatus::sendTimeout;
    const std::int32_t status = sendInTurn(packet, stuck_ ? deadlineAfter({}) : deadline);
    stuck_ = status == SendStatus::sendTimeout;
    turn_.give();
    return status;
}

std::int32_t SocketRemotePort::sendInTurn(const OutgoingPacket& packet, Deadline deadline) {
    // The attempt comes first: poll(2) reports room only once most of the queue is empty.
    while (const int error = sendPacket(socket_.get(), packet)) {
        if (error != EAGAIN) return SendStatus::transportError;
        const int left = millisecondsUntil(deadline);
        if (left == 0) return SendStatus::sendTimeout;
        waitFor(socket_.get(), POLLOUT, left);
    }
    return SendStatus::success;
}

void SocketRemotePort::failed(const char* why) {
    invalidate();
    context_->diagnose(file_, std::string("closed: ") + why);
}

void SocketRemotePort::ready(PacketReader& reader) {
    reader.take(socket_.get());
    for (;;) {
        Received received = reader.next(FrameKind::answer);
        switch (received.state) {
        case Received::State::packet:
            answers_.arrived(received.header.msgid, std::move(received.body));
            break;
        case Received::State::nothing:
            return;
        case Received::State::refused:
            context_->diagnose(file_, "closed, its listener sent a packet " + std::string(received.fault));
            [[fallthrough]];
        case Received::State::ended:
            // Its process may have sent messages to our ports before: those first.
            context_->poller.remove(socket_.get());
            context_->poller.whenQuiet(weak_from_this());
            return;
        }
    }
}

} // namespace brindlemar
