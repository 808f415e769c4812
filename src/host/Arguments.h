// What the host's command line says about the connections to serve.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace brindlemar::host {

/// One directory that is offered as a connection.
struct Connection {
    std::string name;   // as shown to the user; fit for a file name, unique, without '|'
    std::string domain; // identifies the connection to the extension; unique, without '|'
    std::string directory;

    /// "NAME|DOMAIN", as the extension takes it.
    std::string record() const { return name + "|" + domain; }
};

/// A sentence that says what is wrong, in which argument, and what to do.
struct ArgumentError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Reads arguments "NAME=DIRECTORY" and "NAME:DOMAIN=DIRECTORY". Domains that are not given are made from the names.
/// Does not look at the directories. Throws ArgumentError.
std::vector<Connection> parseConnections(const std::vector<std::string>& arguments);

/// Lowercase letters and digits of the name, other runs as one '-': "Work Files" gives "work-files".
std::string domainFromName(std::string_view name);

} // namespace brindlemar::host
