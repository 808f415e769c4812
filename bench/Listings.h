// Listing replies as a host writes them.
#pragma once

#include <string>

namespace brindlemar::bench {

inline std::string listingText(std::size_t count) {
    std::string text = "[";
    for (std::size_t i = 0; i < count; ++i) {
        const std::string number = std::to_string(1'000'000 + i);
        if (i > 0) text += ',';
        text += R"({"name":"holiday picture )" + number + R"(.jpeg","size":)" +
                std::to_string(i * 4099 % 4'000'000'000) +
                R"(,"folder":false,"parentID":"photos/2024/summer","itemID":"photos/2024/summer/holiday picture )" +
                number + R"(.jpeg","mtime":)" + std::to_string(1'600'000'000 + i) + R"(,"atime":)" +
                std::to_string(1'700'000'000 + i) + R"(,"glacier":0,"permissions":420})";
    }
    return text + "]";
}

} // namespace brindlemar::bench
