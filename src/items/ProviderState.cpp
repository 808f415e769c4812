#include "items/ProviderState.h"

#include <algorithm>

namespace brindlemar {

bool ProviderState::isConnected(std::string_view domain) const {
    const auto domains = connectedDomains();
    return std::ranges::find(domains, domain) != domains.end();
}

} // namespace brindlemar
