// One log message as one line of key=value fields.
#pragma once

#include "support/LogDateFormat.h"
#include "support/Logger.h"

#include <cstdint>

namespace brindlemar {

/// What the back end knows of a message. `file` is a source file identifier: module, "/", file name with extension.
/// `tag` and `label` are not written.
struct LogMessage {
    LogLevel level = LogLevel::debug;
    std::string_view message{};
    std::string_view tag{};
    std::string_view function{};
    std::string_view file{};
    unsigned line = 0;
    const LogMetadata& information;
    std::string_view label{};
    Timestamp date{};
    std::uint64_t threadID = 0;
};

/// Thread-safe, never changed. Equal formatters write equal lines, so one line serves all sinks with equal formatters.
class LogFormatter {
public:
    /// The line without a terminator:
    /// t=DATE level=LEVEL msg="…" thread=ID key="value" … location="MODULE/FILE:LINE" function="…"
    /// Entries of `information` without a value are left out; with none left two blanks stand before "location=".
    std::string formatMessage(const LogMessage& message) const;
    /// The same, at the end of `line`.
    void appendMessage(LogLine& line, const LogMessage& message) const;
    bool operator==(const LogFormatter&) const = default;

private:
    LogDateFormat dateFormat_;
};

} // namespace brindlemar
