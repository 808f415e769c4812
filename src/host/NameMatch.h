// Names as people compare them.
#pragma once

#include <string>
#include <string_view>

namespace brindlemar::host {

/// The text without the difference between upper and lower case, and between composed and decomposed characters: texts
/// that are the same to a reader give the same bytes. The text must be UTF-8.
std::string folded(std::string_view text);

} // namespace brindlemar::host
