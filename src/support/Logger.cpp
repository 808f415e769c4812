#include "support/Logger.h"

#include "platform/Platform.h"
#include "support/LogFormatter.h"
#include "support/LogNames.h"

#include <atomic>
#include <cstdlib>
#include <mutex>

namespace brindlemar {

namespace {

constexpr std::string_view kModule = "BrindlemarFileProvider";
constexpr std::uint64_t kMaximumFileSize = 31'457'280;
constexpr unsigned kMaximumArchives = 7;
constexpr unsigned kFilePermission = 0640;

struct Sink {
    std::string label;
    LogLevel minimumLevel = LogLevel::trace;
    LogFormatter formatter{};
    std::unique_ptr<LogDestination> destination;
};

std::unique_ptr<LogDestination> openFile(LogBackend& backend, const LogNames& names) {
    const auto library = backend.libraryDirectory();
    if (!library || !names.file) return nullptr;
    return backend.file({.path = *library + "/" + *names.file,
                         .permission = kFilePermission,
                         .maximumFileSize = kMaximumFileSize,
                         .maximumArchives = kMaximumArchives});
}

/// "BrindlemarFileProvider/" + the last component of the path the compiler saw.
void appendFileIdentifier(LogLine& identifier, std::string_view path) {
    path.remove_prefix(path.rfind('/') + 1);
    identifier.append(kModule).append('/').append(path);
}

} // namespace

struct Logger::State {
    explicit State(const Platform& platform)
        : names(LogNames::of(ExtensionBundleIdentifier)), clock(platform.clock), backend(platform.log) {
        add(names.consoleSink, backend.console());
        add(names.fileSink, openFile(backend, names));
    }

    void add(const std::string& label, std::unique_ptr<LogDestination> destination) {
        if (destination) sinks.push_back({.label = label, .destination = std::move(destination)});
    }

    void write(const LogMessage& message) const {
        LogLine line;
        const LogFormatter* written = nullptr;
        for (const Sink& sink : sinks) {
            if (message.level < sink.minimumLevel) continue;
            if (!written || *written != sink.formatter) {
                line.truncate(0);
                sink.formatter.appendMessage(line, message);
                written = &sink.formatter;
            }
            sink.destination->write(line.text(), message.level >= LogLevel::error);
        }
    }

    const LogNames names;
    Clock& clock;
    LogBackend& backend;
    std::vector<Sink> sinks;
};

namespace {

/// Never destroyed, for the last lines of a process come late.
struct SharedLogger {
    std::mutex making;
    std::atomic<const Logger*> logger{nullptr};

    static SharedLogger& instance() {
        static SharedLogger& shared = *new SharedLogger;
        return shared;
    }
};

void flushAtExit() {
    if (const Logger* logger = SharedLogger::instance().logger) logger->flush();
}

} // namespace

const Logger& Logger::shared() {
    SharedLogger& shared = SharedLogger::instance();
    if (const Logger* logger = shared.logger.load(std::memory_order_acquire)) return *logger;
    std::lock_guard lock(shared.making);
    if (!shared.logger) {
        static const int registered = std::atexit(flushAtExit);
        static_cast<void>(registered);
        shared.logger = new Logger(std::make_shared<const State>(Platform::current()));
    }
    return *shared.logger;
}

void Logger::reset() {
    const std::unique_ptr<const Logger> last(SharedLogger::instance().logger.exchange(nullptr));
    if (last) last->flush();
}

const std::string& Logger::label() const { return state_->names.logger; }

void Logger::log(LogLevel level, const LogSite& site, std::string_view message, const LogMetadata& metadata) const {
    if (!isEnabled(level)) return;
    try {
        LogLine file;
        appendFileIdentifier(file, site.file);
        state_->write({.level = level,
                       .message = message,
                       .function = site.function,
                       .file = file.text(),
                       .line = site.line,
                       .information = metadata,
                       .label = label(),
                       .date = state_->clock.now(),
                       .threadID = state_->backend.threadID()});
    } catch (...) { // out of memory: the line is lost, the caller goes on
    }
}

void Logger::flush() const {
    for (const Sink& sink : state_->sinks) sink.destination->flush();
}

} // namespace brindlemar
