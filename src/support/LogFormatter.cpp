#include "support/LogFormatter.h"

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

void appendDecimal(LogLine& line, std::uint64_t number) {
    char digits[20];
    line.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
}

void appendMetadata(LogLine& line, const LogMetadata& information) {
    bool first = true;
    for (const auto& [key, value] : information) {
        if (value.empty()) continue;
        if (!first) line.push_back(' ');
        first = false;
        line.append(key).push_back('=');
        appendQuoted(line, value);
    }
}

void appendLocation(LogLine& line, const LogMessage& message) {
    std::array<char, 256> buffer;
    std::pmr::monotonic_buffer_resource memory(buffer.data(), buffer.size());
    LogLine location(&memory);
    location.reserve(message.file.size() + 24);
    location.append(moduleName(message.file)).append("/").append(fileName(message.file)).append(":");
    appendDecimal(location, message.line);
    appendQuoted(line, location);
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
    line.append(" thread=");
    appendDecimal(line, message.threadID);
    line.push_back(' ');
    appendMetadata(line, message.information);
    line.append(" location=");
    appendLocation(line, message);
    line.append(" function=");
    appendQuoted(line, message.function);
}

std::string LogFormatter::formatMessage(const LogMessage& message) const {
    LogLine line;
    appendMessage(line, message);
    return std::string(line);
}

} // namespace brindlemar
