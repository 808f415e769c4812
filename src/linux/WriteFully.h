// Writing that goes on after a signal or a short write.
#pragma once

#include <cstddef>
#include <string_view>

namespace brindlemar {

/// Writes as much as the descriptor takes and answers how many bytes that was; errno says why it was not all.
std::size_t writeFully(int descriptor, std::string_view bytes);

} // namespace brindlemar
