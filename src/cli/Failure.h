// How a command ends when it does not succeed.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace brindlemar::cli {

enum class Exit { ok = 0, failure = 1, usage = 2, notFound = 3, hostNotRunning = 4, interrupted = 130 };

/// The message says what was wrong, where, and what to do.
struct Failure : std::runtime_error {
    Failure(Exit exit, const std::string& message, bool final = false)
        : std::runtime_error(message), exit(exit), final(final) {}
    Exit exit;
    bool final; // nothing else will succeed either
};

Failure hostNotRunning();
Failure serviceNotRunning();
/// For an error that the service reported while it worked on `subject`. `description` may be empty.
Failure reportedError(std::string_view domain, int code, const std::string& description, const std::string& subject);
/// "cannot WHAT SUBJECT: the system's reason", for the error in errno.
Failure systemError(const std::string& what, const std::string& subject);

} // namespace brindlemar::cli
