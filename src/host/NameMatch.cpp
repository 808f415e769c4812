#include "host/NameMatch.h"

#include <utf8proc.h>

#include <cstdlib>
#include <memory>

namespace brindlemar::host {

std::string folded(std::string_view text) {
    constexpr auto options = static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE | UTF8PROC_CASEFOLD);
    utf8proc_uint8_t* result = nullptr;
    const auto size = utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                                   static_cast<utf8proc_ssize_t>(text.size()), &result, options);
    const std::unique_ptr<utf8proc_uint8_t, void (*)(void*)> owner(result, std::free);
    if (size < 0) return std::string(text);
    return {reinterpret_cast<const char*>(result), static_cast<std::size_t>(size)};
}

} // namespace brindlemar::host
