// Log lines on Linux: the console is standard error, the log file rotates.
#pragma once

#include "platform/LogBackend.h"

namespace brindlemar {

/// Standard output carries data of the programs, so the console is standard error. Thread-safe. A destination may
/// outlive the backend.
class LogFiles : public LogBackend {
public:
    std::unique_ptr<LogDestination> console() override;
    std::unique_ptr<LogDestination> file(const RotatingLogFile& file) override;
    /// $BRINDLEMAR_LIBRARY_DIR, else $XDG_STATE_HOME/brindlemar, else $HOME/.local/state/brindlemar. A value that is no
    /// absolute path counts as none (XDG base directories).
    std::optional<std::string> libraryDirectory() override;
    /// gettid(2)
    std::uint64_t threadID() override;
};

} // namespace brindlemar
