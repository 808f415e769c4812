// The date of a log line.
#pragma once

#include "platform/Timestamp.h"
#include "support/LogLine.h"

namespace brindlemar {

/// "yyyy-MM-dd'T'HH:mm:ss.SSSZZZZZ": ISO 8601 with rounded milliseconds in the process's time zone, whose offset is
/// written as "Z" at zero and as ±HH:MM elsewhere. Gregorian calendar and ASCII digits whatever the locale.
/// Thread-safe. The zone is looked up again in every second that a thread writes, so a change of it is followed.
class LogDateFormat {
public:
    void append(LogLine& line, Timestamp date) const;
    bool operator==(const LogDateFormat&) const = default;
};

} // namespace brindlemar
