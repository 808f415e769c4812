// UTF-8 as RFC 3629 defines it.
#pragma once

#include <string_view>

namespace brindlemar {

/// True when the bytes are UTF-8 throughout: no overlong form, no surrogate, nothing above U+10FFFF, no cut sequence.
/// Runs at memory speed over ASCII.
bool isValidUtf8(std::string_view bytes);

} // namespace brindlemar
