#include "provider/mount/Failures.h"

#include "linux/sqlite/Database.h"
#include "support/Logger.h"

#include <system_error>

namespace brindlemar {

NSError toldError(std::string_view where, const std::exception& error) {
    LogScope(Logger::shared(), where).error(error.what());
    const auto* database = dynamic_cast<const sqlite::Error*>(&error);
    const auto* system = dynamic_cast<const std::system_error*>(&error);
    const bool isFull = (database && database->isFull()) || (system && system->code() == std::errc::no_space_on_device);
    return cocoaError(isFull ? CocoaErrorCode::fileWriteOutOfSpace : CocoaErrorCode::fileWriteUnknown);
}

bool isOfTheDisk(const NSError& error) {
    return error == cocoaError(CocoaErrorCode::fileWriteOutOfSpace) ||
           error == cocoaError(CocoaErrorCode::fileWriteUnknown);
}

} // namespace brindlemar
