#include "provider/HostGate.h"

#include "messaging/BxMessages.h"

namespace brindlemar {

bool hostMayAnswer(DomainManager& manager, const std::string& connection) {
    BxMessages& messages = BxMessages::sharedInstance();
    if (connection.empty() || manager.isConnected() || messages.isReachable(connection)) return true;
    const auto probe = manager.probe(connection);
    if (!probe || !messages.port(connection)) return false;
    // The news of a host's end may have come after those of the next host's start.
    manager.reconnect([](const auto&) {});
    return true;
}

bool hostIsExpected(DomainManager& manager, const std::string& connection, Queue& tasks) {
    if (connection.empty() || manager.isConnected() || BxMessages::sharedInstance().isReachable(connection))
        return true;
    tasks.async([&manager, connection] { hostMayAnswer(manager, connection); });
    return false;
}

} // namespace brindlemar
