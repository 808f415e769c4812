#pragma once

#include <string_view>

namespace brindlemar {

/// The domain name that unqualified identifiers belong to. No host serves it: no port is ever looked up for it.
inline constexpr std::string_view kDefaultDomain = "brindlemar";

} // namespace brindlemar
