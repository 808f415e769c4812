// The few file and process services that the extension uses itself.
#pragma once

#include <string>
#include <string_view>

namespace brindlemar {

/// Thread-safe.
class Files {
public:
    virtual ~Files() = default;
    /// Replaces the file as a whole, or leaves it as it was and answers false. A relative path starts at the process's
    /// current directory.
    virtual bool writeAtomically(std::string_view path, std::string_view bytes) = 0;
    /// Writes one line to the process's standard output, outside the log.
    virtual void printLine(std::string_view line) = 0;
};

} // namespace brindlemar
