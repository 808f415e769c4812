// The head of every packet between message ports, and the rules that make a packet acceptable. No input or output.
// The wire contract is docs/port-protocol.md.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <variant>

namespace brindlemar {

inline constexpr std::uint8_t kPortProtocolVersion = 1;
inline constexpr std::size_t kFrameHeaderSize = 16;
/// Bytes; a longer body travels in a sealed memfd.
inline constexpr std::size_t kInlineBodyLimit = 65'536;
/// Bytes: 1.5 GiB.
inline constexpr std::uint64_t kBodyLimit = 1'610'612'736;

enum class FrameKind : std::uint8_t { hello = 1, message = 2, answer = 3 };

struct FrameHeader {
    FrameKind kind = FrameKind::message;
    bool answerWanted = false;
    bool bodyInDescriptor = false;
    std::int32_t msgid = 0;
    std::uint64_t bodyLength = 0;

    bool operator==(const FrameHeader&) const = default;
};

std::array<char, kFrameHeaderSize> encodeHeader(const FrameHeader& header);

struct Frame {
    FrameHeader header;
    std::string_view body; // what came inline, a view into the packet
};
/// Why a packet is refused: a text for the log, living for ever.
using FrameFault = std::string_view;

/// Judges one whole packet by the rules of the contract, as far as they can be seen without looking at the descriptor.
/// `expected` is the only kind that the packet may have at this point of the conversation.
std::variant<Frame, FrameFault> decodeFrame(std::string_view packet, std::size_t descriptors, FrameKind expected);

} // namespace brindlemar
