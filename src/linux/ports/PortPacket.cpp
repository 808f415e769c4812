#include "linux/ports/PortPacket.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <cerrno>
#include <cstring>
#include <vector>

namespace brindlemar {

namespace {

/// Ancillary data that holds one descriptor; its alignment leaves room for a second.
struct Control {
    alignas(cmsghdr) char bytes[CMSG_SPACE(sizeof(int))] = {};
};

struct Descriptors {
    std::size_t count = 0;
    FileDescriptor first;
};

Descriptors takeDescriptors(msghdr& message) {
    Descriptors taken;
    for (cmsghdr* c = CMSG_FIRSTHDR(&message); c; c = CMSG_NXTHDR(&message, c)) {
        if (c->cmsg_level != SOL_SOCKET || c->cmsg_type != SCM_RIGHTS) continue;
        for (std::size_t at = 0; at + sizeof(int) <= c->cmsg_len - CMSG_LEN(0); at += sizeof(int)) {
            int number;
            std::memcpy(&number, CMSG_DATA(c) + at, sizeof number);
            FileDescriptor descriptor(number);
            if (taken.count++ == 0) taken.first = std::move(descriptor);
        }
    }
    return taken;
}

Received refused(FrameFault fault) { return {.state = Received::State::refused, .fault = fault}; }

} // namespace

std::optional<OutgoingPacket> makePacket(FrameHeader header, std::string_view body) {
    OutgoingPacket packet;
    header.bodyLength = body.size();
    header.bodyInDescriptor = body.size() > kInlineBodyLimit;
    if (body.size() > kBodyLimit) return {};
    if (!header.bodyInDescriptor) packet.inlineBody = body;
    if (header.bodyInDescriptor && !(packet.memory = sealBody(body))) return {};
    packet.head = encodeHeader(header);
    return packet;
}

int sendPacket(int socket, const OutgoingPacket& packet) {
    iovec parts[] = {{const_cast<char*>(packet.head.data()), packet.head.size()},
                     {const_cast<char*>(packet.inlineBody.data()), packet.inlineBody.size()}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    Control control;
    if (packet.memory) {
        message.msg_control = control.bytes;
        message.msg_controllen = sizeof control.bytes;
        cmsghdr* const rights = CMSG_FIRSTHDR(&message);
        rights->cmsg_level = SOL_SOCKET;
        rights->cmsg_type = SCM_RIGHTS;
        rights->cmsg_len = CMSG_LEN(sizeof(int));
        const int descriptor = packet.memory.get();
        std::memcpy(CMSG_DATA(rights), &descriptor, sizeof descriptor);
    }
    while (::sendmsg(socket, &message, MSG_NOSIGNAL | MSG_DONTWAIT) < 0)
        if (errno != EINTR) return errno;
    return 0;
}

struct PacketReader::Slots {
    static constexpr std::size_t kRoom = kFrameHeaderSize + kInlineBodyLimit;

    explicit Slots(std::size_t most) : bytes(new char[most * kRoom]), parts(most), controls(most), messages(most) {
        for (std::size_t i = 0; i < most; ++i) {
            parts[i] = {&bytes[i * kRoom], kRoom};
            messages[i].msg_hdr.msg_iov = &parts[i];
            messages[i].msg_hdr.msg_iovlen = 1;
            messages[i].msg_hdr.msg_control = controls[i].bytes;
        }
    }

    const std::unique_ptr<char[]> bytes; // pages come with their first use
    std::vector<iovec> parts;
    std::vector<Control> controls;
    std::vector<mmsghdr> messages;
    std::size_t taken = 0, looked = 0;
    bool unreadable = false;
};

PacketReader::PacketReader(std::size_t most) : slots_(std::make_unique<Slots>(most)) {}

PacketReader::~PacketReader() { discard(); }

void PacketReader::discard() {
    for (; slots_->looked < slots_->taken; ++slots_->looked) takeDescriptors(slots_->messages[slots_->looked].msg_hdr);
}

void PacketReader::take(int socket) {
    discard();
    for (mmsghdr& message : slots_->messages) message.msg_hdr.msg_controllen = sizeof(Control);
    int count;
    do {
        count = ::recvmmsg(socket, slots_->messages.data(), static_cast<unsigned>(slots_->messages.size()),
                           MSG_DONTWAIT | MSG_CMSG_CLOEXEC, nullptr);
        // A peer that closed without reading all of ours shows as a reset first; what it had sent follows.
    } while (count < 0 && (errno == EINTR || errno == ECONNRESET));
    slots_->looked = 0;
    slots_->taken = count > 0 ? static_cast<std::size_t>(count) : 0;
    slots_->unreadable = count < 0 && errno != EAGAIN;
}

Received PacketReader::next(FrameKind expected) {
    if (slots_->unreadable) return refused("that cannot be received");
    if (slots_->looked == slots_->taken) return {};
    const mmsghdr& slot = slots_->messages[slots_->looked++];
    msghdr message = slot.msg_hdr;
    Descriptors descriptors = takeDescriptors(message);
    if (slot.msg_len == 0) return {.state = Received::State::ended};
    if (message.msg_flags & MSG_CTRUNC) return refused("with descriptors that cannot be received");
    if (message.msg_flags & MSG_TRUNC) return refused("longer than any packet may be");
    const std::string_view packet(static_cast<const char*>(message.msg_iov->iov_base), slot.msg_len);
    const auto judged = decodeFrame(packet, descriptors.count, expected);
    if (const auto* fault = std::get_if<FrameFault>(&judged)) return refused(*fault);
    const Frame& frame = std::get<Frame>(judged);
    Received received{.state = Received::State::packet, .header = frame.header};
    if (!frame.header.bodyInDescriptor) {
        received.body = Payload::copy(frame.body);
        return received;
    }
    auto body = takeBody(std::move(descriptors.first), frame.header.bodyLength);
    if (const auto* fault = std::get_if<FrameFault>(&body)) return refused(*fault);
    received.body = std::get<Payload>(std::move(body));
    return received;
}

} // namespace brindlemar
