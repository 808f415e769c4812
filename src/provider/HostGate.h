// Whether a request to a connection's host is worth the wait.
#pragma once

#include "platform/Queue.h"
#include "provider/DomainRegistry.h"

namespace brindlemar {

/// While the domain is disconnected, one caller at a time looks whether a connection's host is back, which may take
/// 2.5 seconds; the others are told at once that it is not.
bool hostMayAnswer(DomainManager& manager, const std::string& connection);

/// The same for those who cannot wait at all: while the domain is disconnected somebody else looks, on the queue.
bool hostIsExpected(DomainManager& manager, const std::string& connection, Queue& tasks);

} // namespace brindlemar
