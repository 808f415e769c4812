#include "linux/files/FileErrors.h"

#include <cerrno>
#include <system_error>

namespace brindlemar {

namespace {
int cocoaCode(int error, FileAccess access) {
    const bool reading = access == FileAccess::reading;
    switch (error) {
    case ENOENT:
    case ENOTDIR:
        return reading ? CocoaErrorCode::fileReadNoSuchFile : CocoaErrorCode::noSuchFile;
    case EACCES:
    case EPERM:
        return reading ? CocoaErrorCode::fileReadNoPermission : CocoaErrorCode::fileWriteNoPermission;
    case EEXIST:
        return CocoaErrorCode::fileWriteFileExists;
    case ENOSPC:
    case EDQUOT:
        return CocoaErrorCode::fileWriteOutOfSpace;
    case EROFS:
        return CocoaErrorCode::fileWriteVolumeReadOnly;
    default:
        return reading ? CocoaErrorCode::fileReadUnknown : CocoaErrorCode::fileWriteUnknown;
    }
}
} // namespace

NSError fileError(int error, FileAccess access) {
    NSError result = cocoaError(cocoaCode(error, access));
    result.description = std::generic_category().message(error);
    return result;
}

} // namespace brindlemar
