// The process-wide logger: every diagnostic line of the extension goes through it to the console and the log file.
#pragma once

#include "platform/LogBackend.h"
#include "platform/Timestamp.h"

#include <charconv>
#include <concepts>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace brindlemar {

enum class LogLevel { trace, debug, info, notice, warning, error, critical };

/// "DEBUG", "INFO" and so on, as written in a line.
std::string_view levelName(LogLevel level);

/// Further fields of a line, in the order given; entries with an empty value are not written.
using LogMetadata = std::vector<std::pair<std::string_view, std::string>>;

/// Where a log call stands in the code.
struct LogSite {
    std::string_view file; // path of the source file as compiled
    unsigned line = 0;
    std::string_view function; // the operation's name with its argument labels
};

/// A cheap copy shares its sinks. Thread-safe; a call never fails and never throws.
class Logger {
public:
    /// The logger of the process, built from the installed platform at first use.
    static const Logger& shared();
    /// Flushes and drops the shared logger; the next use builds a new one. For the end of the process and for tests,
    /// while nobody logs.
    static void reset();

    const std::string& label() const;
    bool isEnabled(LogLevel level) const { return level >= LogLevel::debug; }
    void log(LogLevel level, const LogSite& site, std::string_view message, const LogMetadata& metadata = {}) const;
    void flush() const;

private:
    struct State;
    explicit Logger(std::shared_ptr<const State> state) : state_(std::move(state)) {}
    std::shared_ptr<const State> state_;
};

/// The head of a message; file and line of the call come by themselves.
struct LogText {
    template <class S>
    requires std::convertible_to<const S&, std::string_view> LogText(const S& text, const char* file = __builtin_FILE(),
                                                                     unsigned line = __builtin_LINE())
        : text(text), file(file), line(line) {}
    std::string_view text;
    const char* file;
    unsigned line;
};

/// The log calls of one operation: `const LogScope log{Logger::shared(), "item(for:request:completionHandler:)"};`
/// then `log.info("In info for ", itemID)`. Texts and integers are joined to the message. Cheap to copy into lambdas.
class LogScope {
public:
    /// `function` must live for ever: a literal.
    LogScope(const Logger& logger, std::string_view function) : logger_(logger), function_(function) {}

    template <class... Values>
    void debug(LogText head, const Values&... values) const {
        write(LogLevel::debug, head, {}, values...);
    }
    template <class... Values>
    void info(LogText head, const Values&... values) const {
        write(LogLevel::info, head, {}, values...);
    }
    template <class... Values>
    void notice(LogText head, const Values&... values) const {
        write(LogLevel::notice, head, {}, values...);
    }
    template <class... Values>
    void warning(LogText head, const Values&... values) const {
        write(LogLevel::warning, head, {}, values...);
    }
    template <class... Values>
    void error(LogText head, const Values&... values) const {
        write(LogLevel::error, head, {}, values...);
    }
    void debugWith(const LogMetadata& metadata, LogText message) const { write(LogLevel::debug, message, metadata); }
    void errorWith(const LogMetadata& metadata, LogText message) const { write(LogLevel::error, message, metadata); }
    template <class... Values>
    void at(LogLevel level, LogText head, const Values&... values) const {
        write(level, head, {}, values...);
    }

private:
    static void append(std::string& message, std::string_view text) { message.append(text); }
    static void append(std::string& message, std::integral auto number) {
        char digits[24];
        message.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
    }

    template <class... Values>
    void write(LogLevel level, const LogText& head, const LogMetadata& metadata, const Values&... values) const {
        if (!logger_.isEnabled(level)) return;
        const LogSite site{head.file, head.line, function_};
        if constexpr (sizeof...(values) == 0) {
            logger_.log(level, site, head.text, metadata);
        } else {
            std::string message(head.text);
            (append(message, values), ...);
            logger_.log(level, site, message, metadata);
        }
    }

    Logger logger_;
    std::string_view function_;
};

} // namespace brindlemar
