// D-Bus addresses of Unix sockets: "unix:path=" and the path with other bytes than A-Z a-z 0-9 - _ / . * as %XX.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace brindlemar {

std::string busAddress(std::string_view path);
/// None when the address is of another transport or badly escaped. Further keys, such as guid, are passed over.
std::optional<std::string> pathOfBusAddress(std::string_view address);

} // namespace brindlemar
