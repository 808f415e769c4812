#include "linux/ports/PortAddress.h"

#include "linux/RuntimeDirectory.h"

#include <algorithm>
#include <cstdint>

namespace brindlemar {

namespace {

constexpr std::size_t kReadableBytes = 24;

constexpr std::uint64_t fnv1a(std::string_view text) {
    std::uint64_t hash = 0xcbf29ce484222325;
    for (const char byte : text) hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001b3;
    return hash;
}

constexpr bool harmless(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.' || c == '-';
}

} // namespace

std::string portFileName(std::string_view portName) {
    std::string file(portName.substr(portName.size() - std::min(portName.size(), kReadableBytes)));
    std::replace_if(
        file.begin(), file.end(), [](char c) { return !harmless(c); }, '_');
    file += '~';
    const std::uint64_t hash = fnv1a(portName);
    for (int shift = 60; shift >= 0; shift -= 4) file += "0123456789abcdef"[(hash >> shift) & 15];
    return file;
}

PortAddress::PortAddress(const RuntimeDirectory& directory, const std::string& file) {
    address.sun_family = AF_UNIX;
    // At most 14 + 11 + 1 + 41 bytes of the 108.
    directory.socketPath(file).copy(address.sun_path, sizeof address.sun_path - 1);
}

} // namespace brindlemar
