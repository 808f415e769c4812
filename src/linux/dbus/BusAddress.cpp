#include "linux/dbus/BusAddress.h"

#include <charconv>

namespace brindlemar {

namespace {
constexpr std::string_view kPrefix = "unix:path=";
constexpr std::string_view kPlain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_/.*";
} // namespace

std::string busAddress(std::string_view path) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string address(kPrefix);
    for (const char c : path) {
        const auto byte = static_cast<unsigned char>(c);
        if (kPlain.find(c) != std::string_view::npos)
            address.push_back(c);
        else
            address.append({'%', digits[byte >> 4], digits[byte & 15]});
    }
    return address;
}

std::optional<std::string> pathOfBusAddress(std::string_view address) {
    if (!address.starts_with(kPrefix)) return std::nullopt;
    address.remove_prefix(kPrefix.size());
    address = address.substr(0, address.find_first_of(",;"));
    std::string path;
    while (!address.empty()) {
        if (address.front() != '%') {
            path.push_back(address.front());
            address.remove_prefix(1);
            continue;
        }
        unsigned byte = 0;
        if (address.size() < 3) return std::nullopt;
        const char* end = address.data() + 3;
        if (std::from_chars(address.data() + 1, end, byte, 16).ptr != end || byte == 0) return std::nullopt;
        path.push_back(static_cast<char>(byte));
        address.remove_prefix(3);
    }
    return path.empty() ? std::nullopt : std::optional(path);
}

} // namespace brindlemar
