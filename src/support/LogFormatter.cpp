#include "support/LogFormatter.h"

#include "support/LogQuote.h"

#include <array>

namespace brindlemar {

namespace {

std::string_view moduleName(std::string_view file) {
    const auto slash = file.find('/');
    return slash == file.npos ? std::string_view() : file.substr(0, slash);
}

std::string_view fileName(std::string_view file) {
    file.remove_prefix(file.rfind('/') + 1);
    const auto dot = file.rfind('.');
    return dot == file.npos || dot == 0 ? file : file.substr(0, dot);
}

void appendMetadata(LogLine& line, const LogMetadata& information) {
    bool first = true;
    for (const auto& [key, value] : information) {
        if (value.empty()) continue;
        if (!first) line.append(' ');
        first = false;
        line.append(key).append('=');
        appendQuoted(line, value);
    }
}

void appendLocation(LogLine& line, const LogMessage& message) {
    LogLine location;
    location.append(moduleName(message.file)).append('/').append(fileName(message.file)).append(':');
    appendQuoted(line, location.appendDecimal(message.line).text());
}

} // namespace

std::string_view levelName(LogLevel level) {
    constexpr std::array<std::string_view, 7> kNames{"TRACE",   "DEBUG", "INFO",    "NOTICE",
                                                     "WARNING", "ERROR", "CRITICAL"};
    return kNames[static_cast<std::size_t>(level)];
}

void LogFormatter::appendMessage(LogLine& line, const LogMessage& message) const {
    line.append("t=");
    dateFormat_.append(line, message.date);
    line.append(" level=").append(levelName(message.level)).append(" msg=");
    appendQuoted(line, message.message);
    line.append(" thread=").appendDecimal(message.threadID).append(' ');
    appendMetadata(line, message.information);
    line.append(" location=");
    appendLocation(line, message);
    line.append(" function=");
    appendQuoted(line, message.function);
}

std::string LogFormatter::formatMessage(const LogMessage& message) const {
    LogLine line;
    appendMessage(line, message);
    return std::string(line.text());
}

} // namespace brindlemar
