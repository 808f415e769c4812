// The names that the shared logger's parts bear, and where its file lies.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace brindlemar {

struct LogNames {
    std::string logger;      // bundle identifier + ".log"
    std::string consoleSink; // bundle identifier + ".console"
    std::string fileSink;    // bundle identifier + ".filerotation"
    /// Below the library directory; none when the bundle identifier has no non-empty piece.
    std::optional<std::string> file;

    static LogNames of(std::string_view bundleIdentifier);
};

} // namespace brindlemar
