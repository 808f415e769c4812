#include "linux/log/LogFiles.h"

#include "linux/WriteFully.h"
#include "linux/log/RotatingFile.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

namespace brindlemar {

namespace {

class Console : public LogOutput {
public:
    std::size_t write(std::string_view lines) override {
        const std::size_t written = writeFully(STDERR_FILENO, lines);
        if (written == lines.size() || errno != EAGAIN) return written;
        struct pollfd room {
            STDERR_FILENO, POLLOUT, 0
        }; // somebody made the terminal non-blocking
        ::poll(&room, 1, 100);
        return written + writeFully(STDERR_FILENO, lines.substr(written));
    }
};

std::optional<std::string> absolutePath(const char* variable) {
    const char* value = std::getenv(variable);
    return value && *value == '/' ? std::optional<std::string>(value) : std::nullopt;
}

std::unique_ptr<LogDestination> batched(std::unique_ptr<LogOutput> output) {
    if (!output) return nullptr;
    try {
        return std::make_unique<BatchedLog>(std::move(output));
    } catch (const std::exception&) { // no thread to be had
        return nullptr;
    }
}

} // namespace

std::unique_ptr<LogDestination> LogFiles::console() { return batched(std::make_unique<Console>()); }

std::unique_ptr<LogDestination> LogFiles::file(const RotatingLogFile& file) {
    return batched(RotatingFile::open(file));
}

std::optional<std::string> LogFiles::libraryDirectory() {
    if (auto own = absolutePath("BRINDLEMAR_LIBRARY_DIR")) return own;
    if (const auto state = absolutePath("XDG_STATE_HOME")) return *state + "/brindlemar";
    if (const auto home = absolutePath("HOME")) return *home + "/.local/state/brindlemar";
    return std::nullopt;
}

std::uint64_t LogFiles::threadID() {
    thread_local const pid_t id = ::gettid();
    return static_cast<std::uint64_t>(id);
}

} // namespace brindlemar
