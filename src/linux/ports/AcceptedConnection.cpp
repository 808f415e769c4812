#include "linux/ports/AcceptedConnection.h"

#include "linux/ports/SocketLocalPort.h"

#include <sys/socket.h>

#include <cerrno>

namespace brindlemar {

namespace {
constexpr std::size_t kMostWaitingAnswers = 16'384;
constexpr std::chrono::milliseconds kShortOfMemory{50}; // until the next attempt

bool isGone(int error) { return error == EPIPE || error == ECONNRESET || error == ENOTCONN; }
} // namespace

bool AcceptedConnection::start() {
    if (!context_->poller.add(socket_.get(), weak_from_this())) return false;
    context_->poller.wakeAt(socket_.get(), deadlineAfter(context_->helloLimit));
    return true;
}

void AcceptedConnection::ready(PacketReader& reader) {
    const auto port = port_.lock();
    if (!port) return;
    sendWaiting();
    reader.take(socket_.get());
    for (;;) {
        Received received = reader.next(greeted_ ? FrameKind::message : FrameKind::hello);
        switch (received.state) {
        case Received::State::packet:
            if (greeted_)
                port->arrived(shared_from_this(), std::move(received));
            else if (!greet(*port, received))
                return;
            break;
        case Received::State::nothing:
            return;
        case Received::State::ended:
            close(*port);
            return;
        case Received::State::refused:
            close(*port, "a sender's packet " + std::string(received.fault));
            return;
        }
    }
}

bool AcceptedConnection::greet(SocketLocalPort& port, const Received& hello) {
    context_->poller.wakeAt(socket_.get(), {});
    greeted_ = true;
    std::string_view fault;
    if (hello.body.bytes() != port.name()) {
        fault = "a sender looks for another name";
    } else {
        const auto reply = makePacket({.kind = FrameKind::hello}, port.name());
        if (!reply || sendPacket(socket_.get(), *reply) != 0) fault = "a sender takes no hello";
    }
    if (!fault.empty()) close(port, fault);
    return fault.empty();
}

void AcceptedConnection::timeUp() {
    if (greeted_)
        sendWaiting();
    else
        fail("a sender stays silent");
}

void AcceptedConnection::failed(const char* why) { fail(why); }

void AcceptedConnection::close(SocketLocalPort& port, std::string_view why) {
    if (closed_.exchange(true)) return;
    context_->poller.remove(socket_.get());
    ::shutdown(socket_.get(), SHUT_RDWR);
    port.forget(socket_.get());
    if (!why.empty()) context_->diagnose(port.file(), "closed a connection: " + std::string(why));
}

void AcceptedConnection::answer(std::int32_t msgid, std::optional<std::string> text) {
    if (closed_) return;
    Answer answer{text ? Payload::of(*std::move(text)) : Payload(), {}};
    auto packet = makePacket({.kind = FrameKind::answer, .msgid = msgid}, answer.body.bytes());
    if (!packet) return fail("an answer is too long, or there is no memory for it");
    answer.packet = *std::move(packet);
    const bool fits = outbox_.with([&](Outbox& outbox) {
        outbox.waiting.push_back(std::move(answer));
        return outbox.waiting.size() <= kMostWaitingAnswers;
    });
    if (!fits) return fail("a sender does not read its answers");
    sendWaiting();
}

void AcceptedConnection::fail(std::string_view why) {
    if (const auto port = port_.lock()) close(*port, why);
}

void AcceptedConnection::sendWaiting() {
    outbox_.with([&](Outbox& outbox) {
        int error = 0;
        while (!outbox.waiting.empty() && (error = sendPacket(socket_.get(), outbox.waiting.front().packet)) == 0)
            outbox.waiting.pop_front();
        const bool full = error == EAGAIN;
        if (std::exchange(outbox.full, full) != full) context_->poller.watch(socket_.get(), true, full);
        if (isGone(error))
            outbox.waiting.clear(); // the poller comes upon the end, behind what the sender had sent before it
        else if (error != 0 && !full)
            context_->poller.wakeAt(socket_.get(), deadlineAfter(kShortOfMemory));
    });
}

} // namespace brindlemar
