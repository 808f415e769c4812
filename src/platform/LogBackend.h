// Where finished log lines go.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace brindlemar {

/// Takes whole lines, without terminator, from any thread, in order per thread. Never fails towards the caller.
class LogDestination {
public:
    virtual ~LogDestination() = default;
    /// An urgent line, and all before it, is handed to the operating system before the call returns; others follow
    /// within a few milliseconds.
    virtual void write(std::string_view line, bool urgent) = 0;
    virtual void flush() = 0;
};

struct RotatingLogFile {
    std::string path; // missing directories above it are made
    unsigned permission = 0640;
    std::uint64_t maximumFileSize = 0; // bytes
    unsigned maximumArchives = 0;      // archives are named by date and a unique identifier
};

class LogBackend {
public:
    virtual ~LogBackend() = default;
    /// None when the destination cannot be opened.
    virtual std::unique_ptr<LogDestination> console() = 0;
    virtual std::unique_ptr<LogDestination> file(const RotatingLogFile& file) = 0;
    /// The user's library directory, absolute; none when there is none.
    virtual std::optional<std::string> libraryDirectory() = 0;
    /// The calling thread's number, as shown in log lines.
    virtual std::uint64_t threadID() = 0;
};

} // namespace brindlemar
