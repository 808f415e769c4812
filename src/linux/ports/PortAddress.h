// Where the socket of a named port lies.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <string>
#include <string_view>

namespace brindlemar {

class RuntimeDirectory;

/// The name of the socket file inside the run-time directory: the end of the port's name made harmless, "~", and the
/// 64-bit FNV-1a hash of the whole name. A function of the name alone; names that share a file are told apart by the
/// hello.
std::string portFileName(std::string_view portName);

/// A file of the run-time directory as a socket address (unix(7)).
struct PortAddress {
    PortAddress(const RuntimeDirectory& directory, const std::string& file);
    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&address); }
    static constexpr socklen_t size = sizeof(sockaddr_un);

    sockaddr_un address{};
};

} // namespace brindlemar
