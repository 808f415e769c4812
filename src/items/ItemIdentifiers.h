// Item identifiers and connection records, taken apart. Pure: value in, value out.
#pragma once

#include "support/DefaultDomain.h"
#include "support/TextForms.h"

#include <string>
#include <string_view>
#include <vector>

namespace brindlemar {

/// The host's identifier of a domain's top folder.
inline constexpr std::string_view kHostRootID = "0";

/// An identifier's domain and the host's own item ID. Views into the identifier.
struct ResolvedIdentifier {
    std::string_view domain;
    std::string_view itemID;
    bool qualified = false; // "domain|itemID"
    bool operator==(const ResolvedIdentifier&) const = default;
};
ResolvedIdentifier resolveIdentifier(std::string_view identifier);

/// A connection record, "display name|domain".
struct Connection {
    std::string_view name;
    std::string_view domain;
};
/// The record split with empty pieces kept; none without a second piece.
std::optional<Connection> parseConnection(std::string_view record);

/// The domains of the records, in order: the second piece of each with empty pieces dropped; a record without one
/// contributes nothing.
std::vector<std::string> connectedDomains(const std::vector<std::string>& connections);

/// Key of an item or a container in the item caches.
inline std::string cacheKey(std::string_view domain, std::string_view itemID) {
    return std::string(domain).append("-").append(itemID);
}

} // namespace brindlemar
