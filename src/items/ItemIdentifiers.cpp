#include "items/ItemIdentifiers.h"

namespace brindlemar {

ResolvedIdentifier resolveIdentifier(std::string_view identifier) {
    const std::size_t bar = identifier.find('|');
    if (bar == std::string_view::npos) return {kDefaultDomain, identifier, false};
    const std::string_view rest = identifier.substr(bar + 1);
    return {identifier.substr(0, bar), rest.substr(0, rest.find('|')), true};
}

std::optional<Connection> parseConnection(std::string_view record) {
    const auto pieces = split(record, '|');
    if (pieces.size() < 2) return std::nullopt;
    return Connection{pieces[0], pieces[1]};
}

std::vector<std::string> connectedDomains(const std::vector<std::string>& connections) {
    std::vector<std::string> domains;
    for (const std::string& record : connections) {
        auto pieces = split(record, '|');
        std::erase(pieces, "");
        if (pieces.size() >= 2) domains.emplace_back(pieces[1]);
    }
    return domains;
}

} // namespace brindlemar
