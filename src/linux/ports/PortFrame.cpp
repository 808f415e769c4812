#include "linux/ports/PortFrame.h"

namespace brindlemar {

namespace {

constexpr unsigned kAnswerWanted = 1, kBodyInDescriptor = 2;

// Byte positions.
constexpr std::size_t kVersion = 0, kKind = 1, kFlags = 2, kZero = 3, kMessageID = 4, kBodyLength = 8;

void put(char* bytes, std::uint64_t value, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) bytes[i] = static_cast<char>(value >> (8 * i));
}

std::uint64_t get(std::string_view bytes, std::size_t position, std::size_t count) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < count; ++i)
        value |= std::uint64_t{static_cast<unsigned char>(bytes[position + i])} << (8 * i);
    return value;
}

} // namespace

std::array<char, kFrameHeaderSize> encodeHeader(const FrameHeader& header) {
    std::array<char, kFrameHeaderSize> bytes{};
    bytes[kVersion] = kPortProtocolVersion;
    bytes[kKind] = static_cast<char>(header.kind);
    bytes[kFlags] = static_cast<char>((header.answerWanted ? kAnswerWanted : 0) |
                                      (header.bodyInDescriptor ? kBodyInDescriptor : 0));
    put(&bytes[kMessageID], static_cast<std::uint32_t>(header.msgid), 4);
    put(&bytes[kBodyLength], header.bodyLength, 8);
    return bytes;
}

std::variant<Frame, FrameFault> decodeFrame(std::string_view packet, std::size_t descriptors, FrameKind expected) {
    if (packet.size() < kFrameHeaderSize) return FrameFault("shorter than a header");
    if (get(packet, kVersion, 1) != kPortProtocolVersion) return FrameFault("of another protocol version");
    if (get(packet, kKind, 1) != static_cast<std::uint8_t>(expected))
        return FrameFault("not of the kind expected here");
    const auto flags = get(packet, kFlags, 1);
    if (flags & ~std::uint64_t{kAnswerWanted | kBodyInDescriptor}) return FrameFault("with unknown flags");
    if (get(packet, kZero, 1) != 0) return FrameFault("with a reserved byte that is not zero");

    Frame frame;
    frame.header = {.kind = expected,
                    .answerWanted = (flags & kAnswerWanted) != 0,
                    .bodyInDescriptor = (flags & kBodyInDescriptor) != 0,
                    .msgid = static_cast<std::int32_t>(get(packet, kMessageID, 4)),
                    .bodyLength = get(packet, kBodyLength, 8)};
    frame.body = packet.substr(kFrameHeaderSize);
    const FrameHeader& header = frame.header;
    if (header.answerWanted && expected != FrameKind::message) return FrameFault("that cannot want an answer but does");
    if (expected == FrameKind::hello && header.msgid != 0) return FrameFault("a hello with a message id");
    if (descriptors != (header.bodyInDescriptor ? 1 : 0)) return FrameFault("with too few or too many descriptors");
    if (header.bodyInDescriptor) {
        if (!frame.body.empty()) return FrameFault("with a body both inline and in a descriptor");
        if (header.bodyLength == 0 || header.bodyLength > kBodyLimit) return FrameFault("with an absurd body length");
    } else {
        if (header.bodyLength != frame.body.size()) return FrameFault("with a body length that is not its body's");
        if (header.bodyLength > kInlineBodyLimit) return FrameFault("with too long an inline body");
    }
    return frame;
}

} // namespace brindlemar
