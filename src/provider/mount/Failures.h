// Failures of the disk where nobody up the stack takes them.
#pragma once

#include "platform/Errors.h"

#include <exception>
#include <optional>
#include <string_view>

namespace brindlemar {

/// Says in the log what was thrown, and what it means for whoever asked.
NSError toldError(std::string_view where, const std::exception& error);

/// An error of this machine's disk, as toldError() gives them.
bool isOfTheDisk(const NSError& error);

/// What a task throws would end the process: it is told instead. The error, if something was thrown.
template <class Body>
std::optional<NSError> attempt(std::string_view where, Body&& body) {
    try {
        body();
        return std::nullopt;
    } catch (const std::exception& error) {
        return toldError(where, error);
    }
}

/// The same where nobody waits for a result. False when something was thrown.
template <class Body>
bool orLog(std::string_view where, Body&& body) {
    return !attempt(where, body);
}

} // namespace brindlemar
