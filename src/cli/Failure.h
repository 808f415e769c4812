// How a command ends when it does not succeed.
#pragma once

#include "cli/Control.h"

#include <stdexcept>
#include <string>

namespace brindlemar::cli {

enum class Exit { ok = 0, failure = 1, usage = 2, notFound = 3, hostNotRunning = 4, interrupted = 130 };

/// The message is a sentence for the user.
struct Failure : std::runtime_error {
    Failure(Exit exit, const std::string& message) : std::runtime_error(message), exit(exit) {}
    Exit exit;
};

Failure hostNotRunning();
/// For an error that the service reported while it worked on `subject`.
Failure reportedError(std::string_view domain, int code, const std::string& subject);
/// For a call that the service did not take, or did not finish.
Failure brokenCall(const std::string& why);

} // namespace brindlemar::cli
