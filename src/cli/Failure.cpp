#include "cli/Failure.h"

#include "cli/Text.h"
#include "platform/Errors.h"

#include <cerrno>
#include <system_error>

namespace brindlemar::cli {

Failure hostNotRunning() { return {Exit::hostNotRunning, "Please Launch Brindlemar to continue syncing.", true}; }

Failure serviceNotRunning() {
    return {Exit::failure, "The service is not running. Start it with \"brindlemard\" and try again.", true};
}

Failure reportedError(std::string_view domain, int code, const std::string& description, const std::string& subject) {
    const std::string where = "\"" + escaped(subject) + "\"";
    if (domain == NSFileProviderErrorDomain && code == FileProviderErrorCode::serverUnreachable)
        return hostNotRunning();
    if (domain == NSFileProviderErrorDomain && code == FileProviderErrorCode::noSuchItem)
        return {Exit::notFound, "There is no " + where + ". See what there is with \"brindlemar ls\"."};
    if (domain == NSFileProviderErrorDomain && code == FileProviderErrorCode::cannotSynchronize)
        return {Exit::failure, where + ": The host could not do this. Look at what it says, then try again."};
    if (domain == NSCocoaErrorDomain && code == CocoaErrorCode::fileWriteOutOfSpace && description.empty())
        return {Exit::failure, where + ": There is no room left on the disk. Free some with \"brindlemar evict\"."};
    const std::string reason = description.empty() ? stockErrorDescription(domain, code) : escaped(description);
    return {Exit::failure, where + ": " + reason + (reason.ends_with(".") || reason.ends_with(".)") ? "" : ".") +
                               " The service's log may say more."};
}

Failure systemError(const std::string& what, const std::string& subject) {
    const int code = errno;
    const Exit exit = code == ENOENT ? Exit::notFound : Exit::failure;
    return {exit, "Cannot " + what + " \"" + escaped(subject) + "\": " + std::generic_category().message(code) + "."};
}

} // namespace brindlemar::cli
