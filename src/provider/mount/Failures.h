// Failures of the disk where nobody waits for a result.
#pragma once

#include "support/Logger.h"

#include <exception>

namespace brindlemar {

/// What a task throws would end the process: it is said in the log instead. False when something was thrown.
template <class Body>
bool orLog(std::string_view where, Body&& body) {
    try {
        body();
        return true;
    } catch (const std::exception& error) {
        LogScope(Logger::shared(), where).error(error.what());
        return false;
    }
}

} // namespace brindlemar
