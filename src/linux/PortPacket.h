// Whole packets on a connected socket of the message ports (SOCK_SEQPACKET, unix(7)).
#pragma once

#include "linux/PortBody.h"
#include "linux/PortFrame.h"

#include <memory>
#include <optional>

namespace brindlemar {

/// A packet ready to be sent, as often as it takes. `body` must outlive it.
struct OutgoingPacket {
    std::array<char, kFrameHeaderSize> head{};
    std::string_view inlineBody;
    FileDescriptor memory; // holds the body when it is not inline
};

/// Chooses how the body travels; the header's length and descriptor flag are filled in here. None when the body is too
/// long or there is no memory for it.
std::optional<OutgoingPacket> makePacket(FrameHeader header, std::string_view body);

/// One attempt that never blocks and never raises SIGPIPE: 0, or the errno of send(2). The packet is queued whole or
/// not at all.
int sendPacket(int socket, const OutgoingPacket& packet);

struct Received {
    enum class State {
        packet,
        nothing, // none waits
        ended,   // the peer has closed, and all it sent has been read
        refused, // a packet broke the rules: the connection is to be closed
    };
    State state = State::nothing;
    FrameHeader header{};
    Payload body{};
    FrameFault fault{};
};

/// Takes packets off non-blocking sockets. Used by one thread at a time.
class PacketReader {
public:
    /// The next packet, judged and with its body. Whatever descriptors came with a refused one are closed.
    Received next(int socket, FrameKind expected);

private:
    static constexpr std::size_t kRoom = kFrameHeaderSize + kInlineBodyLimit;
    const std::unique_ptr<char[]> buffer_ = std::make_unique<char[]>(kRoom);
};

} // namespace brindlemar
