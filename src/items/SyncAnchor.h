// Anchors of change enumerations: fresh random tokens, for no history is kept.
#pragma once

#include "platform/Enumerator.h"

#include <string>

namespace brindlemar {

/// Letters and digits of ASCII, drawn independently and uniformly from the system's random source.
std::string randomString(std::size_t length);

/// A new anchor, of five characters.
NSFileProviderSyncAnchor newSyncAnchor();

} // namespace brindlemar
