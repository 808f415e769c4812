#include "host/Arguments.h"

#include "support/Utf8.h"

#include <algorithm>

namespace brindlemar::host {

namespace {
/// The extension's own name for what belongs to no connection.
constexpr std::string_view kReservedDomain = "brindlemar";
constexpr std::size_t kLongestName = 255; // bytes of a file name

bool hasControlCharacter(std::string_view text) {
    return std::any_of(text.begin(), text.end(), [](unsigned char c) { return c < 0x20 || c == 0x7f; });
}

/// What makes the text unfit to name anything; empty when it is fit.
std::string faultOf(std::string_view text) {
    if (text.empty()) return "is empty";
    if (!isValidUtf8(text)) return "is not UTF-8";
    if (hasControlCharacter(text)) return "holds a control character";
    if (text.find_first_of("|/") != std::string_view::npos) return "holds a \"|\" or a \"/\"";
    if (text == "." || text == ".." || text.size() > kLongestName) return "cannot be the name of a folder";
    return {};
}

Connection parse(const std::string& argument, const std::string& where) {
    const auto equals = argument.find('=');
    if (equals == std::string::npos)
        throw ArgumentError(where + "has no \"=\". Write NAME=DIRECTORY, for example Work=/home/me/work.");
    Connection connection{argument.substr(0, equals), "", argument.substr(equals + 1)};
    if (const auto colon = connection.name.rfind(':'); colon != std::string::npos) {
        connection.domain = connection.name.substr(colon + 1);
        connection.name.resize(colon);
        if (const std::string fault = faultOf(connection.domain); !fault.empty())
            throw ArgumentError(where + "the domain after \":\" " + fault + ". Leave it out, or choose another.");
        if (connection.domain == kReservedDomain)
            throw ArgumentError(where + "the domain \"brindlemar\" is reserved. Leave it out, or choose another.");
    }
    if (const std::string fault = faultOf(connection.name); !fault.empty())
        throw ArgumentError(where + "the name before \"=\" " + fault + ". Choose another.");
    if (connection.directory.empty())
        throw ArgumentError(where + "there is no directory after \"=\". Write NAME=DIRECTORY.");
    return connection;
}

bool isTaken(const std::vector<Connection>& connections, const std::string& domain) {
    return domain == kReservedDomain || std::any_of(connections.begin(), connections.end(),
                                                    [&](const Connection& other) { return other.domain == domain; });
}
} // namespace

std::string domainFromName(std::string_view name) {
    std::string domain;
    for (const char c : name) {
        if (c >= 'A' && c <= 'Z')
            domain.push_back(static_cast<char>(c - 'A' + 'a'));
        else if ((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9'))
            domain.push_back(c);
        else if (!domain.empty() && domain.back() != '-')
            domain.push_back('-');
    }
    if (domain.ends_with('-')) domain.pop_back();
    return domain.empty() ? "connection" : domain;
}

std::vector<Connection> parseConnections(const std::vector<std::string>& arguments) {
    std::vector<Connection> connections;
    for (const std::string& argument : arguments) {
        const std::string where = "Argument " + std::to_string(connections.size() + 1) + ", \"" + argument + "\": ";
        Connection connection = parse(argument, where);
        for (const Connection& other : connections) {
            if (other.name == connection.name)
                throw ArgumentError(where + "the name \"" + other.name + "\" was given before. Choose another.");
            if (!connection.domain.empty() && other.domain == connection.domain)
                throw ArgumentError(where + "the domain \"" + other.domain + "\" was given before. Choose another.");
        }
        connections.push_back(std::move(connection));
    }
    for (Connection& connection : connections) {
        if (!connection.domain.empty()) continue;
        const std::string base = domainFromName(connection.name);
        std::string domain = base;
        for (int number = 2; isTaken(connections, domain); ++number) domain = base + "-" + std::to_string(number);
        connection.domain = std::move(domain);
    }
    return connections;
}

} // namespace brindlemar::host
