#include "messaging/MessageLogger.h"

#include "support/Guarded.h"

#include <optional>

namespace brindlemar {

namespace {
Guarded<std::optional<Logger>>& copy() {
    static Guarded<std::optional<Logger>> logger;
    return logger;
}
} // namespace

Logger messageLogger() {
    const Logger& shared = Logger::shared(); // made outside the lock
    return copy().with([&](std::optional<Logger>& logger) {
        if (!logger) logger = shared;
        return *logger;
    });
}

void resetMessageLogger() {
    copy().with([](std::optional<Logger>& logger) { logger.reset(); });
}

} // namespace brindlemar
