#include "cli/Failure.h"

#include "cli/Text.h"
#include "platform/Errors.h"

namespace brindlemar::cli {

Failure hostNotRunning() { return {Exit::hostNotRunning, "Please Launch Brindlemar to continue syncing."}; }

Failure reportedError(std::string_view domain, int code, const std::string& subject) {
    if (domain == NSFileProviderErrorDomain && code == FileProviderErrorCode::serverUnreachable)
        return hostNotRunning();
    if (domain == NSFileProviderErrorDomain && code == FileProviderErrorCode::noSuchItem)
        return {Exit::notFound, "There is no \"" + escaped(subject) + "\"."};
    return {Exit::failure, "\"" + escaped(subject) + "\": " + stockErrorDescription(domain, code)};
}

Failure brokenCall(const std::string& why) {
    return {Exit::failure, "The service did not answer in full: " + escaped(why) + ". Look at \"brindlemar status\"."};
}

} // namespace brindlemar::cli
