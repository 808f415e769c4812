#include "provider/mount/ErrorNumbers.h"

#include <cerrno>
#include <string_view>
#include <system_error>

namespace brindlemar {

int errorNumber(const NSError& error) {
    static constexpr struct {
        std::string_view domain;
        int code, number;
    } table[] = {
        {NSFileProviderErrorDomain, -1000, EACCES},
        {NSFileProviderErrorDomain, -1001, EEXIST},
        {NSFileProviderErrorDomain, -1003, EDQUOT},
        {NSFileProviderErrorDomain, FileProviderErrorCode::serverUnreachable, EHOSTDOWN},
        {NSFileProviderErrorDomain, FileProviderErrorCode::noSuchItem, ENOENT},
        {NSFileProviderErrorDomain, -1006, EPERM},
        {NSFileProviderErrorDomain, -1007, ENOTEMPTY},
        {NSCocoaErrorDomain, CocoaErrorCode::noSuchFile, ENOENT},
        {NSCocoaErrorDomain, CocoaErrorCode::fileReadNoSuchFile, ENOENT},
        {NSCocoaErrorDomain, CocoaErrorCode::fileReadNoPermission, EACCES},
        {NSCocoaErrorDomain, CocoaErrorCode::fileWriteNoPermission, EACCES},
        {NSCocoaErrorDomain, CocoaErrorCode::fileWriteFileExists, EEXIST},
        {NSCocoaErrorDomain, CocoaErrorCode::fileWriteOutOfSpace, ENOSPC},
        {NSCocoaErrorDomain, CocoaErrorCode::fileWriteVolumeReadOnly, EROFS},
        {NSCocoaErrorDomain, CocoaErrorCode::userCancelled, EINTR},
        {NSCocoaErrorDomain, CocoaErrorCode::featureUnsupported, EOPNOTSUPP},
    };
    for (const auto& row : table)
        if (row.domain == error.domain && row.code == error.code) return row.number;
    return EIO;
}

std::string whyFailed(const NSError& error) {
    if (!error.description.empty()) return error.description;
    if (error == serverUnreachable()) return "Please Launch Brindlemar to continue syncing.";
    if (error == cannotSynchronize()) return "The host could not do this.";
    return std::generic_category().message(errorNumber(error)) + ".";
}

} // namespace brindlemar
