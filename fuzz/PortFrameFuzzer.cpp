// Any bytes as a packet: whatever is accepted keeps every rule and is what its own parts encode to.
#include "linux/ports/PortFrame.h"

#include <cstdlib>
#include <string>

using namespace brindlemar;

namespace {

void require(bool condition) {
    if (!condition) std::abort();
}

void check(const Frame& frame, std::string_view packet, std::size_t descriptors, FrameKind expected) {
    const FrameHeader& header = frame.header;
    const auto head = encodeHeader(header);
    require(std::string(head.data(), head.size()) + std::string(frame.body) == packet);
    require(header.kind == expected);
    require(header.bodyInDescriptor == (descriptors == 1) && descriptors <= 1);
    require(!header.answerWanted || expected == FrameKind::message);
    if (header.bodyInDescriptor)
        require(frame.body.empty() && header.bodyLength > 0 && header.bodyLength <= kBodyLimit);
    else
        require(frame.body.size() == header.bodyLength && header.bodyLength <= kInlineBodyLimit);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view packet(reinterpret_cast<const char*>(data), size);
    for (const FrameKind expected : {FrameKind::hello, FrameKind::message, FrameKind::answer})
        for (std::size_t descriptors = 0; descriptors < 3; ++descriptors) {
            const auto judged = decodeFrame(packet, descriptors, expected);
            if (const auto* frame = std::get_if<Frame>(&judged))
                check(*frame, packet, descriptors, expected);
            else
                require(!std::get<FrameFault>(judged).empty());
        }
    return 0;
}
