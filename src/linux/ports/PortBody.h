// Bodies too long for a packet: sealed memory files (memfd_create(2)), passed along with it.
#pragma once

#include "linux/FileDescriptor.h"
#include "linux/ports/PortFrame.h"
#include "platform/MessagePort.h"

namespace brindlemar {

/// A memory file with these bytes that can no longer shrink, grow or be written. None when there is no memory or no
/// descriptor left; errno says which.
FileDescriptor sealBody(std::string_view bytes);

/// The sender's bytes, mapped read-only for as long as the payload lives, or copied when they are few; the descriptor
/// is closed at once. Refused unless it is a memory file sealed so that the sender can neither change the bytes nor
/// take them away, and holds `length` bytes; refused too when 4,096 such payloads are alive in this process.
std::variant<Payload, FrameFault> takeBody(FileDescriptor descriptor, std::uint64_t length);

} // namespace brindlemar
