// Whole packets on a connected socket of the message ports (SOCK_SEQPACKET, unix(7)).
#pragma once

#include "linux/ports/PortBody.h"
#include "linux/ports/PortFrame.h"

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

/// Takes packets off sockets, never blocking, several in one system call. Used by one thread at a time.
class PacketReader {
public:
    /// `most`: packets taken at once.
    explicit PacketReader(std::size_t most);
    ~PacketReader();
    PacketReader(const PacketReader&) = delete;
    PacketReader& operator=(const PacketReader&) = delete;

    /// Takes what waits, after discard().
    void take(int socket);
    /// The next of the packets taken, judged and with its body. Whatever descriptors came with a refused one are
    /// closed.
    Received next(FrameKind expected);
    /// Drops the packets that nobody looked at and closes their descriptors.
    void discard();

private:
    struct Slots;
    const std::unique_ptr<Slots> slots_;
};

} // namespace brindlemar
